// Opening and closing of ports.
#include "base/owners.h"
#include "common/serial_port.h"
#include "common/tcp_port.h"
#include "monitor/cancel_watcher.h"
#include "monitor/entry.h"
#include "monitor/impersonation.h"
#include "monitor/log_module.h"
#include "monitor/model.h"
#include "monitor/port_call.h"
#include "monitor/port_list.h"
#include "monitor/reprint.h"
#include "monitor/sdk.h"
#include "monitor/sdk_select.h"
#include "monitor/settings.h"

namespace {

bool IsComName(const wchar_t* pszPort) noexcept { return _wcsnicmp(pszPort, L"COM", 3) == 0; }

// The port flags of a port that the device-access library could serve.
DWORD DevicePortFlags(const wchar_t* pszPort) noexcept {
  const bool bVirtualCom = IsComName(pszPort) && IsVirtualComPort(pszPort);
  DWORD dwFlags = bVirtualCom ? PORT_VIRTUAL_COM : 0;
  // A virtual COM port stays open between jobs only when it is a network port as well.
  if (!IsDisableOpenAlwaysByLM() && (_wcsnicmp(pszPort, L"USB0", 4) == 0 || !bVirtualCom || IsTcpMonitorPort(pszPort)))
    dwFlags |= PORT_OPEN_ALWAYS;
  return dwFlags;
}

}  // namespace

// Opens the device for the port's lifetime. Nothing that fails here makes the port's open fail: its jobs then take the
// port-monitor path.
static void OpenDeviceForPort(IniPort& port) noexcept {
  LOG_AS("MonOpenPortEx");
  IniPort* pIniPort = &port;
  if (!IsUseSdkSrv(&pIniPort)) return;
  if (port.pSdkMng == nullptr) {
    AssertHere();
    LogE(L"pSdkMng is NULL.[Port:%s/Printer:%s]", port.pszPortName, port.pPrinterName);
    return;
  }
  const DevData* pDevData = nullptr;
  if (port.pSdkMng->Open(port.pPrinterName, TRUE, &pDevData) != ERROR_SUCCESS || pDevData == nullptr) return;
  port.pDevData = pDevData;
  const DevInfo* pDevInfo = pDevData->pDevInfo;
  const bool bHasCommSetting =
      pDevInfo != nullptr && pDevInfo->pszCommSetting != nullptr && *pDevInfo->pszCommSetting != 0;
  if (!pDevData->HasOneByteStatus() || !IsComName(port.pszPortName) || !bHasCommSetting) return;
  const DWORD dwError = port.pSdkMng->SetSyncComm(pDevData);
  if (dwError != ERROR_SUCCESS) LogE(L"Fail to SetCommSync [Port:%s][Err:%d]", port.pszPortName, dwError);
}

static bool OpenUnderlyingPort(IniPort& port, HANDLE hMonitorPort, LPWSTR pszPortName,
                               const MONITOR2* pMonitor) noexcept {
  LOG_AS("MonOpenPortEx");
  BOOL bOpened = FALSE;
  if (pMonitor == nullptr || pMonitor->pfnOpenPort == nullptr) {
    SetLastError(ERROR_NOT_SUPPORTED);
  } else {
    bOpened = pMonitor->pfnOpenPort(hMonitorPort, pszPortName, &port.hPort);
  }
  if (!bOpened) {
    LogE(L"(*pMonitor->pfnOpenPort) [Port:%s/Printer:%s]", port.pszPortName, port.pPrinterName);
    port.hPort = nullptr;
    return false;
  }
  port.fn = *pMonitor;
  LogT(L"(*pMonitor->pfnOpenPort) [Port:%s/Printer:%s]", port.pszPortName, port.pPrinterName);
  if (port.hPort == nullptr) SetLastError(ERROR_INVALID_HANDLE);  // a success without a port is none
  return port.hPort != nullptr;
}

// Holds csMonitor from the port's classification to the underlying open: every other port's calls that need the lock wait
// meanwhile.
BOOL WINAPI MonOpenPortEx(HANDLE /*hMonitor*/, HANDLE hMonitorPort, LPWSTR pszPortName, LPWSTR pszPrinterName,
                          PHANDLE phPort, MONITOR2* pMonitor) noexcept {
  LogI(L"[Port:%s/Printer:%s]", pszPortName, pszPrinterName);
  if (pszPortName == nullptr || *pszPortName == 0 || phPort == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    LogE(L"ERROR_INVALID_PARAMETER [pszPortName:%s]", pszPortName == nullptr ? L"Invalid param"
                                                      : *pszPortName == 0    ? L"null"
                                                                             : pszPortName);
    return FALSE;
  }
  *phPort = nullptr;
  IniPort* pIniPort = nullptr;
  {
    const SectionLock lock(csMonitor);
    if (FindIniPort(pszPortName) != nullptr) {
      SetLastError(ERROR_BUSY);
      LogE(L"ERROR_BUSY [Port:%s/Printer:%s]", pszPortName, pszPrinterName);
    } else {
      pIniPort = CreatePortEntry(pszPrinterName, pszPortName);
      if (pIniPort == nullptr)
        SetLastError(pszPrinterName == nullptr ? ERROR_INVALID_PARAMETER : ERROR_NOT_ENOUGH_MEMORY);
    }
  }
  if (pIniPort == nullptr) return FALSE;
  ManageReprintMng(&pIniPort->reprintMng, 0);

  const SectionLock lock(csMonitor);
  bool bAsClient = false;
  {
    RevertedToSelf self;
    if (IsSdkSupportPort(pIniPort->pszPortName)) pIniPort->dwPortFlags |= DevicePortFlags(pIniPort->pszPortName);
    if ((pIniPort->dwPortFlags & PORT_OPEN_ALWAYS) != 0) OpenDeviceForPort(*pIniPort);
    bAsClient = self.Restore();
  }
  if (!bAsClient) SetLastError(ERROR_ACCESS_DENIED);
  if (bAsClient && OpenUnderlyingPort(*pIniPort, hMonitorPort, pszPortName, pMonitor)) {
    AddPortHandle(pIniPort);
    *phPort = pIniPort;
    return TRUE;
  }
  const KeepLastError keep;
  CloseDevice(*pIniPort);
  DeletePortEntry(pIniPort);
  return FALSE;
}

BOOL WINAPI MonClosePort(HANDLE hPort) noexcept {
  // Calls that the spooler still has under way, a driver's request for instance, use the record: they end first.
  IniPort* pIniPort = RemovePortHandle(hPort);
  if (pIniPort == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    LogE(L"ERROR_INVALID_PARAMETER [pIniPort:0x%08x, signature:0x%08x]", LogAddress(hPort), SignatureOf(hPort));
    return FALSE;
  }
  // A job that the spooler never ended may still have its watcher, which reads the record that is about to be freed.
  for (IniJob* pIniJob = pIniPort->pIniJob; pIniJob != nullptr; pIniJob = pIniJob->pNext) StopCancelWatcher(*pIniJob);
  LogI(L"SendJobLastPageEjected [pszPortName:%s]", pIniPort->pszPortName);
  SendJobLastPageEjected(pIniPort, ALL_JOBS);

  const SectionLock lock(csMonitor);
  CloseDevice(*pIniPort);
  LogI(L"(*pIniPort->fn.pfnClosePort) [pszPortName:%s]", pIniPort->pszPortName);
  if (pIniPort->hPort != nullptr && pIniPort->fn.pfnClosePort != nullptr) pIniPort->fn.pfnClosePort(pIniPort->hPort);
  DeletePortEntry(pIniPort);
  return TRUE;
}
