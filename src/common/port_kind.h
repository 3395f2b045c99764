// What a port's name alone tells of its kind: could the device-access library serve it? Pure; the administrator's tool judges
// ports by it as well.
#pragma once

#include <cwchar>

enum class PortKind {
  Other,   // a file, a shared printer, a port of Windows' own
  Device,  // COM and USB ports
  Network  // perhaps: the port monitor that owns it is asked
};

// Ports that no network printer has, by their whole names.
inline bool IsPortOfWindows(const wchar_t* pszPort) noexcept {
  for (const wchar_t* pszOther : {L"SHRFAX:", L"FILE:", L"XPSPort:"})
    if (_wcsicmp(pszPort, pszOther) == 0) return true;
  return false;
}

inline PortKind PortKindOf(const wchar_t* pszPort) noexcept {
  const auto begins = [pszPort](const wchar_t* pszStart) {
    return _wcsnicmp(pszPort, pszStart, wcslen(pszStart)) == 0;
  };
  if (pszPort == nullptr || *pszPort == 0 || begins(L"FILE") || begins(L"\\\\")) return PortKind::Other;
  if (begins(L"USB0") || begins(L"COM")) return PortKind::Device;
  return IsPortOfWindows(pszPort) ? PortKind::Other : PortKind::Network;
}
