#include "monitor/reprint.h"

#include <cstdint>
#include <cstring>

#include "base/memory.h"
#include "base/owners.h"
#include "monitor/exec_response.h"
#include "monitor/growing_pause.h"
#include "monitor/job_cancel.h"
#include "monitor/log_module.h"
#include "monitor/sdk.h"

namespace {

constexpr DWORD kDefaultCapacity = 0x300000;  // bytes, when the sizes of the last two jobs are not known
constexpr DWORD kReprintTimeoutMs = 90'000;

// The first capacity for a job: the average of the last two, or their sum when the first write is larger than that.
std::uint64_t FirstCapacity(const ReprintMng& mng, DWORD cbBuf) noexcept {
  if (mng.cbJob[0] == 0 || mng.cbJob[1] == 0) return kDefaultCapacity;
  const std::uint64_t ullSum = static_cast<std::uint64_t>(mng.cbJob[0]) + mng.cbJob[1];
  return ullSum / 2 >= cbBuf ? ullSum / 2 : ullSum;
}

BYTE* AllocCache(std::uint64_t ullCapacity) noexcept {
  return ullCapacity <= 0xFFFFFFFF ? static_cast<BYTE*>(AllocZeroed(static_cast<std::size_t>(ullCapacity))) : nullptr;
}

}  // namespace

BOOL ManageReprintMng(ReprintMng* pReprintMng, DWORD cbJob) noexcept {
  if (pReprintMng == nullptr) {
    AssertHere();
    return FALSE;
  }
  pReprintMng->cbJob[0] = cbJob != 0 ? pReprintMng->cbJob[1] : 0;
  pReprintMng->cbJob[1] = cbJob;
  ReleaseMemory(pReprintMng->pBuf);
  pReprintMng->pBuf = nullptr;
  pReprintMng->cbData = 0;
  pReprintMng->cbAlloc = 0;
  return TRUE;
}

DWORD CashWriteData(IniPort* pIniPort, const BYTE* pBuf, DWORD cbBuf) noexcept {
  ReprintMng& mng = pIniPort->reprintMng;
  if (mng.pBuf == nullptr) {
    const std::uint64_t ullCapacity = FirstCapacity(mng, cbBuf);
    mng.pBuf = AllocCache(ullCapacity);
    if (mng.pBuf == nullptr) {
      LogE(L"CashWriteData [ERR_WORKAREA_NO_MEMORY][size:%d]", static_cast<DWORD>(ullCapacity));
      ManageReprintMng(&mng, 0);
      return ERROR_INSUFFICIENT_BUFFER;
    }
    mng.cbAlloc = static_cast<DWORD>(ullCapacity);
  }
  const std::uint64_t ullNeeded = static_cast<std::uint64_t>(mng.cbData) + cbBuf;
  if (ullNeeded > mng.cbAlloc) {
    std::uint64_t ullCapacity = static_cast<std::uint64_t>(mng.cbAlloc) * 2;
    while (ullCapacity < ullNeeded) ullCapacity *= 2;
    BYTE* pLarger = AllocCache(ullCapacity);
    if (pLarger == nullptr) {
      LogE(L"CashWriteData recreate [ERR_WORKAREA_NO_MEMORY][size:%d]", static_cast<DWORD>(ullCapacity));
      ManageReprintMng(&mng, 0);
      return ERROR_INSUFFICIENT_BUFFER;
    }
    std::memcpy(pLarger, mng.pBuf, mng.cbData);
    ReleaseMemory(mng.pBuf);
    mng.pBuf = pLarger;
    mng.cbAlloc = static_cast<DWORD>(ullCapacity);
  }
  std::memcpy(mng.pBuf + mng.cbData, pBuf, cbBuf);
  mng.cbData += cbBuf;
  return ERROR_SUCCESS;
}

DWORD ReprintDumpData(IniPort* pIniPort) noexcept {
  if (pIniPort == nullptr || pIniPort->reprintMng.pBuf == nullptr || pIniPort->reprintMng.cbData == 0 ||
      pIniPort->pSdkMng == nullptr) {
    AssertHere();
    return ERROR_INVALID_PARAMETER;
  }
  const IniJob& job = *pIniPort->pIniJob;
  const wchar_t* pszPort = pIniPort->pszPortName;
  GrowingPause pause;
  const BYTE* pNext = pIniPort->reprintMng.pBuf;
  DWORD cbRest = pIniPort->reprintMng.cbData;
  DWORD dwResult = ERROR_INVALID_PARAMETER;
  while (!MustStopWaiting(*pIniPort)) {
    DWORD cbWritten = 0;
    pause.Begin();
    BOOL bSent = FALSE;
    if (!job.pSdkMng->SendUnless(job.bCancelSeen, pNext, cbRest, &cbWritten, kReprintTimeoutMs, &bSent)) break;
    // A send that took a part counts as sent and leaves the last error alone, which may be of any earlier call.
    const DWORD dwError = bSent ? ERROR_TIMEOUT : GetLastError();
    if (cbWritten > cbRest) {
      LogE(L"[srv:%s] MonWritePort pmWrite() overrun!!", pszPort);
      AssertHere();
      return ERROR_BUFFER_OVERFLOW;
    }
    pNext += cbWritten;
    cbRest -= cbWritten;
    if (bSent && cbRest == 0) {
      LogD(L"[srv:%s] ReprintDumpData() done.[DATALEN:%d]", pszPort, cbWritten);
      return ERROR_SUCCESS;
    }
    dwResult = dwError;
    switch (dwResult) {
      case ERROR_BUSY:
      case ERROR_TIMEOUT: LogW(L"[srv:%s] MonWritePort pmWrite() [TIMEOUT]", pszPort); break;
      case ERROR_DEVICE_NOT_CONNECTED: LogW(L"[srv:%s] MonWritePort pmWrite() [OFFLINE]", pszPort); return dwResult;
      default:
        LogE(L"[srv:%s] MonWritePort pmWrite() [DATALEN: %d/%d]", pszPort, cbWritten, pIniPort->reprintMng.cbData);
    }
    pause.End(cbWritten > 0, job);
  }
  return dwResult;
}

static void DrawSequenceNumber(IniJob& job) noexcept {
  const SectionLock lock(csMonitor);
  bySeqCounter = bySeqCounter + 1 < 255 ? static_cast<BYTE>(bySeqCounter + 1) : BYTE{0};
  job.bySeqNo = bySeqCounter;
}

void ConfirmJobEndAndReprint(IniPort* pIniPort) noexcept {
  IniJob& job = *pIniPort->pIniJob;
  bool bSkipConfirmation = false;
  GrowingPause pause;
  while (!MustStopWaiting(*pIniPort)) {  // a deleted job is not even asked for
    pause.Begin();
    DrawSequenceNumber(job);
    if (!bSkipConfirmation && WaitExecRespAndStatus(pIniPort, TRUE) == ERROR_SUCCESS) return;
    if ((pIniPort->dwPortFlags & PORT_RESPONSE_MASK) == PORT_VIRTUAL_COM) {
      LogD(L"Finish [WAIT_EXEC_AT_PRINT]");
      return;
    }
    if (MustStopWaiting(*pIniPort)) return;
    WaitExecRespAndStatus(pIniPort, FALSE);

    bool bSentAgain = false;
    bSkipConfirmation = MustStopWaiting(*pIniPort) || !job.pSdkMng->Cancel() || !job.pSdkMng->Reset();
    if (!bSkipConfirmation) {
      WaitExecRespAndStatus(pIniPort, FALSE);
      const DWORD dwResult = ReprintDumpData(pIniPort);
      if (dwResult != ERROR_SUCCESS && dwResult != ERROR_DEVICE_NOT_CONNECTED) {
        LogE(L"ReprintDumpData ERROR_INVALID_PARAMETER [Port:%s]", pIniPort->pszPortName);
        return;
      }
      bSentAgain = dwResult == ERROR_SUCCESS;
    }
    pause.End(bSentAgain, job);  // where the waits return at once, and the device refuses
  }
}
