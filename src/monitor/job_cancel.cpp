#include "monitor/job_cancel.h"

#include <utility>

#include "monitor/log_module.h"

bool ReadJobStatus(const IniJob& job, HeapPtr<JOB_INFO_1W>* ppInfo, DWORD* pcbInfo) noexcept {
  if (!*ppInfo) {
    *pcbInfo = 0;
    GetJobW(job.hPrinter, job.JobId, 1, nullptr, 0, pcbInfo);
    *ppInfo = AllocBlock<JOB_INFO_1W>(*pcbInfo);
    if (!*ppInfo) return false;
  }
  DWORD cbNeeded = 0;
  if (GetJobW(job.hPrinter, job.JobId, 1, reinterpret_cast<BYTE*>(ppInfo->get()), *pcbInfo, &cbNeeded)) return true;
  // A text of the job has grown, the document's name for instance.
  if (GetLastError() != ERROR_INSUFFICIENT_BUFFER || cbNeeded <= *pcbInfo) return false;
  auto larger = AllocBlock<JOB_INFO_1W>(cbNeeded);
  if (!larger) return false;
  *ppInfo = std::move(larger);
  *pcbInfo = cbNeeded;
  return GetJobW(job.hPrinter, job.JobId, 1, reinterpret_cast<BYTE*>(ppInfo->get()), *pcbInfo, &cbNeeded) != FALSE;
}

// The flag comes first: who is woken by the event finds it.
void NoteCancelled(IniJob& job) noexcept {
  job.bCancelSeen = true;
  if (job.hEventCancel != nullptr) SetEvent(job.hEventCancel);
}

BOOL IsCancelJob(IniPort* pIniPort) noexcept {
  LogT(L"pIniPort:0x%08x", LogAddress(pIniPort));
  IniJob* pIniJob = pIniPort->pIniJob;
  if (pIniJob == nullptr || !pIniPort->bUseSdkSrv || pIniJob->hPrinter == nullptr) return FALSE;
  HeapPtr<JOB_INFO_1W> info;
  DWORD cb = 0;
  if (!ReadJobStatus(*pIniJob, &info, &cb) || (info->Status & kCancelledStates) == 0) return FALSE;
  LogI(L"CANCEL,Status:0x%08x", info->Status);
  NoteCancelled(*pIniJob);
  return TRUE;
}

static bool IsWatched(const IniJob& job) noexcept {
  return job.hThread != nullptr && WaitForSingleObject(job.hThread, 0) == WAIT_TIMEOUT;
}

bool IsCancelledSoFar(IniPort& port) noexcept {
  const IniJob& job = *port.pIniJob;
  if (IsCancelRemembered(job) || WaitForSingleObject(job.hEventCancel, 0) == WAIT_OBJECT_0) return true;
  return !IsWatched(job) && IsCancelJob(&port);
}

bool MustStopWaiting(IniPort& port) noexcept { return port.pIniJob->hEventCancel == nullptr || IsCancelledSoFar(port); }
