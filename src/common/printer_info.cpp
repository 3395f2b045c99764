#include "common/printer_info.h"

#include <winspool.h>

#include <algorithm>

#include "base/memory.h"
#include "base/text.h"
#include "common/log_module.h"

namespace {

enum class Query { Done, NoSize, NoMemory, Failed };

// The queue's level-2 information. Failed: with the last-error code of the call.
Query QueryInfo(HANDLE hPrinter, HeapPtr<PRINTER_INFO_2W>& info) noexcept {
  DWORD cb = 0;
  GetPrinterW(hPrinter, 2, nullptr, 0, &cb);
  if (cb == 0) return Query::NoSize;
  info = AllocBlock<PRINTER_INFO_2W>(cb);
  if (!info) return Query::NoMemory;
  return GetPrinterW(hPrinter, 2, reinterpret_cast<BYTE*>(info.get()), cb, &cb) ? Query::Done : Query::Failed;
}

}  // namespace

BOOL Get_Driver_Name(HANDLE hPrinter, std::span<wchar_t> name) noexcept {
  HeapPtr<PRINTER_INFO_2W> info;
  const Query query = QueryInfo(hPrinter, info);
  if (query == Query::NoSize) LogE(L"GetPrinter size is 0.");
  if (query == Query::Failed) LogE(L"GetPrinter is Failed.[err:%d]", GetLastError());
  if (query != Query::Done) return FALSE;
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
  HeapPtr<PRINTER_INFO_2W> info;
  const Query query = QueryInfo(hPrinter, info);
  if (query == Query::NoSize) LogE(L"GetPrinter size is 0.");
  if (query == Query::Failed) LogE(L"GetPrinter returns 0.");
  if (query != Query::Done) return FALSE;
  CopyIfFits(share, info->pShareName);
  return TRUE;
}
