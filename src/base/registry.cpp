#include "base/registry.h"

UniqueKey OpenMachineKey(const wchar_t* pszKey, const wchar_t* pszFallbackKey, LSTATUS* plError) noexcept {
  HKEY hKey = nullptr;
  LSTATUS lError = RegOpenKeyExW(HKEY_LOCAL_MACHINE, pszKey, 0, KEY_QUERY_VALUE, &hKey);
  if (lError != ERROR_SUCCESS) lError = RegOpenKeyExW(HKEY_LOCAL_MACHINE, pszFallbackKey, 0, KEY_QUERY_VALUE, &hKey);
  if (plError != nullptr) *plError = lError;
  return UniqueKey(lError == ERROR_SUCCESS ? hKey : nullptr);
}

DWORD ReadDword(HKEY hKey, const wchar_t* pszValue, DWORD dwDefault) noexcept {
  DWORD dwValue = 0;
  DWORD cb = sizeof dwValue;
  const LSTATUS lError = RegQueryValueExW(hKey, pszValue, nullptr, nullptr, reinterpret_cast<BYTE*>(&dwValue), &cb);
  return lError == ERROR_SUCCESS ? dwValue : dwDefault;
}
