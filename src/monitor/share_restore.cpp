#include "monitor/share_restore.h"

#include <winspool.h>

#include "base/memory.h"
#include "base/owners.h"
#include "monitor/log_module.h"

DWORD RestoreSharePrinterFromLM(const wchar_t* pszPrinterName, const wchar_t* pszShareName) noexcept {
  if (pszPrinterName == nullptr || *pszPrinterName == 0 || pszShareName == nullptr || *pszShareName == 0) {
    AssertHere();
    return ERROR_INVALID_PARAMETER;
  }
  PRINTER_DEFAULTSW defaults = {nullptr, nullptr, PRINTER_ALL_ACCESS};
  HANDLE hPrinter = nullptr;
  if (!OpenPrinterW(const_cast<wchar_t*>(pszPrinterName), &hPrinter, &defaults)) {
    const DWORD dwError = GetLastError();
    LogE(L"Fail to OpenPrinter [GLE:%d]", dwError);
    return dwError;
  }
  const UniquePrinter printer(hPrinter);
  Sleep(500);

  DWORD cb = 0;
  GetPrinterW(hPrinter, 2, nullptr, 0, &cb);
  const auto info = AllocBlock<PRINTER_INFO_2W>(cb);
  if (!info) {
    const DWORD dwError = GetLastError();
    AssertHere();
    LogE(L"Fail to memory allocate.[size:%d][GLE:%d]", cb, dwError);
    return dwError;
  }
  if (!GetPrinterW(hPrinter, 2, reinterpret_cast<BYTE*>(info.get()), cb, &cb)) {
    const DWORD dwError = GetLastError();
    LogE(L"Fail to GetPrinter [GLE:%d]", dwError);
    return dwError;
  }
  info->Attributes |= PRINTER_ATTRIBUTE_SHARED;
  info->pShareName = const_cast<wchar_t*>(pszShareName);
  if (!SetPrinterW(hPrinter, 2, reinterpret_cast<BYTE*>(info.get()), 0)) {
    const DWORD dwError = GetLastError();
    LogE(L"Fail to SetPrinter [GLE:%d]", dwError);
    return dwError;
  }
  LogD(L"SetPrinter [share:%s][Attr:0x%x]", pszShareName, info->Attributes);
  return ERROR_SUCCESS;
}
