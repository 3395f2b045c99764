// What the installation does beyond the installer's own tables. The library lies in the package; the installer loads it and
// calls each routine by its name, in the order that kelvane_lm.wxs gives. The first two run before anything is changed and
// may refuse; the others run with the system's rights while it is changed.
#include <windows.h>

#include <msi.h>
#include <msiquery.h>

#include <optional>
#include <string>
#include <vector>

#include "base/setting_names.h"
#include "log/level.h"
#include "package/kept_state.h"
#include "tools/lmctl/registered_monitor.h"

namespace {

constexpr wchar_t kDefaultMonitorName[] = L"Kelvane Language Monitor";
constexpr wchar_t kSpooler[] = L"Spooler";

// While the spooler is stopped by the installer, a mark that it ran. An installation that was killed leaves the mark, so the
// next one starts the spooler again.
constexpr wchar_t kSpoolerRanValue[] = L"SpoolerRan";

std::wstring Property(MSIHANDLE hInstall, const wchar_t* pszName) {
  DWORD cch = 0;
  wchar_t szNone[1] = {};
  MsiGetPropertyW(hInstall, pszName, szNone, &cch);
  std::wstring value(cch, L'\0');
  ++cch;
  if (MsiGetPropertyW(hInstall, pszName, value.data(), &cch) != ERROR_SUCCESS) return {};
  return value;
}

// Ends the installation with a sentence, which a silent one has in its log.
UINT Refuse(MSIHANDLE hInstall, const std::wstring& sentence) {
  const MSIHANDLE hRecord = MsiCreateRecord(0);
  MsiRecordSetStringW(hRecord, 0, sentence.c_str());
  MsiProcessMessage(hInstall, INSTALLMESSAGE_ERROR, hRecord);
  MsiCloseHandle(hRecord);
  return ERROR_INSTALL_FAILURE;
}

std::wstring RegisteredName() { return lmctl::MachineText(setup::kKey, setup::kMonitorNameValue); }

// A number, decimal or 0x with hexadecimal digits, or letters of the log's levels.
std::optional<DWORD> Number(const std::wstring& text) {
  wchar_t* pEnd = nullptr;
  const bool bHex = text.starts_with(L"0x") || text.starts_with(L"0X");
  if (text.empty() || text.size() > 10 || text[0] < L'0' || text[0] > L'9') return std::nullopt;
  const unsigned long long ull = std::wcstoull(text.c_str(), &pEnd, bHex ? 16 : 10);
  if (*pEnd != 0 || ull > MAXDWORD) return std::nullopt;
  return static_cast<DWORD>(ull);
}

std::optional<DWORD> Levels(const std::wstring& text) {
  if (const auto dwMask = Number(text)) return dwMask;
  if (_wcsicmp(text.c_str(), L"off") == 0) return LOG_OFF;
  DWORD dwMask = 0;
  for (const wchar_t c : text) {
    if (LogLevelOf(c) == 0) return std::nullopt;
    dwMask |= LogLevelOf(c);
  }
  return dwMask;
}

// Sets the property that the registry table writes: the value that was given, or the one that the machine has, so that a
// repair or an upgrade changes nothing. False when what was given is none.
bool SetMachineSetting(MSIHANDLE hInstall, const wchar_t* pszProperty, const wchar_t* pszTarget,
                       const wchar_t* pszValue, std::optional<DWORD> (*pfnRead)(const std::wstring&)) {
  const std::wstring given = Property(hInstall, pszProperty);
  DWORD dwValue = 0;
  DWORD cb = sizeof dwValue;
  if (!given.empty()) {
    const auto dwGiven = pfnRead(given);
    if (!dwGiven) return false;
    dwValue = *dwGiven;
  } else if (RegGetValueW(HKEY_LOCAL_MACHINE, kLogKey, pszValue, RRF_RT_REG_DWORD, nullptr, &dwValue, &cb) !=
             ERROR_SUCCESS) {
    return true;
  }
  MsiSetPropertyW(hInstall, pszTarget, (L"#" + std::to_wstring(static_cast<int>(dwValue))).c_str());
  return true;
}

bool SpoolerRan() {
  return RegGetValueW(HKEY_LOCAL_MACHINE, setup::kKey, kSpoolerRanValue, RRF_RT_REG_DWORD, nullptr, nullptr, nullptr) ==
         ERROR_SUCCESS;
}

class SpoolerService {
 public:
  SpoolerService()
      : m_hManager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT)),
        m_hService(m_hManager == nullptr ? nullptr
                                         : OpenServiceW(m_hManager, kSpooler,
                                                        SERVICE_QUERY_STATUS | SERVICE_QUERY_CONFIG | SERVICE_START)) {}
  ~SpoolerService() {
    if (m_hService != nullptr) CloseServiceHandle(m_hService);
    if (m_hManager != nullptr) CloseServiceHandle(m_hManager);
  }
  SpoolerService(const SpoolerService&) = delete;
  SpoolerService& operator=(const SpoolerService&) = delete;

  bool Runs() const {
    SERVICE_STATUS status = {};
    return QueryServiceStatus(m_hService, &status) && status.dwCurrentState != SERVICE_STOPPED;
  }
  // One that is disabled could not be started again.
  bool CanStart() const {
    DWORD cb = 0;
    QueryServiceConfigW(m_hService, nullptr, 0, &cb);
    std::vector<BYTE> bytes(cb);
    auto* pConfig = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(bytes.data());
    return QueryServiceConfigW(m_hService, pConfig, cb, &cb) && pConfig->dwStartType != SERVICE_DISABLED;
  }
  void Start() const { StartServiceW(m_hService, 0, nullptr); }

 private:
  SC_HANDLE m_hManager;
  SC_HANDLE m_hService;
};

// The end of a setup, whether it succeeded or not.
void LeaveSpoolerAsItWas() {
  const SpoolerService spooler;
  if (SpoolerRan() && !spooler.Runs()) spooler.Start();
  RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, setup::kKey, kSpoolerRanValue);
  if (RegisteredName().empty()) RegDeleteKeyW(HKEY_LOCAL_MACHINE, setup::kKey);
}

}  // namespace

// Settles what the tables need: MONITORNAME, the machine's settings, whether the spooler is to be stopped and started.
extern "C" UINT WINAPI PrepareSetup(MSIHANDLE hInstall) {
  if (!Property(hInstall, L"NEWERVERSION").empty())
    return Refuse(hInstall, L"A newer version is installed. Uninstall it first to go back to this one.");
  const std::wstring registered = RegisteredName();
  std::wstring name = Property(hInstall, L"MONITORNAME");
  if (name.empty()) {
    const std::vector<std::wstring> byHand = lmctl::MonitorNames();
    name = !registered.empty() ? registered : !byHand.empty() ? byHand.front() : kDefaultMonitorName;
  } else if (!registered.empty() && _wcsicmp(name.c_str(), registered.c_str()) != 0) {
    return Refuse(hInstall, L"The monitor is registered as \"" + registered +
                                L"\". To give it another name, uninstall it first.");
  }
  if (name.size() > 255 || name.find(L'\\') != std::wstring::npos)
    return Refuse(hInstall, L"MONITORNAME must be a name of at most 255 characters without a backslash.");
  MsiSetPropertyW(hInstall, L"MONITORNAME", name.c_str());

  if (!SetMachineSetting(hInstall, L"LOGLEVEL", L"LogLevelData", kLogLevelValue, Levels))
    return Refuse(hInstall, L"LOGLEVEL must be letters of EWIDTV, a number, or off.");
  if (!SetMachineSetting(hInstall, L"LOGLIFEDAYS", L"LogLifeDaysData", kLogLifeDaysValue, Number))
    return Refuse(hInstall, L"LOGLIFEDAYS must be a number of days.");

  const SpoolerService spooler;
  if (spooler.CanStart() && (SpoolerRan() || spooler.Runs())) MsiSetPropertyW(hInstall, L"SpoolerRuns", L"1");
  return ERROR_SUCCESS;
}

// A driver whose monitor is gone prints no more.
extern "C" UINT WINAPI RefuseWhileInUse(MSIHANDLE hInstall) {
  std::wstring list;
  for (const std::wstring& driver : lmctl::DriversNaming({Property(hInstall, L"MONITORNAME")}))
    list += (list.empty() ? L"" : L", ") + driver;
  if (list.empty()) return ERROR_SUCCESS;
  return Refuse(hInstall,
                L"These printer drivers still name the monitor: " + list +
                    L". Change their queues to another driver and delete them first, or uninstall with FORCE=1.");
}

extern "C" UINT WINAPI MarkSpoolerRan(MSIHANDLE) {
  const DWORD dwRan = 1;
  RegSetKeyValueW(HKEY_LOCAL_MACHINE, setup::kKey, kSpoolerRanValue, REG_DWORD, &dwRan, sizeof dwRan);
  return ERROR_SUCCESS;
}

// Before anything is changed.
extern "C" UINT WINAPI BeginSetup(MSIHANDLE) {
  setup::KeepState();
  return ERROR_SUCCESS;
}

// After the spooler was started.
extern "C" UINT WINAPI EndSetup(MSIHANDLE) {
  setup::DropKeptState();
  LeaveSpoolerAsItWas();
  return ERROR_SUCCESS;
}

// When the installation failed, behind what the installer itself takes back.
extern "C" UINT WINAPI TakeBackSetup(MSIHANDLE) {
  setup::RestoreState();
  LeaveSpoolerAsItWas();
  return ERROR_SUCCESS;
}
