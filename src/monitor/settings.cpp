#include "monitor/settings.h"

#include "base/registry.h"
#include "base/setting_names.h"
#include "monitor/log_module.h"

namespace {

// The printer data of a queue that switch something on for its port: a value that is not zero sets the flag.
struct QueueSwitch {
  const wchar_t* pszValue;
  DWORD dwPortFlag;
};
constexpr QueueSwitch kQueueSwitches[] = {{kAutoReprintValue, PORT_AUTO_REPRINT}};

// Returns the spooler's code.
DWORD ReadSwitch(const QueueSwitch& setting, IniPort& port) noexcept {
  DWORD dwType = 0;
  DWORD dwValue = 0;
  DWORD cbNeeded = 0;
  const DWORD dwError = GetPrinterDataW(port.pIniJob->hPrinter, const_cast<wchar_t*>(setting.pszValue), &dwType,
                                        reinterpret_cast<BYTE*>(&dwValue), sizeof dwValue, &cbNeeded);
  if (dwError != ERROR_SUCCESS) {
    LogE(L"Fail to GetPrinterData[value:%s] [GLE:%d]", setting.pszValue, GetLastError());
    return dwError;
  }
  if (dwValue != 0) port.dwPortFlags |= setting.dwPortFlag;
  return ERROR_SUCCESS;
}

}  // namespace

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
  DWORD dwFirstError = ERROR_SUCCESS;
  for (const QueueSwitch& setting : kQueueSwitches) {
    const DWORD dwError = ReadSwitch(setting, *pIniPort);
    if (dwFirstError == ERROR_SUCCESS) dwFirstError = dwError;
  }
  return dwFirstError;
}
