// lmhost print: the world, the jobs and the summary.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <optional>

#include "base/setting_names.h"
#include "log/level.h"
#include "monitor/model.h"
#include "sim/world.h"
#include "tools/lmhost/commands.h"
#include "tools/lmhost/job_check.h"
#include "tools/common/progress_bar.h"

#ifndef _WIN32
#include "posix/control.h"
#endif

namespace lmhost {
namespace {

constexpr char kQueue[] = "Till";
constexpr DWORD kShowMs = 100;  // between two looks at a job

std::string HostPathOf(const std::string& strPath) {
#ifdef _WIN32
  return strPath;
#else
  return w32::HostPath(sim::Wide(strPath).c_str());
#endif
}

bool ReadHostFile(const std::string& strPath, std::string& strBytes) {
  std::ifstream file(strPath, std::ios::binary);
  if (!file) return false;
  strBytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  return !file.bad();
}

// "KIND@BYTE[:SECONDS]"
std::optional<sim::Fault> ParseFault(const std::string& strText) {
  const std::size_t nAt = strText.find('@');
  sim::Fault fault{};
  if (nAt == std::string::npos || !sim::FaultKindOf(strText.substr(0, nAt), fault.kind)) return std::nullopt;
  char* pszEnd = nullptr;
  fault.ullAtByte = std::strtoull(strText.c_str() + nAt + 1, &pszEnd, 10);
  double dSeconds = 2;
  if (*pszEnd == ':') dSeconds = std::strtod(pszEnd + 1, &pszEnd);
  if (*pszEnd != 0 || dSeconds < 0) return std::nullopt;
  fault.dwMilliseconds = static_cast<DWORD>(dSeconds * 1000);
  return fault;
}

// Puts a registry value that a run changes back as it was, or takes it away: on Windows it is the machine's own.
class KeptMachineValue {
 public:
  KeptMachineValue(const wchar_t* pszKey, const wchar_t* pszValue) : m_pszKey(pszKey), m_pszValue(pszValue) {
    HKEY hKey = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, m_pszKey, 0, KEY_QUERY_VALUE, &hKey) != ERROR_SUCCESS) return;
    DWORD cb = sizeof m_dwBefore;
    m_bWasThere = RegQueryValueExW(hKey, m_pszValue, nullptr, nullptr, reinterpret_cast<BYTE*>(&m_dwBefore), &cb) ==
                  ERROR_SUCCESS;
    RegCloseKey(hKey);
  }
  ~KeptMachineValue() {
    HKEY hKey = nullptr;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, m_pszKey, 0, KEY_SET_VALUE, &hKey) != ERROR_SUCCESS) return;
    if (m_bWasThere) {
      RegSetValueExW(hKey, m_pszValue, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&m_dwBefore), sizeof m_dwBefore);
    } else {
      RegDeleteValueW(hKey, m_pszValue);
    }
    RegCloseKey(hKey);
  }
  KeptMachineValue(const KeptMachineValue&) = delete;
  KeptMachineValue& operator=(const KeptMachineValue&) = delete;

 private:
  const wchar_t* m_pszKey;
  const wchar_t* m_pszValue;
  DWORD m_dwBefore = 0;
  bool m_bWasThere = false;
};

// The settings of the machine that a world and its run change. Made before the world, which sets the log's level.
struct KeptSettings {
  KeptMachineValue level{kLogKey, kLogLevelValue};
  KeptMachineValue openWithStartDoc{kDriverKey, kOpenWithStartDocValue};
};

// As the monitor finds the model of a driver.
bool HasOneByteStatus(const std::string& strDriver) {
  for (const DevModelEntry& entry : DevModelTable())
    if (sim::SameText(sim::Narrow(entry.pszModelName), strDriver)) return entry.pDevData->HasOneByteStatus();
  return false;
}

bool BuildWorld(sim::World& world, const Options& options) {
  sim::PrinterSettings settings;
  settings.bOneByteStatus = HasOneByteStatus(options.strDriver);
  settings.dwBytesPerSecond = options.nSpeed;
  sim::Queue& queue = world.AddPrinter(kQueue, options.strPort, options.strDriver, settings);
  queue.strShare = options.strShare;
  if (!options.strShare.empty()) queue.dwAttributes |= PRINTER_ATTRIBUTE_SHARED;
  if (options.strPort.starts_with("IP_")) world.portMonitor.Port(options.strPort).nProtocol = PROTOCOL_RAWTCP_TYPE;
  world.services.bInstalled = options.strService != "absent";
  world.services.dwState = options.strService == "running" ? SERVICE_RUNNING : SERVICE_STOPPED;
  world.InstallLibrary(!options.bNoLibrary);
  sim::World::SetMachineDword("SOFTWARE\\Kelvane\\PrinterDriver", "OpenWithStartDoc",
                              options.bOpenWithStartDoc ? 1 : 0);
  if (options.bAutoReprint) queue.data["AutoReprint"] = sim::Spooler::Dword(1);
  if (!options.strArchive.empty()) {
    queue.data["JobFilePath"] = sim::Spooler::Text(options.strArchive);
    queue.data["JobSettingFlags"] = sim::Spooler::Dword(1);
    if (options.nKeepDays >= 0) queue.data["JobValidDays"] = sim::Spooler::Dword(static_cast<DWORD>(options.nKeepDays));
  }
  if (!options.archiveFlags.empty()) {
    std::vector<BYTE> bytes;
    for (const int n : options.archiveFlags) bytes.push_back(static_cast<BYTE>(n));
    queue.data["LogSettingFlags"] = sim::Spooler::Bytes(bytes);
  }
  for (const std::string& strFault : options.faults) {
    const auto fault = ParseFault(strFault);
    if (!fault) {
      std::fprintf(stderr, "lmhost: --fault takes KIND@BYTE[:SECONDS], not \"%s\"; kinds: %s\n", strFault.c_str(),
                   sim::FaultKindNames().c_str());
      return false;
    }
    world.PrinterOf(options.strPort).Plan(*fault);
  }
  return true;
}

// Why the jobs took the path that they took.
std::string PathReason(const Options& options, bool bDevice) {
  if (bDevice) return "device-access library";
  if (options.strService == "absent") return "port monitor (the device-access service is not installed)";
  if (options.strService == "stopped") return "port monitor (the device-access service is stopped)";
  if (options.bNoLibrary) return "port monitor (the device-access library is missing)";
  return "port monitor (the library does not serve this kind of port)";
}

struct Totals {
  std::uint64_t ullOffered = 0;
  std::uint64_t ullDelivered = 0;
  unsigned nRefused = 0;
  std::size_t nWhole = 0;
  std::size_t nReprints = 0;
  std::size_t cbArchived = 0;
  bool bArchiveIsWire = true;
  bool bArchiveIsPaper = true;
  bool bAll = true;
};

// What a delivered job's line says: how often it stands on paper and who confirmed that.
std::string Verdict(const JobCheck::Outcome& outcome, bool bEmpty, const Options& options) {
  std::string strVerdict = bEmpty                    ? "delivered, without data"
                           : outcome.nWholeLast == 1 ? "delivered, whole on paper"
                                                     : "delivered, NOT whole on paper";
  if (outcome.nWholeAll > 1) strVerdict += sim::Format(" (%u times)", outcome.nWholeAll);
  if (outcome.bConfirmed) {
    strVerdict += sim::Format(", confirmed by %02X", static_cast<unsigned>(outcome.byResponse));
    if (outcome.nReprints != 0)
      strVerdict += sim::Format(" after %u reprint%s", outcome.nReprints, outcome.nReprints == 1 ? "" : "s");
  } else if (options.bAutoReprint) {
    strVerdict += ", not confirmed (a RAW job of an unshared printer and one on the port monitor are not asked for)";
  }
  return strVerdict;
}

// What goes on at this moment.
std::string StateOf(sim::Printer& printer, const JobCheck& check, bool bAllTaken, const Options& options) {
  const std::string strState = printer.State();
  if (strState != "ready" && strState != "printing") return "waiting: " + strState;
  if (check.Resets() != 0) return "reprinting";
  return bAllTaken && options.bAutoReprint ? "confirming" : "printing";
}

// One file through the monitor.
void PrintOne(sim::World& world, HANDLE hPort, const std::string& strFile, const std::string& strData,
              const Options& options, Totals& totals) {
  sim::Printer& printer = world.PrinterOf(options.strPort);
  lmtools::ProgressBar bar(strFile.substr(strFile.find_last_of("/\\") + 1), lmtools::ProgressBar::Kind::Result);
  const DWORD dwJob = world.spooler.NewJob(kQueue, options.strDatatype, strFile);
  const JobCheck check(world, options.strPort, kQueue, options.strArchive);
  std::atomic<std::uint64_t> ullDone{0};
  sim::PrintOptions print;
  print.bStopWhenDeleted = options.ullCancelAt != 0;
  print.onProgress = [&](std::uint64_t ullNow) {
    ullDone = ullNow;
    if (options.ullCancelAt != 0 && ullNow >= options.ullCancelAt) world.spooler.SetStatus(dwJob, JOB_STATUS_DELETING);
  };
  const auto pRunning = world.spooler.PrintAsync(hPort, dwJob, strData, print);
  do {
    bar.Show(ullDone, strData.size(), StateOf(printer, check, ullDone == strData.size(), options));
  } while (!pRunning->Wait(kShowMs));
  const sim::PrintResult result = pRunning->Join();
  const bool bDeleted = (world.spooler.StatusOf(dwJob) & JOB_STATUS_DELETING) != 0;
  for (int nWait = 0; nWait < 6000 && !printer.Idle(); ++nWait) Sleep(100);  // the paper comes out behind the data

  const JobCheck::Outcome outcome = check.Compare(ExpectedOnPaper(strData, sim::SameText(options.strDatatype, "RAW")));
  totals.ullOffered += strData.size();
  totals.ullDelivered += result.ullDelivered;
  totals.nRefused += result.nRefused;
  totals.cbArchived += outcome.cbArchived;
  if (bDeleted) {
    bar.End("deleted");
  } else if (!result.bStarted) {
    bar.End(sim::Format("refused, error %u", static_cast<unsigned>(result.dwError)));
  } else if (!result.bDelivered) {
    bar.End(sim::Format("broken off after %llu bytes, error %u", static_cast<unsigned long long>(result.ullDelivered),
                        static_cast<unsigned>(result.dwError)));
  } else {
    bar.End(Verdict(outcome, strData.empty(), options));
    const bool bWhole = strData.empty() || outcome.nWholeLast == 1;
    totals.nWhole += bWhole ? 1 : 0;
    totals.nReprints += outcome.nReprints;
    totals.bArchiveIsWire &= outcome.bArchiveIsWire;
    totals.bArchiveIsPaper &= outcome.bArchiveIsPaper;
    if (bWhole && outcome.bArchiveIsWire && outcome.bArchiveIsPaper) return;
  }
  totals.bAll = false;
}

}  // namespace

int PrintFiles(const Options& options) {
  std::vector<std::string> contents(options.files.size());
  for (std::size_t n = 0; n < options.files.size(); ++n) {
    if (ReadHostFile(options.files[n], contents[n])) continue;
    std::fprintf(stderr, "lmhost: cannot read %s\n", options.files[n].c_str());
    return kExitNotDelivered;
  }
  const KeptSettings kept;
  sim::World world;
  DWORD dwMask = 0;
  LogMaskOf(options.strLogLevel, dwMask);
  sim::World::SetLogLevel(dwMask);
  if (!BuildWorld(world, options)) return kExitUsage;
  world.Attach();
  const HANDLE hPort = world.spooler.OpenPort(options.strPort, kQueue);
  if (hPort == nullptr) {
    std::fprintf(stderr, "lmhost: the port %s does not open (error %u)\n", options.strPort.c_str(),
                 static_cast<unsigned>(GetLastError()));
    return kExitNotDelivered;
  }
  std::printf("printing on %s as %s, datatype %s\n", options.strPort.c_str(), options.strDriver.c_str(),
              options.strDatatype.c_str());
  Totals totals;
  for (std::size_t n = 0; n < contents.size(); ++n)
    PrintOne(world, hPort, options.files[n], contents[n], options, totals);
  world.spooler.ClosePort(hPort);

  const bool bDevice = world.journal.Count("port StartDocPort") == 0;
  std::string strPaper;
  for (const std::string& strStrip : world.PrinterOf(options.strPort).Strips()) strPaper += strStrip;
  const std::string strOutput = "C:\\Output.prn";
  sim::World::WriteWholeFile(strOutput, strPaper);
  std::printf("summary: %zu of %zu jobs whole on paper\n", totals.nWhole, contents.size());
  std::printf("  path      %s\n", PathReason(options, bDevice).c_str());
  std::printf("  bytes     %llu offered, %llu delivered, %u calls refused\n",
              static_cast<unsigned long long>(totals.ullOffered), static_cast<unsigned long long>(totals.ullDelivered),
              totals.nRefused);
  if (options.bAutoReprint) std::printf("  reprints  %zu\n", totals.nReprints);
  if (!options.strArchive.empty())
    std::printf("  archive   %zu bytes, %s\n", totals.cbArchived,
                totals.cbArchived == 0    ? "nothing was archived"
                : !totals.bArchiveIsWire  ? "DIFFERS from the wire"
                : !totals.bArchiveIsPaper ? "the same as on the wire, DIFFERS from the paper"
                                          : "the same as on the wire and on paper");
  std::printf("  paper     %s\n", HostPathOf(strOutput).c_str());
  std::printf("  log       %s\n", HostPathOf(sim::World::LogFolder()).c_str());
  return totals.bAll ? kExitDelivered : kExitNotDelivered;
}

}  // namespace lmhost
