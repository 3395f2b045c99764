// The last 32 trace records: short notes of calls that were not written, kept for the next error line.
#pragma once

#include <windows.h>

#include <cstdint>

struct LogThreadBuffers;

class CTraceRing {
 public:
  CTraceRing() noexcept { InitializeCriticalSection(&m_cs); }
  ~CTraceRing() { DeleteCriticalSection(&m_cs); }
  CTraceRing(const CTraceRing&) = delete;
  CTraceRing& operator=(const CTraceRing&) = delete;

  // Adds one record in the place of the oldest. One bounded format into a fixed slot; no allocation.
  void Push(DWORD dwProcessId, DWORD dwThreadId, const char* pszRoutine, int nLine) noexcept;
  // Takes all records out, oldest first, joined in the buffers' collection text. The text may be empty.
  const char* Collect(LogThreadBuffers& buffers) noexcept;

 private:
  static constexpr unsigned kSlots = 32;
  static constexpr unsigned kSlotBytes = 128;

  CRITICAL_SECTION m_cs;                    // guards all below
  char m_szSlots[kSlots][kSlotBytes] = {};  // an empty text is a free slot
  std::uint8_t m_byCounter = 0;             // records ever pushed, modulo 256; the next goes to slot counter mod 32
};
