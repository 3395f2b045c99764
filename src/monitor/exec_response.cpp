#include "monitor/exec_response.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "monitor/growing_pause.h"
#include "monitor/job_cancel.h"
#include "monitor/log_module.h"
#include "monitor/model.h"
#include "monitor/response_format.h"
#include "monitor/sdk.h"

namespace {

constexpr DWORD kPauseMs = 500;
constexpr DWORD kRequestTimeoutMs = 10'000;
constexpr DWORD kReceiveBytes = 4096;

// The bytes of a request (printer protocol).
struct Request {
  BYTE abyBytes[6];
  DWORD cbBytes;
};

Request MakeRequest(const ResponseQuery& query) noexcept {
  if (query.bOneByteStatus) return {{0x01, 0xA5}, query.bWaitExecResp ? 2u : 1u};
  // GS a 255, then DC2 q nn
  return {{0x1D, 0x61, 0xFF, 0x12, 0x71, query.byExecResponse}, query.bWaitExecResp ? 6u : 3u};
}

// The status bits that stop this wait.
std::uint64_t StopMask(const DevData& model, BOOL bWaitExecResp) noexcept {
  LOG_AS("WaitExecRespAndStatus");
  std::uint64_t ullMask = 0;
  if (model.pRespInfo == nullptr || model.pRespInfo->pStatusInfo == nullptr) return 0;
  for (const StatusDef* pDef = model.pRespInfo->pStatusInfo->pStatusDef; pDef->llMask > 0; ++pDef) {
    switch (pDef->dwKind) {
      case STATUS_KIND_INFO: break;
      case STATUS_KIND_ERROR: ullMask |= static_cast<std::uint64_t>(pDef->llMask); break;
      case STATUS_KIND_NOT_READY:
        if (!bWaitExecResp) ullMask |= static_cast<std::uint64_t>(pDef->llMask);
        break;
      default: AssertHere();
    }
  }
  return ullMask;
}

// The answers of one wait. What has not been received whole is kept in front of the next read, and a verdict that a status
// still on its way may change is kept with it.
class Answers {
 public:
  explicit Answers(const ResponseQuery& query) noexcept : m_query(query) {}

  // One read and what it says. dwError receives the read's code.
  ScanResult Read(CSdk& sdk, DWORD& dwError, std::uint64_t& ullStatus) noexcept {
    LOG_AS("WaitExecRespAndStatus");
    DWORD cbRead = 0;
    const DWORD cbRoom = kReceiveBytes - m_cbHeld;
    dwError = sdk.Read(m_abyBuf + m_cbHeld, cbRoom, &cbRead, kReadResponse);
    if (dwError != ERROR_SUCCESS) return ScanResult::Nothing;
    if (cbRead == 0) return std::exchange(m_pending, ScanResult::Nothing);
    LogT(L"dwRetSize:%d", cbRead);
    DWORD cb = m_cbHeld + std::min(cbRead, cbRoom);
    if (!m_query.bOneByteStatus && m_cbHeld > 0 && BeginsNewStatus({m_abyBuf + m_cbHeld, cb - m_cbHeld})) {
      // The rest of the held status was lost on the way.
      cb -= m_cbHeld;
      std::memmove(m_abyBuf, m_abyBuf + m_cbHeld, cb);
    }

    const DWORD cbBlank = m_query.bOneByteStatus ? BlankStatusTail({m_abyBuf, cb}) : 0;
    DWORD cbKept = 0;
    DWORD dwPosition = 0;
    const bool bComplete = LmAnalyzeRespData(m_abyBuf, cb, &cbKept, &dwPosition,
                                             m_query.bOneByteStatus ? kAnalyzeOneByteStatus : 0) != FALSE;
    const DWORD cbTail = bComplete ? 0 : IncompleteTail({m_abyBuf, cbKept});
    const ScanResult result = ScanResponses({m_abyBuf, cbKept - cbTail}, m_query, ullStatus);

    m_cbHeld = std::max(cbTail, cbBlank);
    if (cbBlank > 0) {
      std::memcpy(m_abyBuf, kBlankStatus, cbBlank);
    } else {
      std::memmove(m_abyBuf, m_abyBuf + cbKept - cbTail, cbTail);
    }
    if (m_query.bWaitExecResp) return result;
    if (result != ScanResult::Nothing) m_pending = result;
    return m_cbHeld > 0 ? ScanResult::Nothing : std::exchange(m_pending, ScanResult::Nothing);
  }

 private:
  const ResponseQuery m_query;
  ScanResult m_pending = ScanResult::Nothing;  // of the printable wait, until the last status is whole
  DWORD m_cbHeld = 0;
  BYTE m_abyBuf[kReceiveBytes] = {};
};

}  // namespace

DWORD WaitExecRespAndStatus(IniPort* pIniPort, BOOL bWaitExecResp) noexcept {
  if (pIniPort == nullptr || pIniPort->pIniJob == nullptr || pIniPort->pDevData == nullptr) {
    AssertHere();
    return ERROR_INVALID_PARAMETER;
  }
  IniPort& port = *pIniPort;
  const IniJob& job = *port.pIniJob;
  const DevData& model = *port.pDevData;
  const wchar_t* pszPort = port.pszPortName;

  ResponseQuery query = {};
  query.bOneByteStatus = model.HasOneByteStatus();
  query.bWaitExecResp = bWaitExecResp != FALSE;
  query.pszPortName = pszPort;
  query.byExecResponse = query.bOneByteStatus ? kShortExecResponse : static_cast<BYTE>(0x80 + (job.bySeqNo & 0x0F));
  query.ullStopMask = StopMask(model, bWaitExecResp);

  const Request request = MakeRequest(query);
  Answers answers(query);
  bool bDone = false;
  DWORD dwResult = WriteReprintChkData(pIniPort, request.abyBytes, request.cbBytes);
  for (bool bFirst = true;; bFirst = false) {
    if (!bFirst) {
      std::uint64_t ullStatus = 0;
      switch (answers.Read(*job.pSdkMng, dwResult, ullStatus)) {
        case ScanResult::Nothing: break;
        case ScanResult::Done: bDone = true; break;
        case ScanResult::Stopped:
          LogW(L"[Port:%s]Wait exec resp stopped [status:0x%llx]", pszPort, ullStatus);
          dwResult = ERROR_NOT_FOUND;
          bDone = true;
          break;
        case ScanResult::NotPrintable: bDone = false; break;
      }
      Sleep(kPauseMs);
    }
    if (dwResult == ERROR_DEVICE_NOT_CONNECTED && bWaitExecResp) {
      LogE(L"Fail to get exec resp. [OFFLINE][Port:%s]", pszPort);
      return dwResult;
    }
    if (dwResult == ERROR_DEVICE_NOT_CONNECTED) {
      LogT(L"Wait online <> [OFFLINE][Port:%s]", pszPort);
      Sleep(kPauseMs);
    } else if (dwResult != ERROR_SUCCESS) {
      LogD(L"Fail to get exec resp. [Err:%d][Port:%s]", dwResult, pszPort);
    }
    if (bDone || MustStopWaiting(port)) return dwResult;
  }
}

DWORD WriteReprintChkData(IniPort* pIniPort, const BYTE* pRequest, DWORD cbRequest) noexcept {
  const IniJob* pIniJob = pIniPort->pIniJob;
  if (pIniJob == nullptr) {
    AssertHere();
    return ERROR_INVALID_PARAMETER;
  }
  DWORD dwResult = ERROR_INVALID_PARAMETER;
  GrowingPause pause;
  do {
    DWORD cbWritten = 0;
    pause.Begin();
    BOOL bSent = FALSE;
    if (!pIniJob->pSdkMng->SendUnless(pIniJob->bCancelSeen, pRequest, cbRequest, &cbWritten, kRequestTimeoutMs, &bSent))
      break;
    const DWORD dwError = GetLastError();  // of a send that failed
    if (cbWritten >= cbRequest) return ERROR_SUCCESS;
    pRequest += cbWritten;
    cbRequest -= cbWritten;
    if (!bSent) dwResult = dwError;
    if (cbWritten == 0 && !bSent) {
      if (dwResult == ERROR_DEVICE_NOT_CONNECTED) {
        LogE(L"Fail to get exec resp. [OFFLINE][Port:%s]", pIniPort->pszPortName);
        return dwResult;
      }
      LogD(L"Fail to send. [Err:%d][Port:%s]", dwResult, pIniPort->pszPortName);
    }
    pause.End(cbWritten > 0, *pIniJob);
  } while (!MustStopWaiting(*pIniPort));
  return dwResult;
}
