#include "common/printer_info.h"

#include <winspool.h>

#include <algorithm>

#include "base/memory.h"
#include "base/text.h"
#include "common/log_module.h"

namespace {

// Bytes that the queue's level-2 information takes; 0 when the spooler does not tell.
DWORD InfoSize(HANDLE hPrinter) noexcept {
  DWORD cbNeeded = 0;
  GetPrinterW(hPrinter, 2, nullptr, 0, &cbNeeded);
  return cbNeeded;
}

}  // namespace

BOOL Get_Driver_Name(HANDLE hPrinter, std::span<wchar_t> name) noexcept {
  DWORD cb = InfoSize(hPrinter);
  if (cb == 0) {
    LogE(L"GetPrinter size is 0.");
    return FALSE;
  }
  const auto info = AllocBlock<PRINTER_INFO_2W>(cb);
  if (!info) return FALSE;
  if (!GetPrinterW(hPrinter, 2, reinterpret_cast<BYTE*>(info.get()), cb, &cb)) {
    LogE(L"GetPrinter is Failed.[err:%d]", GetLastError());
    return FALSE;
  }
  CopyIfFits(name, info->pDriverName);
  return TRUE;
}

BOOL Get_Share_Name(HANDLE hPrinter, wchar_t* pszShare) noexcept {
  if (hPrinter == nullptr || pszShare == nullptr) {
    AssertHere();
    LogE(L"Invalid parameter. [handle:0x%x][name:%s]", LogAddress(hPrinter), pszShare != nullptr ? pszShare : L"");
    return FALSE;
  }
  const std::span<wchar_t> share(pszShare, kShareNameChars);
  std::fill(share.begin(), share.end(), L'\0');
  DWORD cb = InfoSize(hPrinter);
  if (cb == 0) {
    LogE(L"GetPrinter size is 0.");
    return FALSE;
  }
  const auto info = AllocBlock<PRINTER_INFO_2W>(cb);
  if (!info) return FALSE;
  if (!GetPrinterW(hPrinter, 2, reinterpret_cast<BYTE*>(info.get()), cb, &cb)) {
    LogE(L"GetPrinter returns 0.");
    return FALSE;
  }
  CopyIfFits(share, info->pShareName);
  return TRUE;
}
