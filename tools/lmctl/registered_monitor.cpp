#include "tools/lmctl/registered_monitor.h"

#include <windows.h>

#include <algorithm>

namespace lmctl {
namespace {

constexpr wchar_t kMonitorsKey[] = L"SYSTEM\\CurrentControlSet\\Control\\Print\\Monitors";
constexpr wchar_t kEnvironmentsKey[] = L"SYSTEM\\CurrentControlSet\\Control\\Print\\Environments";

// The paths of the keys below one, with their names; none when it cannot be read.
struct SubKey {
  std::wstring path, name;
};
std::vector<SubKey> SubKeys(const std::wstring& path) {
  std::vector<SubKey> keys;
  HKEY hKey = nullptr;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, &hKey) != ERROR_SUCCESS) return keys;
  wchar_t wszName[256];
  DWORD cch = 256;
  for (DWORD n = 0; RegEnumKeyExW(hKey, n, wszName, &cch, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS; ++n) {
    keys.push_back({path + L"\\" + wszName, wszName});
    cch = 256;
  }
  RegCloseKey(hKey);
  return keys;
}

std::wstring TextValue(const std::wstring& path, const wchar_t* pszValue) {
  wchar_t wszText[512] = {};
  DWORD cb = sizeof wszText;
  return RegGetValueW(HKEY_LOCAL_MACHINE, path.c_str(), pszValue, RRF_RT_REG_SZ, nullptr, wszText, &cb) == ERROR_SUCCESS
             ? wszText
             : std::wstring();
}

}  // namespace

std::vector<std::wstring> MonitorNames() {
  std::vector<std::wstring> names;
  for (const SubKey& monitor : SubKeys(kMonitorsKey)) {
    const std::wstring dll = TextValue(monitor.path, L"Driver");
    if (_wcsicmp(dll.c_str() + dll.find_last_of(L"\\/:") + 1, kMonitorDll) == 0) names.push_back(monitor.name);
  }
  return names;
}

bool IsOneOf(const std::vector<std::wstring>& names, const wchar_t* pszName) {
  return pszName != nullptr && std::any_of(names.begin(), names.end(), [&](const std::wstring& name) {
           return _wcsicmp(name.c_str(), pszName) == 0;
         });
}

std::vector<std::wstring> DriversNaming(const std::vector<std::wstring>& monitors) {
  std::vector<std::wstring> drivers;
  for (const SubKey& environment : SubKeys(kEnvironmentsKey))
    for (const SubKey& version : SubKeys(environment.path + L"\\Drivers"))
      for (const SubKey& driver : SubKeys(version.path))
        if (IsOneOf(monitors, TextValue(driver.path, L"Monitor").c_str())) drivers.push_back(driver.name);
  return drivers;
}

}  // namespace lmctl
