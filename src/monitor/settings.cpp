#include "monitor/settings.h"

#include "base/registry.h"
#include "base/setting_names.h"
#include "monitor/log_module.h"

BOOL IsDisableOpenAlwaysByLM() noexcept {
  LSTATUS lError = ERROR_SUCCESS;
  const UniqueKey key = OpenMachineKey(kDriverKey, kDriverKey32, &lError);
  if (!key) {
    LogW(L"RegOpenKeyEx[%s] not exist.[err:%d]", kDriverKey32, lError);
    return FALSE;
  }
  if ((ReadDword(key.get(), kOpenWithStartDocValue, 0) & 1) == 0) return FALSE;
  LogD(L"Change settings. spooler status updated only when using SDK");
  return TRUE;
}

DWORD GetSettingFromPrinterData(IniPort* pIniPort) noexcept {
  const IniJob* pIniJob = pIniPort != nullptr ? pIniPort->pIniJob : nullptr;
  if (pIniJob == nullptr || pIniJob->hPrinter == nullptr) {
    LogE(L"Invalid address. pIniJob:[0x%x]", LogAddress(pIniJob));
    return ERROR_INVALID_DATA;
  }
  DWORD dwType = 0;
  DWORD dwAutoReprint = 0;
  DWORD cbNeeded = 0;
  const DWORD dwError = GetPrinterDataW(pIniJob->hPrinter, const_cast<wchar_t*>(kAutoReprintValue), &dwType,
                                        reinterpret_cast<BYTE*>(&dwAutoReprint), sizeof dwAutoReprint, &cbNeeded);
  if (dwError != ERROR_SUCCESS) {
    LogE(L"Fail to GetPrinterData[value:%s] [GLE:%d]", kAutoReprintValue, GetLastError());
    return dwError;
  }
  if (dwAutoReprint != 0) pIniPort->dwPortFlags |= PORT_AUTO_REPRINT;
  return ERROR_SUCCESS;
}
