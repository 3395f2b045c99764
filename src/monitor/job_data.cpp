// The road of a job's data.
#include <algorithm>

#include "common/job_archive.h"
#include "monitor/entry.h"
#include "monitor/exec_response.h"
#include "monitor/log_module.h"
#include "monitor/reprint.h"
#include "monitor/sdk.h"
#include "monitor/stream_inspect.h"
#include "monitor/watched_job.h"

namespace {

constexpr DWORD kSendTimeoutMs = 90'000;
constexpr DWORD kDrainBytes = 4096;
// A printer that never stops talking is not drained for ever.
constexpr DWORD kDrainLimit = 1024 * 1024;

// Whether the job is known to be deleted. One whose event could not be made prints all the same, unconfirmed.
bool IsDeleted(const IniJob& job) noexcept { return job.hEventCancel != nullptr && IsCancelSet(job); }

// Reads what the printer has said so far and throws it away. Ends on a read without data or with an error, when the job
// is cancelled, and after 1 MiB.
void DrainResponses(const IniJob& job) noexcept {
  BYTE abyScratch[kDrainBytes];
  for (DWORD cbDrained = 0; cbDrained < kDrainLimit && !IsDeleted(job);) {
    DWORD cbRead = kDrainBytes;
    if (job.pSdkMng->Read(abyScratch, kDrainBytes, &cbRead, kReadClear) != ERROR_SUCCESS || cbRead == 0) return;
    cbDrained += cbRead;
  }
}

}  // namespace

// Sends a buffer through the library, before a cached job's first byte only to a printer that is ready: TRUE with no
// bytes written otherwise, and the spooler offers the same buffer again.
static BOOL SendToDevice(IniPort& port, bool bWatched, const BYTE* pBuf, DWORD cbBuf, DWORD* pcbWritten) noexcept {
  LOG_AS("MonWritePort");
  LogT(L"on SDK [pszPortName:%s, cbBuf:%d]", port.pszPortName, cbBuf);
  const RevertedToSelf self;
  const IniJob* pIniJob = port.pIniJob;
  if (port.pSdkMng == nullptr || pIniJob == nullptr || pIniJob->pSdkMng == nullptr) {
    LogE(L"pSdkMng is NULL. [Port:%s]", port.pszPortName);
    AssertHere();
    return FALSE;
  }
  const bool bFirstCached = port.reprintMng.pBuf == nullptr && (port.dwPortFlags & PORT_AUTO_REPRINT) != 0;
  if (bWatched && bFirstCached) {
    DrainResponses(*pIniJob);
    // A deleted job asks for nothing more; and a wait that its deletion ended may have succeeded so far, but not a byte of
    // it goes out then either.
    if (IsDeleted(*pIniJob) || WaitExecRespAndStatus(&port, FALSE) != ERROR_SUCCESS || IsDeleted(*pIniJob)) return TRUE;
  }
  return pIniJob->pSdkMng->Send(pBuf, cbBuf, pcbWritten, kSendTimeoutMs);
}

static BOOL WriteToPortMonitor(IniPort& port, BYTE* pBuf, DWORD cbBuf, DWORD* pcbWritten) noexcept {
  LOG_AS("MonWritePort");
  if (port.pSdkMng != nullptr)
    LogE(L"pSdkMng is invalid.[pszPortName:%s][Ins:0x%x]", port.pszPortName, LogAddress(port.pSdkMng));
  BOOL bWritten = FALSE;
  if (port.fn.pfnWritePort == nullptr) {
    SetLastError(ERROR_NOT_SUPPORTED);
  } else {
    bWritten = port.fn.pfnWritePort(port.hPort, pBuf, cbBuf, pcbWritten);
  }
  LOG_LINE(bWritten ? LOG_LEVEL_I : LOG_LEVEL_E, L"(*pIniPort->fn.pfnWritePort) [pszPortName:%s,cbBuf:%d/%d]",
           port.pszPortName, *pcbWritten, cbBuf);
  return bWritten;
}

// The buffer goes on from the caller's memory; only what the printer took is copied to the archive and the cache.
BOOL WINAPI MonWritePort(HANDLE hPort, LPBYTE pBuf, DWORD cbBuf, LPDWORD pcbWritten) noexcept {
  IniPort* pIniPort = PortOf(hPort);
  if (pIniPort == nullptr || pcbWritten == nullptr || pBuf == nullptr || cbBuf == 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    LogE(L"ERROR_INVALID_PARAMETER [pIniPort:0x%08x, signature:0x%08x, pcbWritten:0x%08x, pBuf:0x%08x, cbBuf:%d]",
         LogAddress(hPort), SignatureOf(hPort), LogAddress(pcbWritten), LogAddress(pBuf), cbBuf);
    return FALSE;
  }
  *pcbWritten = 0;
  IniJob* pIniJob = pIniPort->pIniJob;
  const bool bRaw = IsRawJob(pIniJob);
  const bool bShared = IsSharedPrinter(pIniJob);
  const bool bWatched = pIniJob != nullptr && (!bRaw || bShared);
  LogI(L"[pszPortName:%s, cbBuf:%d]", pIniPort->pszPortName, cbBuf);
  if (IsCancelJob(pIniPort)) {
    LogW(L"Cancel job [pszPortName:0x%s, pBuf:0x%08x, cbBuf:%d]", pIniPort->pszPortName, LogAddress(pBuf), cbBuf);
    *pcbWritten = cbBuf;
    // The watcher finds the same half a second later at most; the job's end need not ask the printer meanwhile.
    if (pIniJob->hEventCancel != nullptr) SetEvent(pIniJob->hEventCancel);
    return TRUE;
  }
  if (!bRaw) CheckRealCmd(pIniPort, pBuf, cbBuf);

  const BOOL bWritten = pIniPort->bUseSdkSrv ? SendToDevice(*pIniPort, bWatched, pBuf, cbBuf, pcbWritten)
                                             : WriteToPortMonitor(*pIniPort, pBuf, cbBuf, pcbWritten);
  if (!bWritten || *pcbWritten == 0 || pIniJob == nullptr) return bWritten;
  const DWORD cbTaken = std::min(*pcbWritten, cbBuf);  // whatever the other side claims
  if (pIniJob->pszJobFilePath != nullptr) gJob.OutputJobFile(pIniJob->pszJobFilePath, pBuf, cbTaken);
  if (bWatched && pIniPort->bUseSdkSrv && (pIniPort->dwPortFlags & PORT_AUTO_REPRINT) != 0 &&
      CashWriteData(pIniPort, pBuf, cbTaken) != ERROR_SUCCESS)
    return FALSE;
  return bWritten;
}

// Neither the device nor the underlying port monitor is read: always no data.
BOOL WINAPI MonReadPort(HANDLE hPort, LPBYTE pBuf, DWORD cbBuf, LPDWORD pcbRead) noexcept {
  const IniPort* pIniPort = PortOf(hPort);
  const wchar_t* pszPort = pIniPort != nullptr ? pIniPort->pszPortName : L"";
  if (pIniPort == nullptr || pcbRead == nullptr || pBuf == nullptr || cbBuf == 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    LogE(L"ERROR_INVALID_PARAMETER [PortName:%s]", pszPort);
    return FALSE;
  }
  LogI(L"[PortName:%s]", pszPort);
  *pcbRead = 0;
  return TRUE;
}
