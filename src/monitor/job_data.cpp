// The road of a job's data.
#include <algorithm>

#include "common/job_archive.h"
#include "monitor/entry.h"
#include "monitor/exec_response.h"
#include "monitor/impersonation.h"
#include "monitor/job_cancel.h"
#include "monitor/log_module.h"
#include "monitor/port_call.h"
#include "monitor/reprint.h"
#include "monitor/sdk.h"
#include "monitor/stream_inspect.h"
#include "monitor/watched_job.h"

namespace {

constexpr DWORD kSendTimeoutMs = 90'000;
constexpr DWORD kDrainBytes = 4096;
// A printer that never stops talking is not drained for ever.
constexpr DWORD kDrainLimit = 1024 * 1024;
constexpr DWORD kDrainMs = 10'000;

// Reads what the printer has said so far and throws it away. Ends on a read that brings nothing, when the job is cancelled,
// after 1 MiB and after 10 s. A failed read that left the count alone brought nothing.
void DrainResponses(IniPort& port) noexcept {
  BYTE abyScratch[kDrainBytes];
  const DWORD dwStart = GetTickCount();
  for (DWORD cbDrained = 0;
       cbDrained < kDrainLimit && GetTickCount() - dwStart < kDrainMs && !IsCancelledSoFar(port);) {
    DWORD cbRead = kDrainBytes;
    const DWORD dwError = port.pIniJob->pSdkMng->Read(abyScratch, kDrainBytes, &cbRead, kReadClear);
    if (cbRead == 0 || (dwError != ERROR_SUCCESS && cbRead == kDrainBytes)) return;
    cbDrained += cbRead;
  }
}

// What became of a buffer on the device-access path.
enum class Sending { Sent, Failed, NotReady, Cancelled };

}  // namespace

// Sends a buffer through the library, before a cached job's first byte only to a printer that is ready. Cancelled: the job
// is deleted, and not a byte of the buffer went out.
static Sending SendToDevice(IniPort& port, bool bWatched, const BYTE* pBuf, DWORD cbBuf, DWORD* pcbWritten) noexcept {
  LOG_AS("MonWritePort");
  LogT(L"on SDK [pszPortName:%s, cbBuf:%d]", port.pszPortName, cbBuf);
  const IniJob* pIniJob = port.pIniJob;
  if (port.pSdkMng == nullptr || pIniJob == nullptr || pIniJob->pSdkMng == nullptr) {
    LogE(L"pSdkMng is NULL. [Port:%s]", port.pszPortName);
    AssertHere();
    SetLastError(ERROR_INVALID_HANDLE);
    return Sending::Failed;
  }
  const bool bFirstCached = port.reprintMng.pBuf == nullptr && (port.dwPortFlags & PORT_AUTO_REPRINT) != 0;
  if (bWatched && bFirstCached) {
    DrainResponses(port);
    const bool bReady = !IsCancelledSoFar(port) && WaitExecRespAndStatus(&port, FALSE) == ERROR_SUCCESS;
    // A wait that the job's deletion ended may have succeeded so far.
    if (IsCancelledSoFar(port)) return Sending::Cancelled;
    if (!bReady) return Sending::NotReady;
  }
  BOOL bSent = FALSE;
  if (!pIniJob->pSdkMng->SendUnless(pIniJob->bCancelSeen, pBuf, cbBuf, pcbWritten, kSendTimeoutMs, &bSent))
    return Sending::Cancelled;
  return bSent ? Sending::Sent : Sending::Failed;
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

// A deleted job's data is taken and dropped.
static BOOL DropBuffer(const IniPort& port, const BYTE* pBuf, DWORD cbBuf, DWORD* pcbWritten) noexcept {
  LOG_AS("MonWritePort");
  LogW(L"Cancel job [pszPortName:0x%s, pBuf:0x%08x, cbBuf:%d]", port.pszPortName, LogAddress(pBuf), cbBuf);
  *pcbWritten = cbBuf;
  return TRUE;
}

// The buffer goes on from the caller's memory; only what the printer took is copied to the archive and the cache.
BOOL WINAPI MonWritePort(HANDLE hPort, LPBYTE pBuf, DWORD cbBuf, LPDWORD pcbWritten) noexcept {
  const PortCall call(hPort);
  IniPort* pIniPort = call.Port();
  if (pIniPort == nullptr || pcbWritten == nullptr || pBuf == nullptr || cbBuf == 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    LogE(L"ERROR_INVALID_PARAMETER [pIniPort:0x%08x, signature:0x%08x, pcbWritten:0x%08x, pBuf:0x%08x, cbBuf:%d]",
         LogAddress(hPort), SignatureOf(hPort), LogAddress(pcbWritten), LogAddress(pBuf), cbBuf);
    return FALSE;
  }
  *pcbWritten = 0;
  IniJob* pIniJob = pIniPort->pIniJob;
  const bool bRaw = IsRawJob(pIniJob);
  const bool bShared = IsSharedPrinter(pIniJob, "MonWritePort");
  const bool bWatched = pIniJob != nullptr && (!bRaw || bShared);
  LogI(L"[pszPortName:%s, cbBuf:%d]", pIniPort->pszPortName, cbBuf);
  if (IsCancelJob(pIniPort)) return DropBuffer(*pIniPort, pBuf, cbBuf, pcbWritten);
  if (pIniJob != nullptr && IsCancelRemembered(*pIniJob)) return DropBuffer(*pIniPort, pBuf, cbBuf, pcbWritten);
  if (!bRaw) CheckRealCmd(pIniPort, pBuf, cbBuf);

  BOOL bWritten = FALSE;
  bool bAsClient = true;
  if (pIniPort->bUseSdkSrv) {
    RevertedToSelf self;
    const Sending sending = SendToDevice(*pIniPort, bWatched, pBuf, cbBuf, pcbWritten);
    bAsClient = self.Restore();
    if (sending == Sending::Cancelled) return DropBuffer(*pIniPort, pBuf, cbBuf, pcbWritten);
    if (sending == Sending::NotReady) *pcbWritten = 0;
    bWritten = sending != Sending::Failed;
  } else {
    bWritten = WriteToPortMonitor(*pIniPort, pBuf, cbBuf, pcbWritten);
  }
  *pcbWritten = std::min(*pcbWritten, cbBuf);  // whatever the other side claims
  if (!bWritten || *pcbWritten == 0 || pIniJob == nullptr) return bWritten;
  const DWORD cbTaken = *pcbWritten;
  if (pIniJob->pszJobFilePath != nullptr && bAsClient)
    gJob.OutputJobFile(pIniJob->pszJobFilePath, pBuf, cbTaken, pIniJob->archived);
  if (bWatched && pIniPort->bUseSdkSrv && (pIniPort->dwPortFlags & PORT_AUTO_REPRINT) != 0 &&
      CashWriteData(pIniPort, pBuf, cbTaken) != ERROR_SUCCESS) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return FALSE;
  }
  return bWritten;
}

// Neither the device nor the underlying port monitor is read: always no data.
BOOL WINAPI MonReadPort(HANDLE hPort, LPBYTE pBuf, DWORD cbBuf, LPDWORD pcbRead) noexcept {
  const PortCall call(hPort);
  const IniPort* pIniPort = call.Port();
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
