#include "monitor/cancel_watcher.h"

#include "base/memory.h"
#include "monitor/job_cancel.h"
#include "monitor/log_module.h"
#include "monitor/sdk.h"

namespace {

constexpr DWORD kWatchMs = 500;
constexpr int kPollsToEnd = 10;

void CloseAndClear(HANDLE& hObject) noexcept {
  if (hObject != nullptr) CloseHandle(hObject);
  hObject = nullptr;
}

}  // namespace

DWORD WINAPI ThreadJobCanMon(LPVOID pArgument) noexcept {
  IniJob& job = *static_cast<IniJob*>(pArgument);
  LogT(L"dwJobId:%d", job.JobId);
  if (job.hPrinter == nullptr) return 0;
  DWORD cb = 0;
  GetJobW(job.hPrinter, job.JobId, 1, nullptr, 0, &cb);
  if (cb == 0) {
    LogE(L"GetJob");
    return 0;
  }
  auto info = AllocBlock<JOB_INFO_1W>(cb);
  if (!info) return 0;
  do {
    const DWORD dwWait = WaitForSingleObject(job.hEventStop, kWatchMs);
    if (dwWait == WAIT_OBJECT_0) return 0;
    if (dwWait != WAIT_TIMEOUT) {
      LogE(L"WaitForSingleObject dwJobId:%d, pPrinterName:%s", job.JobId, info->pPrinterName);
      return 0;
    }
    if (!ReadJobStatus(job, &info, &cb)) {
      LogE(L"GetJob [err:%d, dwJobId:%d, pPrinterName:%s]", GetLastError(), job.JobId, info->pPrinterName);
      return 0;
    }
  } while ((info->Status & kCancelledStates) == 0);

  LogI(L"CANCEL,Status:0x%08x", info->Status);
  // Said before it is done: the sender that the cancel sends home must not start again.
  NoteCancelled(job);
  if (!job.pSdkMng->Cancel()) LogE(L"CANCEL,Status:0x%08x", info->Status);
  // A send that had looked before that was said may have come to the library behind the cancel.
  while (job.pSdkMng->IsSending() && WaitForSingleObject(job.hEventStop, kWatchMs) == WAIT_TIMEOUT)
    job.pSdkMng->Cancel();
  return 0;
}

void StartCancelWatcher(IniJob& job, const wchar_t* pszPrinterName) noexcept {
  LOG_AS("MonStartDocPort");
  job.hEventCancel = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  job.hEventStop = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  DWORD dwThreadId = 0;
  job.hThread = CreateThread(nullptr, 0, ThreadJobCanMon, &job, 0, &dwThreadId);
  if (job.hThread == nullptr) LogE(L"CreateThread [PrinterName:%s, JobId:0x%08x]", pszPrinterName, job.JobId);
}

void StopCancelWatcher(IniJob& job) noexcept {
  if (job.hThread != nullptr) {
    if (job.hEventStop != nullptr) SetEvent(job.hEventStop);
    // Without a stop event the watcher has ended on its first wait. Should the wait for it fail, it gets the time of some
    // polls to see the stop, since it reads the record that its owner is about to free.
    for (int n = 0; n < kPollsToEnd && WaitForSingleObject(job.hThread, INFINITE) != WAIT_OBJECT_0; ++n)
      Sleep(kWatchMs);
  }
  CloseAndClear(job.hThread);
  CloseAndClear(job.hEventStop);
  CloseAndClear(job.hEventCancel);
}
