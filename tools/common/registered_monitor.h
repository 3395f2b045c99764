// What the spooler knows of the monitor, read from its registry: it can be asked while the spooler is stopped.
#pragma once

#include <string>
#include <vector>

namespace lmctl {

inline constexpr wchar_t kMonitorDll[] = L"kelvane_lm.dll";
inline constexpr wchar_t kMonitorsKey[] = L"SYSTEM\\CurrentControlSet\\Control\\Print\\Monitors";

// A text below HKEY_LOCAL_MACHINE, its variables as they stand; empty when there is none.
std::wstring MachineText(const std::wstring& key, const wchar_t* pszValue);

// The names under which the DLL is registered as a monitor.
std::vector<std::wstring> MonitorNames();

// Whether one of the names is this one, which may be null; case does not count, as in the registry.
bool IsOneOf(const std::vector<std::wstring>& names, const wchar_t* pszName);

// The installed drivers, of all environments, that name one of these monitors.
std::vector<std::wstring> DriversNaming(const std::vector<std::wstring>& monitors);

}  // namespace lmctl
