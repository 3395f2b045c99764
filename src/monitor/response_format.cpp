#include "monitor/response_format.h"

#include <cstring>

#include "monitor/log_module.h"

namespace {

bool IsHeader(BYTE by, bool bOneByte) noexcept { return bOneByte ? (by & 0xC0) == 0x40 : (by & 0xF0) == 0xC0; }
bool IsData(BYTE by) noexcept { return (by & 0xF0) == 0xD0; }
bool IsExecResponse(BYTE by, bool bOneByte) noexcept {
  return bOneByte ? by == kShortExecResponse : (by & 0xF0) == 0x80;
}
bool IsBlankStatus(const BYTE* p, std::size_t cb) noexcept {
  return cb >= sizeof kBlankStatus && std::memcmp(p, kBlankStatus, sizeof kBlankStatus) == 0;
}

// A status as a number: its bytes in little-endian order.
std::uint64_t StatusValue(const BYTE* p, std::size_t cb) noexcept {
  std::uint64_t ull = 0;
  for (std::size_t n = 0; n < cb; ++n) ull |= static_cast<std::uint64_t>(p[n]) << (8 * n);
  return ull;
}

}  // namespace

BOOL LmAnalyzeRespData(BYTE* pBuf, DWORD cbReceived, DWORD* pdwKept, DWORD* pdwPosition, DWORD dwFlags) noexcept {
  if (pBuf == nullptr || cbReceived == 0 || pdwKept == nullptr) {
    AssertHere();
    return FALSE;
  }
  const bool bOneByte = (dwFlags & kAnalyzeOneByteStatus) != 0;
  enum class State { None, InStatus, Complete } state = State::None;
  DWORD dwKept = 0;
  DWORD dwPosition = 0;
  DWORD cbStatus = 0;
  for (DWORD n = 0; n < cbReceived; ++n) {
    const BYTE by = pBuf[n];
    if (IsHeader(by, bOneByte)) {
      dwPosition = n;
      cbStatus = 1;
      pBuf[dwKept++] = by;
      state = bOneByte ? State::Complete : State::InStatus;
    } else if (IsExecResponse(by, bOneByte)) {
      pBuf[dwKept++] = by;
      state = State::Complete;
    } else if (state == State::InStatus) {
      if (by == 0x00) {
        state = State::Complete;
      } else if (IsData(by)) {
        pBuf[dwKept++] = by;
        if (++cbStatus == kLongStatusBytes) state = State::Complete;
      }
    } else if (bOneByte && IsBlankStatus(pBuf + n, cbReceived - n)) {
      std::memmove(pBuf + dwKept, pBuf + n, sizeof kBlankStatus);
      dwKept += sizeof kBlankStatus;
      n += sizeof kBlankStatus - 1;
      state = State::Complete;
    }
  }
  *pdwKept = dwKept;
  std::memset(pBuf + dwKept, 0, cbReceived - dwKept);
  if (state == State::None) {
    LogW(L"-> No response");
    return FALSE;
  }
  const bool bComplete = state == State::Complete;
  if (!bComplete) LogW(L"-> Footer lacks");
  if (pdwPosition != nullptr) *pdwPosition = bComplete ? 0 : dwPosition;
  return bComplete;
}

ScanResult ScanResponses(std::span<const BYTE> kept, const ResponseQuery& query, std::uint64_t& ullStatus) noexcept {
  LOG_AS("WaitExecRespAndStatus");
  const std::size_t cbStatus = query.bOneByteStatus ? kShortStatusBytes : kLongStatusBytes;
  ScanResult result = ScanResult::Nothing;
  for (std::size_t n = 0; n < kept.size(); ++n) {
    const BYTE* p = kept.data() + n;
    const std::size_t cbRest = kept.size() - n;
    const bool bBlank = IsBlankStatus(p, cbRest);
    if (bBlank) {
      ullStatus = StatusValue(p, sizeof kBlankStatus);
    } else if (IsHeader(*p, query.bOneByteStatus)) {
      if (cbRest < cbStatus) {
        AssertHere();
        continue;
      }
      ullStatus = StatusValue(p, cbStatus);
    } else {
      if (query.bWaitExecResp && *p == query.byExecResponse) return ScanResult::Done;
      continue;
    }
    const bool bStop = bBlank || (query.ullStopMask & ullStatus) != 0;
    if (query.bWaitExecResp) {
      if (bStop) return ScanResult::Stopped;
    } else {
      result = bStop ? ScanResult::NotPrintable : ScanResult::Done;
      if (!bStop) LogT(L"[Port:%s]Detected printable status", query.pszPortName);
    }
  }
  return result;
}

DWORD IncompleteTail(std::span<const BYTE> kept) noexcept {
  DWORD cb = 0;
  while (cb < kept.size() && IsData(kept[kept.size() - 1 - cb])) ++cb;
  return cb < kept.size() && IsHeader(kept[kept.size() - 1 - cb], false) ? cb + 1 : 0;
}

bool BeginsNewStatus(std::span<const BYTE> received) noexcept {
  for (const BYTE by : received) {
    if (IsHeader(by, false)) return true;
    if (IsData(by)) return false;
  }
  return false;
}

DWORD BlankStatusTail(std::span<const BYTE> received) noexcept {
  DWORD cb = 0;
  while (cb < received.size() && received[received.size() - 1 - cb] == 0xD0) ++cb;
  const bool bHeader = cb < received.size() && received[received.size() - 1 - cb] == 0xC0;
  return bHeader && cb + 1 < kLongStatusBytes ? cb + 1 : 0;
}
