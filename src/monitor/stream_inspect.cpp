#include "monitor/stream_inspect.h"

#include <array>
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

// The byte that leads from a state to the next one of its sequence without any more ado.
struct Edge {
  BYTE byExpected = DLE;  // of a state without such a byte: DLE leads to the same state from everywhere
  BYTE byNext = kDle;
};

constexpr std::array<Edge, kPulseM + 1> MakeEdges() noexcept {
  std::array<Edge, kPulseM + 1> edges{};
  edges[kIdle] = {DC3, kDc3};
  edges[kDc3] = {'(', kOpen};
  edges[kOpen] = {'r', kReset1};
  constexpr BYTE kReset[] = {'e', 's', 'e', 't'};
  for (unsigned n = 0; n < 4; ++n) edges[kReset1 + n] = {kReset[n], static_cast<BYTE>(kReset1 + n + 1)};
  edges[kSplitDc3] = {'r', kAgain1};
  for (unsigned n = 0; n < 3; ++n) edges[kAgain1 + n] = {kReset[n], static_cast<BYTE>(kAgain1 + n + 1)};
  edges[kClear1] = {'l', kClear2};
  edges[kDle] = {DC4, kDleDc4};
  edges[kDleDc4] = {0x01, kPulse};
  return edges;
}
constexpr std::array<Edge, kPulseM + 1> kEdges = MakeEdges();

// What a byte that is neither the expected one nor DC3 or DLE does; rewrites it where a sequence is complete.
BYTE Leave(BYTE byState, BYTE& by) noexcept {
  switch (byState) {
    case kOpen: return by == 'c' ? kClear1 : kIdle;
    case kSplitDc3: return by == '(' ? kOpen : kIdle;  // its DC3 began a new sequence
    case kPulse: return kPulseM;
    case kAgain4:
      if (by == 't') by = 'v';
      return kIdle;
    case kClear2:
      if (by == 'r') by = 's';
      return kIdle;
    case kPulseM:
      if (by >= 0x01 && by <= 0x08) by |= 0x10;
      return kIdle;
    default: return kIdle;
  }
}

// A run of DLEs or DC3s leads to where its last one does.
DWORD LastOfRun(const BYTE* pBuf, DWORD cbBuf, DWORD n) noexcept {
  const BYTE by = pBuf[n];
  while (n + 1 < cbBuf && pBuf[n + 1] == by) ++n;
  return n;
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
  for (DWORD n = 0; n < cbBuf; ++n) {
    BYTE& by = pBuf[n];
    const Edge& edge = kEdges[byState];
    if (by == edge.byExpected) {
      byState = edge.byNext;
    } else if (byState == kIdle && by != DLE) {
      n = FindRealCmd(pBuf, cbBuf, n + 1) - 1;
    } else if (by == DLE) {
      byState = kDle;
      n = LastOfRun(pBuf, cbBuf, n);
    } else if (by != DC3) {
      byState = Leave(byState, by);
    } else if (byState != kReset5) {
      byState = kDc3;
      n = LastOfRun(pBuf, cbBuf, n);
    } else if (n + 1 == cbBuf) {
      byState = kSplitDc3;
    } else if (pBuf[n + 1] == 'r') {
      ++n;
      byState = kAgain1;
    } else {
      byState = kDc3;  // the second half's DC3 begins a new sequence just as well
    }
  }
  pIniJob->realCmdState = byState;
}
