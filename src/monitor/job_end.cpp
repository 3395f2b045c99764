// The end of a job: confirmed by the printer where that is asked for, the device given back, the spooler told.
#include "common/job_archive.h"
#include "monitor/cancel_watcher.h"
#include "monitor/entry.h"
#include "monitor/impersonation.h"
#include "monitor/job_cancel.h"
#include "monitor/log_module.h"
#include "monitor/port_call.h"
#include "monitor/port_list.h"
#include "monitor/reprint.h"
#include "monitor/sdk.h"
#include "monitor/sdk_select.h"
#include "monitor/settings.h"
#include "monitor/watched_job.h"

// What the device-access path does for the job itself: confirm it, stop its watcher, clear the device of a cancelled one.
// FALSE when the thread could not go back to the client.
static bool EndJobOnDevice(IniPort& port, IniJob& job) noexcept {
  LOG_AS("MonEndDocPort");
  const bool bShared = IsSharedPrinter(&job, "MonEndDocPort");
  RevertedToSelf self;
  const bool bWatched = bShared || !IsRawJob(&job);
  if (bWatched && (port.dwPortFlags & (PORT_VIRTUAL_COM | PORT_AUTO_REPRINT)) != 0 && !IsCancelJob(&port))
    ConfirmJobEndAndReprint(&port);
  StopCancelWatcher(job);
  // Asked once more, and only now is it told whether anybody ever saw the job deleted: the watcher may have been the last.
  IsCancelJob(&port);
  if (!IsCancelRemembered(job)) return self.Restore();
  if (port.pSdkMng == nullptr) {
    AssertHere();
    LogE(L"pSdkMng is NULL.[Port:%s]", port.pszPortName);
    return self.Restore();
  }
  job.pSdkMng->Cancel();
  job.pSdkMng->Reset();
  return self.Restore();
}

// Closes an open session and drops the port's object: the next job start makes a new one. Without a session, nothing.
static void CloseAndFree(IniPort& port) noexcept {
  if (port.pSdkMng->dwSessionId == 0) return;
  port.pSdkMng->UnlockAndClose();
  port.pSdkMng->UnloadDll();
  FreeMngObj(&port.pSdkMng);
}

// Unlocks the device of a port that stays open between jobs; closes it otherwise.
static bool ReleaseDevice(IniPort& port) noexcept {
  LOG_AS("MonEndDocPort");
  RevertedToSelf self;
  if (port.pSdkMng == nullptr) {
    AssertHere();
    LogE(L"pSdkMng is NULL.[Port:%s]", port.pszPortName);
  } else if (!IsDisableOpenAlwaysByLM() && (port.dwPortFlags & PORT_OPEN_ALWAYS) != 0) {
    port.pSdkMng->UnlockJob(TRUE);
  } else {
    CloseAndFree(port);
  }
  return self.Restore();
}

static void EndOnPortMonitor(IniPort& port, const IniJob* pIniJob) noexcept {
  LOG_AS("MonEndDocPort");
  if (pIniJob != nullptr) {
    LogI(L"(*pIniPort->fn.pfnEndDocPort) [pszPortName:%s, JobId:%d]", port.pszPortName, pIniJob->JobId);
  } else {
    LogW(L"(*pIniPort->fn.pfnEndDocPort) [pszPortName:%s]", port.pszPortName);
  }
  if (port.fn.pfnEndDocPort != nullptr) port.fn.pfnEndDocPort(port.hPort);
  if (port.pSdkMng != nullptr) CloseAndFree(port);  // in the client's context
}

BOOL WINAPI MonEndDocPort(HANDLE hPort) noexcept {
  const PortCall call(hPort);
  IniPort* pIniPort = call.Port();
  if (pIniPort == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    LogE(L"ERROR_INVALID_PARAMETER [pIniPort:0x%08x, signature:0x%08x]", LogAddress(hPort), SignatureOf(hPort));
    return FALSE;
  }
  IniPort& port = *pIniPort;
  IniJob* pIniJob = port.pIniJob;
  bool bAsClient = true;
  if (pIniJob != nullptr) {
    if (!SetJobW(pIniJob->hPrinter, pIniJob->JobId, 0, nullptr, JOB_CONTROL_SENT_TO_PRINTER))
      LogE(L"SetJob [err:%d, hPrinter:0x%08x]", GetLastError(), LogAddress(pIniJob->hPrinter));
    if (port.bUseSdkSrv) bAsClient = EndJobOnDevice(port, *pIniJob);
  }
  if (port.bUseSdkSrv) {
    bAsClient = ReleaseDevice(port) && bAsClient;
  } else {
    EndOnPortMonitor(port, pIniJob);
  }
  if (pIniJob != nullptr) {
    ManageReprintMng(&port.reprintMng, port.reprintMng.cbData);
    if (bAsClient) gJob.AgeAtJobEnd(pIniJob->hPrinter, pIniJob->pszJobDataPath);
    SendJobLastPageEjected(&port, pIniJob->JobId);
  }
  port.status &= ~PORT_DOC_STARTED;
  SetEvent(port.hEvent);
  return TRUE;
}
