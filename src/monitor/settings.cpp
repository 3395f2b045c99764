#include "monitor/settings.h"

#include "base/registry.h"
#include "monitor/log_module.h"

BOOL IsDisableOpenAlwaysByLM() noexcept {
  constexpr wchar_t kKey[] = L"SOFTWARE\\Kelvane\\PrinterDriver";
  constexpr wchar_t kKey32[] = L"SOFTWARE\\Wow6432Node\\Kelvane\\PrinterDriver";
  LSTATUS lError = ERROR_SUCCESS;
  const UniqueKey key = OpenMachineKey(kKey, kKey32, &lError);
  if (!key) {
    LogW(L"RegOpenKeyEx[%s] not exist.[err:%d]", kKey32, lError);
    return FALSE;
  }
  if ((ReadDword(key.get(), L"OpenWithStartDoc", 0) & 1) == 0) return FALSE;
  LogD(L"Change settings. spooler status updated only when using SDK");
  return TRUE;
}

DWORD GetSettingFromPrinterData(IniPort* pIniPort) noexcept {
  const IniJob* pIniJob = pIniPort != nullptr ? pIniPort->pIniJob : nullptr;
  if (pIniJob == nullptr || pIniJob->hPrinter == nullptr) {
    LogE(L"Invalid address. pIniJob:[0x%x]", LogAddress(pIniJob));
    return ERROR_INVALID_DATA;
  }
  wchar_t szValue[] = L"AutoReprint";
  DWORD dwType = 0;
  DWORD dwAutoReprint = 0;
  DWORD cbNeeded = 0;
  const DWORD dwError = GetPrinterDataW(pIniJob->hPrinter, szValue, &dwType, reinterpret_cast<BYTE*>(&dwAutoReprint),
                                        sizeof dwAutoReprint, &cbNeeded);
  if (dwError != ERROR_SUCCESS) {
    LogE(L"Fail to GetPrinterData[value:%s] [GLE:%d]", szValue, GetLastError());
    return dwError;
  }
  if (dwAutoReprint != 0) pIniPort->dwPortFlags |= PORT_AUTO_REPRINT;
  return ERROR_SUCCESS;
}
