#include "monitor/stream_inspect.h"

#include "base/memory.h"
#include "monitor/log_module.h"

namespace {

constexpr BYTE DC3 = 0x13;
constexpr BYTE DLE = 0x10;
constexpr BYTE DC4 = 0x14;

// Matcher states, named by what has been seen. The numbers are stored in the job.
enum State : BYTE {
  kIdle = 0,
  kDc3 = 1,
  kOpen = 2,     // DC3 (
  kReset1 = 13,  // DC3 ( r … kReset5 = 17: DC3 (reset
  kReset5 = 17,
  kSplitDc3 = 18,  // DC3 (reset DC3, the DC3 being the last byte of its buffer
  kAgain1 = 19,    // … DC3 r … kAgain4 = 22: … DC3 rese
  kAgain4 = 22,
  kClear1 = 33,  // DC3 ( c
  kClear2 = 34,  // DC3 (cl
  kDle = 101,
  kDleDc4 = 102,
  kPulse = 103,   // DLE DC4 1
  kPulseM = 104,  // DLE DC4 1 m
};

constexpr BYTE kReset[] = {'r', 'e', 's', 'e', 't'};

// What a byte that is neither DC3 nor DLE does; rewrites it where a sequence is complete.
BYTE Step(BYTE byState, BYTE& by) noexcept {
  switch (byState) {
    case kDc3: return by == '(' ? kOpen : kIdle;
    case kOpen:
      if (by == 'r') return kReset1;
      return by == 'c' ? kClear1 : kIdle;
    case kReset1:
    case kReset1 + 1:
    case kReset1 + 2:
    case kReset1 + 3: return by == kReset[byState - kReset1 + 1] ? static_cast<State>(byState + 1) : kIdle;
    case kSplitDc3:
      if (by == 'r') return kAgain1;
      return by == '(' ? kOpen : kIdle;
    case kAgain1:
    case kAgain1 + 1:
    case kAgain1 + 2: return by == kReset[byState - kAgain1 + 1] ? static_cast<State>(byState + 1) : kIdle;
    case kAgain4:
      if (by == 't') by = 'v';
      return kIdle;
    case kClear1: return by == 'l' ? kClear2 : kIdle;
    case kClear2:
      if (by == 'r') by = 's';
      return kIdle;
    case kDle: return by == DC4 ? kDleDc4 : kIdle;
    case kDleDc4: return by == 0x01 ? kPulse : kIdle;
    case kPulse: return kPulseM;
    case kPulseM:
      if (by >= 0x01 && by <= 0x08) by |= 0x10;
      return kIdle;
    default: return kIdle;
  }
}

}  // namespace

BOOL IsCancelJob(IniPort* pIniPort) noexcept {
  LogT(L"pIniPort:0x%08x", LogAddress(pIniPort));
  const IniJob* pIniJob = pIniPort->pIniJob;
  if (pIniJob == nullptr || !pIniPort->bUseSdkSrv || pIniJob->hPrinter == nullptr) return FALSE;
  DWORD cb = 0;
  GetJobW(pIniJob->hPrinter, pIniJob->JobId, 1, nullptr, 0, &cb);
  const auto info = AllocBlock<JOB_INFO_1W>(cb);
  if (!info) return FALSE;
  DWORD cbNeeded = 0;
  if (!GetJobW(pIniJob->hPrinter, pIniJob->JobId, 1, reinterpret_cast<BYTE*>(info.get()), cb, &cbNeeded)) return FALSE;
  if ((info->Status & kCancelledStates) == 0) return FALSE;
  LogI(L"CANCEL,Status:0x%08x", info->Status);
  return TRUE;
}

BYTE MatchRealCmd(BYTE byState, BYTE* pBuf, DWORD cbBuf, DWORD& dwPosition) noexcept {
  BYTE& by = pBuf[dwPosition++];
  if (by == DLE) return kDle;
  if (by != DC3) return Step(byState, by);
  if (byState != kReset5) return kDc3;
  // The second half begins with a DC3 that may just as well begin a new sequence: the byte behind it decides.
  if (dwPosition == cbBuf) return kSplitDc3;
  if (pBuf[dwPosition] != 'r') return kDc3;
  ++dwPosition;
  return kAgain1;
}

void CheckRealCmd(IniPort* pIniPort, BYTE* pBuf, DWORD cbBuf) noexcept {
  LogT(L"pIniPort:0x%08x, cbBuf:%d", LogAddress(pIniPort), cbBuf);
  IniJob* pIniJob = pIniPort->pIniJob;
  if (cbBuf == 0 || pIniJob == nullptr) return;
  BYTE byState = pIniJob->realCmdState;
  for (DWORD dwPosition = 0; dwPosition < cbBuf;) byState = MatchRealCmd(byState, pBuf, cbBuf, dwPosition);
  pIniJob->realCmdState = byState;
}
