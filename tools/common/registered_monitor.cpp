#include "tools/common/registered_monitor.h"

#include <windows.h>

#include <algorithm>

namespace lmctl {
namespace {

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

}  // namespace

std::wstring MachineText(const std::wstring& key, const wchar_t* pszValue) {
  constexpr DWORD dwFlags = RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND;
  DWORD cb = 0;
  if (RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), pszValue, dwFlags, nullptr, nullptr, &cb) != ERROR_SUCCESS)
    return {};
  std::wstring text(cb / sizeof(wchar_t), L'\0');
  if (RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), pszValue, dwFlags, nullptr, text.data(), &cb) != ERROR_SUCCESS)
    return {};
  return text.c_str();
}

std::vector<std::wstring> MonitorNames() {
  std::vector<std::wstring> names;
  for (const SubKey& monitor : SubKeys(kMonitorsKey)) {
    const std::wstring dll = MachineText(monitor.path, L"Driver");
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
        if (IsOneOf(monitors, MachineText(driver.path, L"Monitor").c_str())) drivers.push_back(driver.name);
  return drivers;
}

}  // namespace lmctl
