// From the moment the DLL is mapped to the moment it is unloaded: the entry point, the one export and its table.
#include "monitor/entry.h"

#include "log/log_object.h"
#include "monitor/log_module.h"
#include "monitor/records.h"

namespace {

constexpr MONITOR2 MakeMonitorTable() noexcept {
  MONITOR2 table = {};
  table.cbSize = sizeof(MONITOR2);
  table.pfnOpenPortEx = MonOpenPortEx;
  table.pfnStartDocPort = MonStartDocPort;
  table.pfnWritePort = MonWritePort;
  table.pfnReadPort = MonReadPort;
  table.pfnEndDocPort = MonEndDocPort;
  table.pfnClosePort = MonClosePort;
  table.pfnGetPrinterDataFromPort = MonGetPrinterDataFromPort;
  table.pfnShutdown = MonShutdown;
  return table;
}

constinit MONITOR2 g_monitorTable = MakeMonitorTable();

}  // namespace

// The objects with static lifetime (log, archive) are constructed before the attach and destroyed after the detach.
extern "C" BOOL WINAPI DllMain(HINSTANCE hModule, DWORD dwReason, LPVOID /*pReserved*/) {
  switch (dwReason) {
    case DLL_PROCESS_ATTACH:
      LogObject().SetModuleFolder(kMonitorModule);
      csMonitor = {};
      InitializeCriticalSection(&csMonitor);
      DisableThreadLibraryCalls(hModule);
      break;
    case DLL_PROCESS_DETACH: DeleteCriticalSection(&csMonitor); break;
    default: break;
  }
  return TRUE;
}

// The monitor handle is the MONITORINIT pointer itself; nothing uses it afterwards.
extern "C" LPMONITOR2 WINAPI InitializePrintMonitor2(PMONITORINIT pMonitorInit, PHANDLE phMonitor) {
  if (pMonitorInit == nullptr || pMonitorInit->pMonitorReg == nullptr || pMonitorInit->hckRegistryRoot == nullptr ||
      pMonitorInit->hSpooler == nullptr) {
    LogE(L"Invalid pararameter");
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  LogI(L"[ServerName:%s]", pMonitorInit->pszServerName);
  if (phMonitor != nullptr) *phMonitor = pMonitorInit;
  return &g_monitorTable;
}

// Frees nothing: ports that the spooler left open stay in the list.
VOID WINAPI MonShutdown(HANDLE hMonitor) noexcept { LogI(L"[hMonitor:0x%08x]", LogAddress(hMonitor)); }
