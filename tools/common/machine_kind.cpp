#include "tools/common/machine_kind.h"

#include <windows.h>

namespace lmctl {

bool IsArm64() {
  // Absent before Windows 10, which has no ARM64.
  using IsWow64Process2Fn = BOOL(WINAPI*)(HANDLE, USHORT*, USHORT*);
  const auto pfnIs = reinterpret_cast<IsWow64Process2Fn>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "IsWow64Process2")));
  constexpr USHORT kArm64 = 0xAA64;  // IMAGE_FILE_MACHINE_ARM64
  USHORT wProcess = 0, wNative = 0;
  return pfnIs != nullptr && pfnIs(GetCurrentProcess(), &wProcess, &wNative) && wNative == kArm64;
}

bool IsProtectedPrintMode() {
  DWORD dwState = 0;
  DWORD cb = sizeof dwState;
  return RegGetValueW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Policies\\Microsoft\\Windows NT\\Printers\\WPP",
                      L"WindowsProtectedPrintGroupPolicyState", RRF_RT_REG_DWORD, nullptr, &dwState,
                      &cb) == ERROR_SUCCESS &&
         dwState == 1;
}

}  // namespace lmctl
