// The simulated port monitor under the language monitor: delivers to a printer, remembers what it delivered.
#pragma once

#include <windows.h>

#include <winspool.h>
#include <winsplp.h>

#include <map>
#include <memory>
#include <string>

#include "sim/journal.h"
#include "sim/printer.h"

namespace sim {

// One port of it, and how it misbehaves.
struct MonitorPort {
  std::string strName;
  Printer* pPrinter = nullptr;  // where the bytes go; none: a file
  std::string strDelivered;
  DWORD dwRefuseOpen = 0;  // error codes; 0 = accept
  DWORD dwRefuseStart = 0;
  unsigned nRefuseWrites = 0;      // that many writes fail
  DWORD cbMostPerWrite = 0;        // partial writes (0: no limit)
  unsigned nZeroWrites = 0;        // that many writes take nothing
  HANDLE hHoldRequests = nullptr;  // requests through the port wait for this event
  bool bOpen = false;
  int nProtocol = 0;  // of a standard TCP/IP port: 1 raw, 2 LPR; 0: no such port
};

class PortMonitor {
 public:
  explicit PortMonitor(Journal& journal) : m_journal(journal) {}
  MonitorPort& Port(const std::string& strName);
  MonitorPort* FindPort(const std::string& strName);
  // The table that the spooler hands to the language monitor; tests may empty slots of it.
  MONITOR2 table = MakeTable();

  Journal& GetJournal() { return m_journal; }

 private:
  static MONITOR2 MakeTable();
  Journal& m_journal;
  Lock m_lock;
  std::map<std::string, std::unique_ptr<MonitorPort>> m_ports;
};

}  // namespace sim
