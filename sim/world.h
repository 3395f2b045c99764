// The world around the monitor: one object that a test or a tool builds in a few lines.
#pragma once

#include <windows.h>

#include <tcpxcv.h>

#include <map>
#include <memory>
#include <string>

#include "sim/journal.h"
#include "sim/port_monitor.h"
#include "sim/printer.h"
#include "sim/sdk_library.h"
#include "sim/service_manager.h"
#include "sim/spooler.h"
#include "sim/text.h"

namespace sim {

class World {
 public:
  // Builds an empty world with the log on (all levels). Attach loads the monitor into it.
  World();
  ~World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;
  static World& Get();

  // Loads the monitor that is linked into the program: attach, initialise, hand its table to the spooler.
  void Attach();
  // Uses a monitor that was loaded some other way.
  void Use(MONITOR2* pTable, HANDLE hMonitor);

  // A queue with a printer on its port, connected to the port monitor and the device-access library.
  Queue& AddPrinter(const std::string& strQueue, const std::string& strPort, const std::string& strDriver,
                    const PrinterSettings& settings = {});
  // One more queue, on a port of its own, that prints on the printer of another port.
  Queue& AddQueueOn(Printer& printer, const std::string& strQueue, const std::string& strPort,
                    const std::string& strDriver);
  Printer& PrinterOf(const std::string& strPort);

  // Puts the device-access library where the monitor looks for it, or takes it away. nOrdinals: how many of its three
  // entry points it has (on Windows always all).
  void InstallLibrary(bool bInstalled, int nOrdinals = 3);

  // Values of the machine's registry.
  static void SetMachineDword(const char* pszKey, const char* pszValue, DWORD dwValue);
  static void DeleteMachineKey(const char* pszKey);
  // A key in the hive of the client that jobs come from. Returns the call's code.
  static LSTATUS OpenClientKey(const std::string& strKey, REGSAM sam, HKEY* phKey, bool bMake = false);
  static void AddSerialDevice(const std::string& strDevice, const std::string& strPort);

  // Everything of the monitor's surroundings as on a fresh machine: settings, queues' words, log files.
  static void CleanMachine();

  // The log: its level mask, all its text and the messages that contain a text.
  static void SetLogLevel(DWORD dwMask);
  static std::string LogFolder();
  static std::string LogText();
  static std::size_t LogCount(const std::string& strPart);

  // Files by their Windows paths.
  static bool ReadWholeFile(const std::string& strPath, std::string& strBytes);
  static bool WriteWholeFile(const std::string& strPath, const std::string& strBytes);
  static std::vector<std::string> ListFolder(const std::string& strFolder);
  // The files of an archive by their paths below its root, in order of their names.
  static std::map<std::string, std::string> ArchivedFiles(const std::string& strRoot);
  static void DeleteTree(const std::string& strFolder);

  Journal journal;
  ServiceManager services;
  PortMonitor portMonitor{journal};
  SdkLibrary library{journal};
  Spooler spooler;

 private:
  std::map<std::string, std::unique_ptr<Printer>> m_printers;  // by port
  MONITORREG m_monitorReg = {};
  MONITORINIT m_monitorInit = {};
  WideString m_serverName;
  bool m_bAttached = false;
};

}  // namespace sim
