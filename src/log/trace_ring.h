// The last 32 trace records: short notes of calls that were not written, kept for the next error line.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>

// Room for all records as text: 32 of at most 127 characters.
inline constexpr std::size_t kTraceTextBytes = 4160;

class CTraceRing {
 public:
  CTraceRing() noexcept { InitializeCriticalSection(&m_cs); }
  ~CTraceRing() { DeleteCriticalSection(&m_cs); }
  CTraceRing(const CTraceRing&) = delete;
  CTraceRing& operator=(const CTraceRing&) = delete;

  // Adds one record in the place of the oldest; no text is made yet. pszRoutine stays while the module is loaded.
  void Push(DWORD dwProcessId, DWORD dwThreadId, const char* pszRoutine, int nLine) noexcept;
  // Takes all records out, as lines, oldest first. The text may be empty.
  const char* Collect(char (&szText)[kTraceTextBytes]) noexcept;

 private:
  static constexpr unsigned kSlots = 32;

  struct Record {
    SYSTEMTIME stTime;  // all zero: a free slot
    DWORD dwProcessId;
    DWORD dwThreadId;
    const char* pszRoutine;
    int nLine;
  };

  CRITICAL_SECTION m_cs;  // guards all below
  Record m_records[kSlots] = {};
  std::uint8_t m_byCounter = 0;  // records ever pushed, modulo 256; the next goes to slot counter mod 32
};
