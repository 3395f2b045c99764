#include "package/spooler_service.h"

#include <windows.h>

#include <algorithm>
#include <vector>

#include "tools/common/service.h"

namespace setup {
namespace {

using lmctl::Service;

constexpr wchar_t kSpooler[] = L"Spooler";
// The services to start, in their order; REG_MULTI_SZ. Older versions left a number.
constexpr wchar_t kStoppedValue[] = L"SpoolerRan";

constexpr DWORD kStopMs = 300'000;
constexpr DWORD kStartMs = 60'000;
constexpr DWORD kPollMs = 200;

bool IsStopped(DWORD dwState) { return dwState == SERVICE_STOPPED || dwState == 0; }  // 0: there is none

// Waits while it is in this state. Returns the state that it has then.
DWORD StateBehind(const Service& service, DWORD dwPending, DWORD dwMs) {
  DWORD dwState = service.State();
  for (const DWORD dwStart = GetTickCount(); dwState == dwPending && GetTickCount() - dwStart < dwMs;
       dwState = service.State())
    Sleep(kPollMs);
  return dwState;
}

bool Contains(const std::vector<std::wstring>& names, const std::wstring& name) {
  return std::any_of(names.begin(), names.end(),
                     [&](const std::wstring& other) { return _wcsicmp(other.c_str(), name.c_str()) == 0; });
}

std::vector<std::wstring> TextsOf(const wchar_t* psz) {
  std::vector<std::wstring> texts;
  for (; psz != nullptr && *psz != 0; psz += texts.back().size() + 1) texts.emplace_back(psz);
  return texts;
}

std::vector<std::wstring> RunningServices() {
  std::vector<std::wstring> names;
  const SC_HANDLE hManager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ENUMERATE_SERVICE);
  if (hManager == nullptr) return names;
  DWORD cb = 0, dwCount = 0;
  const auto list = [&](std::vector<BYTE>& bytes) {
    DWORD dwResume = 0;
    return EnumServicesStatusExW(hManager, SC_ENUM_PROCESS_INFO, SERVICE_WIN32, SERVICE_ACTIVE, bytes.data(),
                                 static_cast<DWORD>(bytes.size()), &cb, &dwCount, &dwResume, nullptr) != FALSE;
  };
  std::vector<BYTE> bytes;
  bool bListed = list(bytes);
  for (int nTry = 0; !bListed && GetLastError() == ERROR_MORE_DATA && nTry < 5; ++nTry) {  // others start meanwhile
    bytes.resize(bytes.size() + cb + 4096);
    bListed = list(bytes);
  }
  const auto* pServices = reinterpret_cast<const ENUM_SERVICE_STATUS_PROCESSW*>(bytes.data());
  for (DWORD n = 0; bListed && n < dwCount; ++n) names.emplace_back(pServices[n].lpServiceName);
  CloseServiceHandle(hManager);
  return names;
}

// Texts of a value below HKEY_LOCAL_MACHINE.
std::vector<std::wstring> MachineTexts(const std::wstring& key, const wchar_t* pszValue) {
  DWORD cb = 0;
  if (RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), pszValue, RRF_RT_REG_MULTI_SZ, nullptr, nullptr, &cb) !=
      ERROR_SUCCESS)
    return {};
  std::vector<wchar_t> text(cb / sizeof(wchar_t) + 2);
  if (RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), pszValue, RRF_RT_REG_MULTI_SZ, nullptr, text.data(), &cb) !=
      ERROR_SUCCESS)
    return {};
  return TextsOf(text.data());
}

// The services that a service is said to need.
std::vector<std::wstring> NeededBy(const std::wstring& name) {
  return MachineTexts(L"SYSTEM\\CurrentControlSet\\Services\\" + name, L"DependOnService");
}

// A running service behind all running ones that need it, in the order in which they can be stopped.
void AddWithDependants(const std::wstring& name, const std::vector<std::wstring>& running,
                       std::vector<std::wstring>& order) {
  for (const std::wstring& other : running)
    if (!Contains(order, other) && _wcsicmp(other.c_str(), name.c_str()) != 0 && Contains(NeededBy(other), name))
      AddWithDependants(other, running, order);
  if (!Contains(order, name)) order.push_back(name);
}

std::vector<std::wstring> Noted() {
  const bool bNoted =
      RegGetValueW(HKEY_LOCAL_MACHINE, kKey, kStoppedValue, RRF_RT_ANY, nullptr, nullptr, nullptr) == ERROR_SUCCESS;
  const std::vector<std::wstring> names = MachineTexts(kKey, kStoppedValue);
  return bNoted && names.empty() ? std::vector<std::wstring>{kSpooler} : names;
}

void Note(const std::vector<std::wstring>& names) {
  std::wstring text;
  for (const std::wstring& name : names) text.append(name).push_back(0);
  text.push_back(0);
  RegSetKeyValueW(HKEY_LOCAL_MACHINE, kKey, kStoppedValue, REG_MULTI_SZ, text.c_str(),
                  static_cast<DWORD>(text.size() * sizeof(wchar_t)));
}

// Returns whether it has stopped.
bool Stop(const std::wstring& name) {
  const Service service(name, SERVICE_QUERY_STATUS | SERVICE_STOP);
  for (const DWORD dwStart = GetTickCount(); GetTickCount() - dwStart < kStopMs; Sleep(kPollMs)) {
    SERVICE_STATUS status = {};
    const DWORD dwState = StateBehind(service, SERVICE_STOP_PENDING, kStopMs);
    if (IsStopped(dwState)) return true;
    // Refused while it starts, and while a service that needs it was started meanwhile.
    if (dwState != SERVICE_STOP_PENDING && !ControlService(service.Handle(), SERVICE_CONTROL_STOP, &status) &&
        GetLastError() == ERROR_DEPENDENT_SERVICES_RUNNING)
      return false;
  }
  return IsStopped(service.State());
}

bool Start(const std::wstring& name) {
  const Service service(name, SERVICE_QUERY_STATUS | SERVICE_START);
  if (StateBehind(service, SERVICE_STOP_PENDING, kStopMs) == SERVICE_STOPPED)
    StartServiceW(service.Handle(), 0, nullptr);
  return StateBehind(service, SERVICE_START_PENDING, kStartMs) == SERVICE_RUNNING;
}

}  // namespace

bool SpoolerIsDisabled() {
  const Service spooler(kSpooler, SERVICE_QUERY_CONFIG);
  DWORD cb = 0;
  if (spooler.Handle() != nullptr) QueryServiceConfigW(spooler.Handle(), nullptr, 0, &cb);
  std::vector<BYTE> bytes(cb + sizeof(QUERY_SERVICE_CONFIGW));
  auto* pConfig = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(bytes.data());
  return spooler.Handle() != nullptr &&
         QueryServiceConfigW(spooler.Handle(), pConfig, static_cast<DWORD>(bytes.size()), &cb) &&
         pConfig->dwStartType == SERVICE_DISABLED;
}

std::wstring StopSpooler() {
  if (SpoolerIsDisabled()) return {};
  std::wstring refused;
  const DWORD dwStart = GetTickCount();
  // Again where a service that needs it was started meanwhile.
  for (int nTry = 0; nTry < 3 && GetTickCount() - dwStart < kStopMs; ++nTry) {
    if (IsStopped(StateBehind(Service(kSpooler, SERVICE_QUERY_STATUS), SERVICE_STOP_PENDING, kStopMs))) return {};
    std::vector<std::wstring> toStop;
    AddWithDependants(kSpooler, RunningServices(), toStop);
    std::vector<std::wstring> toStart = Noted();
    for (auto it = toStop.rbegin(); it != toStop.rend(); ++it)
      if (!Contains(toStart, *it)) toStart.push_back(*it);
    Note(toStart);
    const auto it = std::find_if_not(toStop.begin(), toStop.end(), Stop);
    if (it == toStop.end()) return {};
    refused = *it;
  }
  return L"The service " + refused + L" did not stop.";
}

std::wstring StartSpooler() {
  if (Noted().empty() && !IsStopped(Service(kSpooler, SERVICE_QUERY_STATUS).State())) {
    const std::wstring refused = StopSpooler();
    if (!refused.empty()) return refused;
  }
  const std::vector<std::wstring> noted = Noted();
  std::wstring refused;
  for (const std::wstring& name : noted)
    if (!Start(name)) refused += (refused.empty() ? L"" : L", ") + name;
  const bool bRuns = Service(kSpooler, SERVICE_QUERY_STATUS).State() == SERVICE_RUNNING;
  if (bRuns || noted.empty() || SpoolerIsDisabled()) RegDeleteKeyValueW(HKEY_LOCAL_MACHINE, kKey, kStoppedValue);
  return refused.empty() ? L"" : L"These services did not start: " + refused + L".";
}

}  // namespace setup
