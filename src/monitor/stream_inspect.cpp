#include "monitor/stream_inspect.h"

#include <bit>
#include <cstdint>
#include <cstring>

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

// ---- the search for the next byte that can begin a sequence -------------------------------------------------------------

constexpr unsigned kRowBytes = 128;

using Bytes16 = BYTE __attribute__((vector_size(16)));
using Halves = std::uint64_t __attribute__((vector_size(16)));

constexpr Bytes16 kAllDle = {DLE, DLE, DLE, DLE, DLE, DLE, DLE, DLE, DLE, DLE, DLE, DLE, DLE, DLE, DLE, DLE};

bool IsCommandByte(BYTE by) noexcept { return by == DLE || by == DC3; }

Bytes16 Load(const BYTE* p) noexcept {
  Bytes16 bytes;
  std::memcpy(&bytes, p, sizeof bytes);
  return bytes;
}

Bytes16 Least(Bytes16 a, Bytes16 b) noexcept { return a < b ? a : b; }

bool HasByteBelow4(Bytes16 bytes) noexcept {
  const auto below = reinterpret_cast<Halves>(bytes < 4);
  return (below[0] | below[1]) != 0;
}

// The lowest byte of a word that is zero, as its top bit; bits above it mean nothing.
std::uint64_t LowestZero(std::uint64_t ull) noexcept {
  return (ull - 0x0101010101010101u) & ~ull & 0x8080808080808080u;
}

// The index of the first DLE or DC3 among eight bytes; 8 when there is none.
unsigned CommandByteIn(const BYTE* p) noexcept {
  std::uint64_t ull = 0;
  std::memcpy(&ull, p, sizeof ull);  // little-endian, as all machines of the monitor
  const std::uint64_t ullFound =
      LowestZero(ull ^ (DLE * 0x0101010101010101u)) | LowestZero(ull ^ (DC3 * 0x0101010101010101u));
  return ullFound != 0 ? static_cast<unsigned>(std::countr_zero(ullFound)) / 8 : 8;
}

}  // namespace

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

DWORD FindRealCmd(const BYTE* pBuf, DWORD cbBuf, DWORD dwPosition) noexcept {
  // Rows of vectors are looked at together: the smallest byte after DLE was taken out bit by bit is below 4 exactly where
  // one of the four values 10h to 13h stands. A row that has one is looked through word by word.
  for (; cbBuf - dwPosition >= kRowBytes; dwPosition += kRowBytes) {
    const BYTE* pRow = pBuf + dwPosition;
    Bytes16 least = Load(pRow) ^ kAllDle;
    for (unsigned n = 1; n < kRowBytes / sizeof(Bytes16); ++n)
      least = Least(least, Load(pRow + n * sizeof(Bytes16)) ^ kAllDle);
    if (!HasByteBelow4(least)) continue;
    for (unsigned n = 0; n < kRowBytes; n += sizeof(std::uint64_t)) {
      const unsigned nAt = CommandByteIn(pRow + n);
      if (nAt < sizeof(std::uint64_t)) return dwPosition + n + nAt;
    }
  }
  for (; cbBuf - dwPosition >= sizeof(std::uint64_t); dwPosition += sizeof(std::uint64_t)) {
    const unsigned nAt = CommandByteIn(pBuf + dwPosition);
    if (nAt < sizeof(std::uint64_t)) return dwPosition + nAt;
  }
  while (dwPosition < cbBuf && !IsCommandByte(pBuf[dwPosition])) ++dwPosition;
  return dwPosition;
}

void CheckRealCmd(IniPort* pIniPort, BYTE* pBuf, DWORD cbBuf) noexcept {
  LogT(L"pIniPort:0x%08x, cbBuf:%d", LogAddress(pIniPort), cbBuf);
  IniJob* pIniJob = pIniPort->pIniJob;
  if (cbBuf == 0 || pIniJob == nullptr) return;
  BYTE byState = pIniJob->realCmdState;
  for (DWORD dwPosition = 0; dwPosition < cbBuf;) {
    if (byState == kIdle && !IsCommandByte(pBuf[dwPosition])) {
      dwPosition = FindRealCmd(pBuf, cbBuf, dwPosition + 1);
      if (dwPosition == cbBuf) break;
    }
    byState = MatchRealCmd(byState, pBuf, cbBuf, dwPosition);
  }
  pIniJob->realCmdState = byState;
}
