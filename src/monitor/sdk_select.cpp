#include "monitor/sdk_select.h"

#include <new>

#include "base/memory.h"
#include "base/setting_names.h"
#include "common/service_state.h"
#include "common/tcp_port.h"
#include "monitor/impersonation.h"
#include "monitor/log_module.h"
#include "monitor/sdk.h"

BOOL IsUseSdkSrv(IniPort** ppIniPort) noexcept {
  LogT(L"Flags:0x%x", 0);
  if (ppIniPort == nullptr || *ppIniPort == nullptr) return FALSE;
  IniPort& port = **ppIniPort;
  if (IsSdkSupportPort(port.pszPortName)) port.bUseSdkSrv = IsRunService(kSdkService);
  if (port.pSdkMng == nullptr && port.bUseSdkSrv) {
    // From the process heap like the records: operator new would bring the C++ library's exception handling into the DLL.
    HeapPtr<void> block(AllocZeroed(sizeof(CSdk)));
    if (block) port.pSdkMng = new (block.release()) CSdk;
    // Without both lanes the object's callers could meet in the library: it is never loaded then, and so never used.
    if (port.pSdkMng != nullptr && port.pSdkMng->Usable()) port.pSdkMng->LoadDll();
  }
  // An object whose load failed stays with the port; no second load is attempted for it.
  if (port.pSdkMng == nullptr || port.pSdkMng->hSdkDll == nullptr) port.bUseSdkSrv = FALSE;
  return port.bUseSdkSrv;
}

void FreeMngObj(CSdk** ppSdkMng) noexcept {
  LogEntry();
  if (ppSdkMng == nullptr || *ppSdkMng == nullptr) return;
  (*ppSdkMng)->~CSdk();
  ReleaseMemory(*ppSdkMng);
  *ppSdkMng = nullptr;
}

void CloseDevice(IniPort& port) noexcept {
  if (port.pSdkMng == nullptr || port.pSdkMng->dwSessionId == 0) return;
  const RevertedToSelf self;
  port.pSdkMng->UnlockAndClose();
  port.pSdkMng->UnloadDll();
}
