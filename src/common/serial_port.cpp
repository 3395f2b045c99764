#include "common/serial_port.h"

#include <cstring>
#include <cwchar>

#include "base/memory.h"
#include "base/owners.h"
#include "common/log_module.h"

namespace {

constexpr DWORD kMaxValues = 100;
constexpr wchar_t kPhysicalDevice[] = L"\\Device\\Serial";

}  // namespace

BOOL IsVirtualComPort(const wchar_t* pszPort) noexcept {
  const HeapPtr<wchar_t> name(DupNonEmptyString(pszPort));
  if (!name) return FALSE;
  wchar_t* pszLast = name.get() + wcslen(name.get()) - 1;
  if (*pszLast == L':') *pszLast = 0;

  HKEY hKey = nullptr;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"HARDWARE\\DEVICEMAP\\SERIALCOMM", 0, KEY_QUERY_VALUE, &hKey) != ERROR_SUCCESS)
    return FALSE;
  const UniqueKey key(hKey);

  BOOL bVirtual = FALSE;
  for (DWORD dwIndex = 0; dwIndex < kMaxValues; ++dwIndex) {
    wchar_t wszDevice[256] = {};
    wchar_t wszPort[256 / sizeof(wchar_t) + 1] = {};  // the value's 256 bytes and a terminator of our own
    DWORD cchDevice = 256;
    DWORD cbPort = 256;
    const LSTATUS lError = RegEnumValueW(hKey, dwIndex, wszDevice, &cchDevice, nullptr, nullptr,
                                         reinterpret_cast<BYTE*>(wszPort), &cbPort);
    if (lError == ERROR_NO_MORE_ITEMS) break;
    if (lError != ERROR_SUCCESS) {
      LogE(L"[%s] RegEnumValue [err:%d]", pszPort, lError);
      bVirtual = TRUE;
      continue;
    }
    if (_wcsicmp(wszPort, name.get()) != 0) continue;
    if (_wcsnicmp(wszDevice, kPhysicalDevice, wcslen(kPhysicalDevice)) == 0) {
      LogD(L"[%s] Detected physical serial port", pszPort);
    } else {
      LogD(L"[%s] Detected virtual port", pszPort);
      bVirtual = TRUE;
    }
  }
  return bVirtual;
}
