// The beginning of a job: one at a time on a port, on the device-access path or on the port monitor's.
#include "base/memory.h"
#include "base/owners.h"
#include "common/job_archive.h"
#include "monitor/cancel_watcher.h"
#include "monitor/entry.h"
#include "monitor/impersonation.h"
#include "monitor/log_module.h"
#include "monitor/model.h"
#include "monitor/port_call.h"
#include "monitor/port_list.h"
#include "monitor/sdk.h"
#include "monitor/sdk_select.h"
#include "monitor/settings.h"

namespace {

struct JobFreer {
  void operator()(IniJob* pIniJob) const noexcept { FreeIniJob(pIniJob); }
};
using UniqueJob = std::unique_ptr<IniJob, JobFreer>;

}  // namespace

// Opens and locks the device for a job and starts its cancel watcher. In the spooler's own context.
static bool StartOnDevice(IniPort& port, IniJob& job, const wchar_t* pszPrinterName) noexcept {
  LOG_AS("MonStartDocPort");
  if (port.pSdkMng == nullptr) {
    AssertHere();
    LogE(L"pSdkMng is NULL.[Printer:%s]", pszPrinterName);
    SetLastError(ERROR_INVALID_HANDLE);
    return false;
  }
  const DevData* pDevData = port.pDevData;
  bool bLocked = port.pSdkMng->OpenAndLock(pszPrinterName, &pDevData) != FALSE;
  {
    const SectionLock lock(csMonitor);
    job.pSdkMng = port.pSdkMng;
    if (pDevData != nullptr) port.pDevData = pDevData;
  }
  if (job.pSdkMng == nullptr) {
    AssertHere();
    SetLastError(ERROR_INVALID_HANDLE);
    bLocked = false;
  }
  if (bLocked) StartCancelWatcher(job, pszPrinterName);
  return bLocked;
}

// Starts a job on the underlying port monitor. Impersonating the client.
static bool StartOnPortMonitor(IniPort& port, IniJob& job, LPWSTR pszPrinterName, DWORD dwLevel,
                               LPBYTE pDocInfo) noexcept {
  LOG_AS("MonStartDocPort");
  if (port.pSdkMng != nullptr)
    LogE(L"pSdkMng is invalid.[Printer:%s][Ins:0x%x]", pszPrinterName, LogAddress(port.pSdkMng));
  BOOL bStarted = FALSE;
  if (port.fn.pfnStartDocPort == nullptr) {
    SetLastError(ERROR_NOT_SUPPORTED);
  } else {
    bStarted = port.fn.pfnStartDocPort(port.hPort, pszPrinterName, job.JobId, dwLevel, pDocInfo);
  }
  if (!bStarted) {
    LogE(L"(*pIniPort->fn.pfnStartDocPort) [PrinterName:%s, JobId:0x%08x]", pszPrinterName, job.JobId);
    return false;
  }
  if (port.pDevData == nullptr) {
    const DevData* pDevData = GetDevDataLm(job.hPrinter);
    if (pDevData != nullptr) {
      const SectionLock lock(csMonitor);
      port.pDevData = pDevData;
    } else {
      LogW(L"Failed to GetDevDataLm[printer:%s]", pszPrinterName);
    }
  }
  return true;
}

// Reads the job's level-2 information into the record.
static bool ReadJobInfo(IniJob& job) noexcept {
  LOG_AS("MonStartDocPort");
  DWORD cb = 0;
  GetJobW(job.hPrinter, job.JobId, 2, nullptr, 0, &cb);
  if (cb == 0) {
    LogE(L"GetJob cbNeeded=0 [hPrinter:0x%08x, dwJobId:0x%08x]", LogAddress(job.hPrinter), job.JobId);
    return false;
  }
  auto info = AllocBlock<JOB_INFO_2W>(cb);
  if (!info) {
    LogE(L"pJob=null [cbNeeded:%d, hPrinter:0x%08x, dwJobId:0x%08x]", cb, LogAddress(job.hPrinter), job.JobId);
    return false;
  }
  if (!GetJobW(job.hPrinter, job.JobId, 2, reinterpret_cast<BYTE*>(info.get()), cb, &cb)) {
    LogE(L"GetJob() [err:%d, cbNeeded:%d, hPrinter:0x%08x, dwJobId:0x%08x]", GetLastError(), cb,
         LogAddress(job.hPrinter), job.JobId);
    return false;
  }
  job.pJob = info.release();
  return true;
}

// Puts a started job at the head of the port's list and prepares its archive file, which is the client's affair.
static void AdmitJob(IniPort& port, IniJob& job, bool bAsClient) noexcept {
  LOG_AS("MonStartDocPort");
  {
    const SectionLock lock(csMonitor);
    const bool bFirst = port.pIniJob == nullptr;
    job.pNext = port.pIniJob;
    port.pIniJob = &job;
    if (bFirst && GetSettingFromPrinterData(&port) != ERROR_SUCCESS)
      LogE(L"Fail to set devmode setting from pIniPort[0x%x]", LogAddress(&port));
  }
  const BOOL bLogSettingFlags = port.pDevData != nullptr && port.pDevData->KeepsLogSettingFlags();
  WaitForSingleObject(port.hEvent, INFINITE);
  GetLocalTime(&job.stStart);
  if (!bAsClient) return;
  const SectionLock lock(gJob.csJob);
  gJob.MakeSettings(job.hPrinter, job.stStart, &job.pszJobDataPath, &job.pszJobFilePath, bLogSettingFlags);
}

// Everything between the admission test and the admission. On false the port goes back to idle; a device lock that was
// obtained stays held by the port's session and serves its next job.
static bool StartJob(IniPort& port, LPWSTR pszPrinterName, DWORD dwJobId, DWORD dwLevel, LPBYTE pDocInfo) noexcept {
  LOG_AS("MonStartDocPort");
  UniqueJob job(static_cast<IniJob*>(AllocZeroed(sizeof(IniJob))));
  if (!job) {
    LogE(L"Memory Error");
    return false;
  }
  job->JobId = dwJobId;
  PRINTER_DEFAULTSW defaults = {nullptr, nullptr, PRINTER_ACCESS_USE};
  if (!OpenPrinterW(pszPrinterName, &job->hPrinter, &defaults)) {
    const KeepLastError keep;
    job->hPrinter = nullptr;
    LogE(L"OpenPrinter [err:%d, PrinterName:%s]", GetLastError(), pszPrinterName);
    job.reset();
    return false;
  }
  bool bStarted = false;
  bool bAsClient = false;
  {
    RevertedToSelf self;
    IniPort* pIniPort = &port;
    IsUseSdkSrv(&pIniPort);
    if (port.bUseSdkSrv) bStarted = StartOnDevice(port, *job, pszPrinterName);
    bAsClient = self.Restore();
  }
  if (!port.bUseSdkSrv) {
    if (bAsClient) {
      bStarted = StartOnPortMonitor(port, *job, pszPrinterName, dwLevel, pDocInfo);
    } else {
      SetLastError(ERROR_ACCESS_DENIED);  // it would be started in the wrong name
    }
  }
  if (!bStarted || !ReadJobInfo(*job)) {
    const KeepLastError keep;
    StopCancelWatcher(*job);
    job.reset();
    return false;
  }
  AdmitJob(port, *job.release(), bAsClient);
  return true;
}

BOOL WINAPI MonStartDocPort(HANDLE hPort, LPWSTR pszPrinterName, DWORD dwJobId, DWORD dwLevel,
                            LPBYTE pDocInfo) noexcept {
  LogI(L"pszPrinterName:%s, JobId:%d", pszPrinterName, dwJobId);
  const PortCall call(hPort);
  IniPort* pIniPort = call.Port();
  if (pIniPort == nullptr || dwLevel != 1 || pDocInfo == nullptr || pszPrinterName == nullptr || *pszPrinterName == 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    LogE(
        L"ERROR_INVALID_PARAMETER [pIniPort:0x%08x, signature:0x%08x, dwLevel:0x%08x, pDocInfo:0x%08x, "
        L"pszPrinterName:%s]",
        LogAddress(hPort), SignatureOf(hPort), dwLevel, LogAddress(pDocInfo), pszPrinterName);
    return FALSE;
  }
  bool bBusy = false;
  {
    const SectionLock lock(csMonitor);
    bBusy = (pIniPort->status & PORT_DOC_STARTED) != 0;
    if (!bBusy) pIniPort->status |= PORT_DOC_STARTED;
  }
  if (bBusy) {
    LogW(L"ERROR_BUSY [pszPrinterName:%s, JobId:%d]", pszPrinterName, dwJobId);
    SetLastError(ERROR_BUSY);
    return FALSE;
  }
  if (StartJob(*pIniPort, pszPrinterName, dwJobId, dwLevel, pDocInfo)) return TRUE;
  pIniPort->status &= ~PORT_DOC_STARTED;
  return FALSE;
}
