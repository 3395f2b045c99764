// lmctl doctor: whether everything is as the monitor needs it, and the traps.
#include <windows.h>

#include <winspool.h>
#include <winsplp.h>
#include <tcpxcv.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "base/setting_names.h"
#include "common/port_kind.h"
#include "log/level.h"
#include "monitor/model.h"
#include "tools/lmctl/commands/commands.h"
#include "tools/lmctl/log/log_reader.h"
#include "tools/lmctl/log/paths.h"
#include "tools/common/machine_kind.h"
#include "tools/common/registered_monitor.h"
#include "tools/lmctl/render/render.h"
#include "tools/common/service.h"
#include "tools/common/terminal.h"
#include "tools/lmctl/windows/wide.h"

namespace lmctl {
namespace {

namespace fs = std::filesystem;

// What was found, one line each.
class Findings {
 public:
  void Ok(const char* pszCheck, const std::string& strText) { Add(pszCheck, "ok", strText, ""); }
  void Warning(const char* pszCheck, const std::string& strText, const std::string& strRemedy) {
    Add(pszCheck, "warning", strText, strRemedy);
  }
  void Failure(const char* pszCheck, const std::string& strText, const std::string& strRemedy) {
    Add(pszCheck, "failure", strText, strRemedy);
    m_bFailed = true;
  }
  int Print(bool bJson) const {
    if (bJson) {
      std::printf("%s\n", m_rows.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
    } else {
      const bool bColour = lmtools::WantsColour();
      for (const auto& row : m_rows) {
        const std::string strState = row["state"];
        const std::string strRemedy = row["remedy"].is_null() ? "" : row["remedy"].get<std::string>();
        const char* pszColour = strState == "ok" ? "\033[32m" : strState == "warning" ? "\033[33m" : "\033[31m";
        std::printf("%s%-8s%s %-10s %s%s%s\n", bColour ? pszColour : "", strState.c_str(), bColour ? "\033[0m" : "",
                    row["check"].get<std::string>().c_str(), row["text"].get<std::string>().c_str(),
                    strRemedy.empty() ? "" : " -> ", strRemedy.c_str());
      }
    }
    return m_bFailed ? kExitWrong : kExitWell;
  }

 private:
  void Add(const char* pszCheck, const char* pszState, const std::string& strText, const std::string& strRemedy) {
    m_rows.push_back(
        {{"check", pszCheck},
         {"state", pszState},
         {"text", Printable(strText)},
         {"remedy", strRemedy.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(Printable(strRemedy))}});
  }
  nlohmann::ordered_json m_rows = nlohmann::ordered_json::array();
  bool m_bFailed = false;
};

fs::path SystemFolder() {
  wchar_t wsz[MAX_PATH] = {};
  GetSystemDirectoryW(wsz, MAX_PATH);
  return wsz;
}

std::string FileVersion(const fs::path& file) {
  DWORD dwIgnored = 0;
  const DWORD cb = GetFileVersionInfoSizeW(file.c_str(), &dwIgnored);
  std::vector<BYTE> bytes(cb);
  VS_FIXEDFILEINFO* pInfo = nullptr;
  UINT cbInfo = 0;
  if (cb == 0 || !GetFileVersionInfoW(file.c_str(), 0, cb, bytes.data()) ||
      !VerQueryValueW(bytes.data(), L"\\", reinterpret_cast<void**>(&pInfo), &cbInfo))
    return "of no version";
  return "version " + std::to_string(HIWORD(pInfo->dwFileVersionMS)) + "." +
         std::to_string(LOWORD(pInfo->dwFileVersionMS)) + "." + std::to_string(HIWORD(pInfo->dwFileVersionLS));
}

bool Is64Bit(const fs::path& file) {
  DWORD dwType = 0;
  return GetBinaryTypeW(file.c_str(), &dwType) ? dwType == SCS_64BIT_BINARY : [&] {
    // GetBinaryType answers for programs only; a library tells in its headers.
    std::FILE* pFile = _wfopen(file.c_str(), L"rb");
    if (pFile == nullptr) return false;
    IMAGE_DOS_HEADER dos = {};
    DWORD dwSignature = 0;
    IMAGE_FILE_HEADER header = {};
    const bool bRead = std::fread(&dos, sizeof dos, 1, pFile) == 1 && std::fseek(pFile, dos.e_lfanew, SEEK_SET) == 0 &&
                       std::fread(&dwSignature, sizeof dwSignature, 1, pFile) == 1 &&
                       std::fread(&header, sizeof header, 1, pFile) == 1;
    std::fclose(pFile);
    return bRead && header.Machine == IMAGE_FILE_MACHINE_AMD64;
  }();
}

void CheckDll(Findings& findings) {
  const fs::path dll = SystemFolder() / kMonitorDll;
  std::error_code error;
  if (!fs::exists(dll, error)) {
    findings.Failure("dll", TextOfPath(dll) + " is missing", "install the package, or copy the DLL there");
  } else if (!Is64Bit(dll)) {
    findings.Failure("dll", TextOfPath(dll) + " is not a 64-bit library", "install the package anew");
  } else {
    findings.Ok("dll", TextOfPath(dll) + ", " + FileVersion(dll) + ", 64 bit");
  }
}

void CheckKindOfMachine(Findings& findings) {
  if (IsArm64())
    findings.Failure("machine", "this is an ARM64 machine: its spooler loads no x64 library",
                     "print through a server with an x64 processor");
  if (IsProtectedPrintMode())
    findings.Failure("machine", "a policy turns on Windows' protected print mode: no language monitor is loaded",
                     "turn off the policy \"Configure Windows protected print\"");
}

// The spooler reads the monitors' keys as it starts.
bool StartedBeforeRegistration(DWORD dwProcess, const std::wstring& monitor) {
  HKEY hKey = nullptr;
  FILETIME ftKey = {}, ftStart = {}, ftOther = {};
  const bool bKey = RegOpenKeyExW(HKEY_LOCAL_MACHINE, (std::wstring(kMonitorsKey) + L"\\" + monitor).c_str(), 0,
                                  KEY_READ, &hKey) == ERROR_SUCCESS &&
                    RegQueryInfoKeyW(hKey, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                     nullptr, nullptr, &ftKey) == ERROR_SUCCESS;
  if (hKey != nullptr) RegCloseKey(hKey);
  const HANDLE hProcess = OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, dwProcess);
  const bool bStart = hProcess != nullptr && GetProcessTimes(hProcess, &ftStart, &ftOther, &ftOther, &ftOther);
  if (hProcess != nullptr) CloseHandle(hProcess);
  return bKey && bStart && CompareFileTime(&ftStart, &ftKey) < 0;
}

void CheckSpooler(Findings& findings, const std::vector<std::wstring>& monitors) {
  const SERVICE_STATUS_PROCESS status = Service(L"Spooler", SERVICE_QUERY_STATUS).Status();
  if (status.dwCurrentState != SERVICE_RUNNING) {
    findings.Failure("spooler", "the spooler does not run", "net start spooler");
  } else if (!monitors.empty() && StartedBeforeRegistration(status.dwProcessId, monitors.front())) {
    findings.Warning("spooler", "the spooler started before the monitor was registered, and may not know it",
                     "net stop spooler, net start spooler");
  } else {
    findings.Ok("spooler", "the spooler runs");
  }
}

template <class Info>
std::vector<BYTE> Enumerate(const std::function<BOOL(BYTE*, DWORD, DWORD*, DWORD*)>& call, DWORD& dwCount) {
  DWORD cb = 0;
  dwCount = 0;
  call(nullptr, 0, &cb, &dwCount);
  std::vector<BYTE> bytes(cb + sizeof(Info));
  if (!call(bytes.data(), static_cast<DWORD>(bytes.size()), &cb, &dwCount)) dwCount = 0;
  return bytes;
}

// Drivers that name the monitor: they keep it from being removed.
int BeforeUninstall(Findings& findings, const std::vector<std::wstring>& monitors, bool bJson) {
  const std::vector<std::wstring> drivers = DriversNaming(monitors);
  for (const std::wstring& driver : drivers)
    findings.Failure("driver", "the driver " + Narrow(driver.c_str()) + " names the monitor",
                     "change its queues to another driver and delete it first");
  if (drivers.empty()) findings.Ok("driver", "no driver names the monitor: it can be removed");
  return findings.Print(bJson);
}

struct QueueFacts {
  std::string strName;
  bool bArchive = false;
  long nDays = 1;
};

// A DWORD of the queue's data as the monitor reads it; tells of a value that it would ignore.
bool Dword(Findings& findings, const Printer& printer, const std::string& strQueue, const wchar_t* pszName, bool bExact,
           DWORD& dw) {
  DWORD dwType = 0;
  std::vector<BYTE> bytes;
  if (!printer.Data(pszName, dwType, bytes)) return false;
  if (bytes.size() > sizeof dw || (bExact && bytes.size() != sizeof dw)) {
    findings.Warning(
        "queue",
        strQueue + ": " + Narrow(pszName) + " has " + std::to_string(bytes.size()) + " bytes, so it is ignored",
        "set it with lmctl settings");
    return false;
  }
  dw = 0;
  std::memcpy(&dw, bytes.data(), bytes.size());
  return true;
}

void CheckArchiveRoot(Findings& findings, const std::string& strQueue, const std::string& strRoot) {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(strRoot, error)) {
    const std::string strName = TextOfPath(entry.path().filename());
    if (!entry.is_directory(error) || IsDayName(strName) || strName.starts_with('.')) continue;
    findings.Warning("archive",
                     strQueue + ": the archive's root " + strRoot + " holds another folder, " + strName +
                         ", which is deleted when it is old",
                     "give the archive a root of its own");
    return;
  }
}

// Asks the port monitor that owns a port, as the language monitor does.
bool IsRawOrLprPort(const wchar_t* pszPort) {
  HANDLE hPort = nullptr;
  if (!OpenPrinterW((L",XcvPort " + std::wstring(pszPort)).data(), &hPort, nullptr)) return false;
  CONFIG_INFO_DATA_1 config = {};
  config.dwVersion = 1;
  PORT_DATA_1 data = {};
  DWORD cbNeeded = 0, dwStatus = 0;
  const BOOL bTold = XcvDataW(hPort, L"GetConfigInfo", reinterpret_cast<BYTE*>(&config), sizeof config,
                              reinterpret_cast<BYTE*>(&data), sizeof data, &cbNeeded, &dwStatus);
  ClosePrinter(hPort);
  return bTold && (data.dwProtocol == PROTOCOL_RAWTCP_TYPE || data.dwProtocol == PROTOCOL_LPR_TYPE);
}

void CheckQueue(Findings& findings, const PRINTER_INFO_2W& info, std::vector<QueueFacts>& queues) {
  const std::string strQueue = Narrow(info.pPrinterName);
  const std::string strPort = Narrow(info.pPortName);
  const DevData* pModel = nullptr;
  for (const DevModelEntry& entry : DevModelTable())
    if (info.pDriverName != nullptr && _wcsicmp(entry.pszModelName, info.pDriverName) == 0) pModel = entry.pDevData;
  const PortKind kind = PortKindOf(info.pPortName);
  const bool bDevicePort = kind == PortKind::Device || (kind == PortKind::Network && IsRawOrLprPort(info.pPortName));
  const Printer printer(strQueue, PRINTER_ACCESS_USE);
  DWORD dwReprint = 0;
  Dword(findings, printer, strQueue, kAutoReprintValue, false, dwReprint);
  QueueFacts facts;
  facts.strName = strQueue;
  if (pModel != nullptr && pModel->KeepsLogSettingFlags()) {
    DWORD dwType = 0;
    std::vector<BYTE> bytes;
    constexpr long kDays[] = {1, 3, 10, 30, 90};
    if (printer.Data(kLogSettingFlagsValue, dwType, bytes)) {
      if (bytes.size() != 6 || bytes[1] > 4) {
        findings.Warning("queue", strQueue + ": LogSettingFlags is not as the monitor reads it",
                         "set it with lmctl settings");
      } else {
        facts.bArchive = bytes[5] != 0;
        facts.nDays = kDays[bytes[1]];
      }
    }
  } else {
    DWORD dw = 0;
    facts.bArchive = Dword(findings, printer, strQueue, kJobSettingFlagsValue, true, dw) && dw != 0;
    if (Dword(findings, printer, strQueue, kJobValidDaysValue, false, dw)) facts.nDays = static_cast<LONG>(dw);
  }
  const std::string strRoot = printer.Text(kJobFilePathValue);
  findings.Ok(
      "queue",
      strQueue + ": port " + strPort + (bDevicePort ? " (device access)" : " (port monitor)") + ", driver " +
          Narrow(info.pDriverName) + (pModel != nullptr ? " known" : " not known") + ", AutoReprint " +
          (dwReprint != 0 ? "on" : "off") + ", archive " +
          (facts.bArchive && !strRoot.empty() ? strRoot + " for " + std::to_string(facts.nDays) + " days" : "off"));
  if (dwReprint != 0 && bDevicePort && pModel == nullptr)
    findings.Failure("queue",
                     strQueue + ": with AutoReprint and a driver that the monitor does not know nothing is printed",
                     "set AutoReprint=0 for it, or use the driver of a known model");
  const bool bRaw = info.pDatatype != nullptr && _wcsicmp(info.pDatatype, L"RAW") == 0;
  if (dwReprint != 0 && bRaw && (info.Attributes & PRINTER_ATTRIBUTE_SHARED) == 0)
    findings.Warning("queue",
                     strQueue + ": RAW jobs of a queue that is not shared are not confirmed, in spite of AutoReprint",
                     "share the queue, or print with another datatype");
  DWORD dwType = 0;
  std::vector<BYTE> guid;
  if (printer.Data(kUtilityGuidValue, dwType, guid) && guid.size() > 128)
    findings.Warning("queue",
                     strQueue + ": UtilityGUID has " + std::to_string(guid.size()) + " bytes and counts as absent",
                     "set one of at most 63 characters");
  if (facts.bArchive && !strRoot.empty()) CheckArchiveRoot(findings, strQueue, strRoot);
  if (facts.bArchive) queues.push_back(facts);
}

void CheckQueues(Findings& findings, const std::vector<std::wstring>& monitors) {
  DWORD dwCount = 0;
  const auto bytes = Enumerate<PRINTER_INFO_2W>(
      [](BYTE* p, DWORD cb, DWORD* pcb, DWORD* pn) {
        return EnumPrintersW(PRINTER_ENUM_LOCAL, nullptr, 2, p, cb, pcb, pn);
      },
      dwCount);
  const auto* pQueues = reinterpret_cast<const PRINTER_INFO_2W*>(bytes.data());
  std::vector<QueueFacts> archiving;
  unsigned nOurs = 0;
  for (DWORD n = 0; n < dwCount; ++n) try {
      const Printer printer(Narrow(pQueues[n].pPrinterName), PRINTER_ACCESS_USE);
      DWORD cb = 0;
      GetPrinterDriverW(printer.Handle(), nullptr, 3, nullptr, 0, &cb);
      std::vector<BYTE> driver(cb + sizeof(DRIVER_INFO_3W));
      if (!GetPrinterDriverW(printer.Handle(), nullptr, 3, driver.data(), static_cast<DWORD>(driver.size()), &cb))
        continue;
      if (!IsOneOf(monitors, reinterpret_cast<const DRIVER_INFO_3W*>(driver.data())->pMonitorName)) continue;
      ++nOurs;
      CheckQueue(findings, pQueues[n], archiving);
    } catch (const std::runtime_error& error) {  // one that cannot be opened; the others are looked at all the same
      findings.Failure("queue", error.what(), "look at the queue's rights");
    }
  if (nOurs == 0)
    findings.Warning("queue", "no queue's driver names the monitor", "name it in the driver's INF (LanguageMonitor)");
  for (const QueueFacts& facts : archiving)
    if (facts.nDays != archiving.front().nDays) {
      findings.Warning("archive",
                       archiving.front().strName + " and " + facts.strName +
                           " keep their archives for different days; " +
                           "the one that started a job last decides for both",
                       "set the same number of days for all queues");
      break;
    }
}

void CheckDeviceAccess(Findings& findings) {
  const DWORD dwState = Service(kSdkService, SERVICE_QUERY_STATUS).State();
  const fs::path library = SystemFolder() / kSdkLibrary;
  std::error_code error;
  const bool bLibrary = fs::exists(library, error);
  if (dwState == SERVICE_RUNNING && bLibrary) {
    findings.Ok("device", "the service Norvex_Srv runs and " + TextOfPath(library) + " is there");
  } else if (dwState == 0) {
    findings.Warning("device", "the service Norvex_Srv is not installed: every job goes through the port monitor",
                     "install the maker's device package, if jobs are to be confirmed");
  } else if (dwState != SERVICE_RUNNING) {
    findings.Warning("device", "the service Norvex_Srv does not run: every job goes through the port monitor",
                     "net start Norvex_Srv");
  } else {
    findings.Warning("device", TextOfPath(library) + " is missing: every job goes through the port monitor",
                     "install the maker's device package again");
  }
}

// A device that could not be unlocked today: on a port that is opened with each job nobody unlocks it before the next start
// of the spooler.
void CheckUnlocking(Findings& findings, const fs::path& logs) {
  SYSTEMTIME now = {};
  GetLocalTime(&now);
  char szName[16];
  std::snprintf(szName, sizeof szName, "%04u%02u%02u.log", now.wYear, now.wMonth, now.wDay);
  std::error_code error;
  if (!fs::exists(logs / szName, error)) return;
  LogReader reader({TextOfPath(logs / szName)});
  std::string strLast;
  reader.Read(
      [&](const LogReader::Line& line) {
        if (line.text.find("SDK_CLR_LOCK [e:") != std::string_view::npos) strLast = line.text;
      },
      true);
  if (!strLast.empty())
    findings.Warning("device", "a device could not be unlocked: " + strLast,
                     "if its next jobs are refused as busy: net stop spooler, net start spooler");
}

void CheckLog(Findings& findings) {
  const fs::path folder = DefaultLogFolder();
  std::error_code error;
  if (!fs::is_directory(folder, error)) {
    findings.Warning("log", "there is no " + TextOfPath(folder) + " yet", "it is made with the first line");
  } else {
    const HANDLE hFolder =
        CreateFileW(folder.c_str(), FILE_ADD_FILE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    const DWORD dwError = GetLastError();
    std::uint64_t ullBytes = 0;
    for (const auto& entry : fs::directory_iterator(folder, error))
      if (entry.is_regular_file(error)) ullBytes += entry.file_size(error);
    if (hFolder == INVALID_HANDLE_VALUE) {
      findings.Failure("log", TextOfPath(folder) + " cannot be written to: " + ErrorText(dwError),
                       "give Users full access to it");
    } else {
      CloseHandle(hFolder);
      findings.Ok("log",
                  TextOfPath(folder) + " can be written to and holds " + std::to_string(ullBytes / 1024) + " KB");
    }
    CheckUnlocking(findings, folder);
  }
  DWORD dwMask = 0;
  DWORD cb = sizeof dwMask;
  HKEY hKey = nullptr;
  LSTATUS lError = RegOpenKeyExW(HKEY_LOCAL_MACHINE, kLogKey, 0, KEY_QUERY_VALUE, &hKey);
  if (lError != ERROR_SUCCESS) lError = RegOpenKeyExW(HKEY_LOCAL_MACHINE, kLogKey32, 0, KEY_QUERY_VALUE, &hKey);
  if (lError == ERROR_SUCCESS) {
    if (RegQueryValueExW(hKey, kLogLevelValue, nullptr, nullptr, reinterpret_cast<BYTE*>(&dwMask), &cb) !=
        ERROR_SUCCESS)
      dwMask = 0;
    RegCloseKey(hKey);
  }
  constexpr DWORD kUseful = LOG_LEVEL_E | LOG_LEVEL_W | LOG_LEVEL_I;
  if ((dwMask & LOG_OFF) != 0 || (dwMask & kUseful) != kUseful) {
    findings.Warning("level", "the log does not have levels E, W and I: jobs cannot be explained",
                     "lmctl settings LogLevelPos=EWIDT");
  } else {
    findings.Ok("level", "levels E, W and I are logged");
  }
  ULARGE_INTEGER ullFree = {};
  const fs::path place = fs::is_directory(folder, error) ? folder : folder.root_path();
  if (GetDiskFreeSpaceExW(place.c_str(), &ullFree, nullptr, nullptr)) {
    const std::string strText = std::to_string(ullFree.QuadPart / 1'000'000) + " MB free for the log";
    if (ullFree.QuadPart < 200'000'000) {
      findings.Warning("disk", strText, "free space, or keep log and archive for fewer days");
    } else {
      findings.Ok("disk", strText);
    }
  }
  const HANDLE hMutex = OpenMutexW(SYNCHRONIZE, FALSE, kLogMutexName);
  const DWORD dwWait = hMutex != nullptr ? WaitForSingleObject(hMutex, 1000) : WAIT_OBJECT_0;
  if (dwWait == WAIT_TIMEOUT) {
    findings.Failure("mutex", "another program holds the log's mutex and does not give it back",
                     "end the program that hangs");
  } else {
    findings.Ok("mutex", "the log's mutex is free");
    if (hMutex != nullptr) ReleaseMutex(hMutex);
  }
  if (hMutex != nullptr) CloseHandle(hMutex);
}

}  // namespace

int Doctor(const Options& options) {
  Findings findings;
  const std::vector<std::wstring> monitors = MonitorNames();
  if (options.bBeforeUninstall) return BeforeUninstall(findings, monitors, options.bJson);
  CheckKindOfMachine(findings);
  CheckDll(findings);
  if (monitors.empty()) {
    findings.Failure("monitor", "the spooler does not know the monitor",
                     "install the package, or register the DLL as a monitor");
  } else {
    findings.Ok("monitor", "registered as " + Narrow(monitors.front().c_str()));
  }
  CheckSpooler(findings, monitors);
  CheckQueues(findings, monitors);
  CheckDeviceAccess(findings);
  CheckLog(findings);
  return findings.Print(options.bJson);
}

}  // namespace lmctl
