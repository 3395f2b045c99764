#include "log/trace_ring.h"

#include <cstdio>
#include <cstring>

#include "base/owners.h"

void CTraceRing::Push(DWORD dwProcessId, DWORD dwThreadId, const char* pszRoutine, int nLine) noexcept {
  SYSTEMTIME st;
  GetLocalTime(&st);
  const SectionLock lock(m_cs);
  m_records[m_byCounter % kSlots] = {st, dwProcessId, dwThreadId, pszRoutine, nLine};
  ++m_byCounter;
}

const char* CTraceRing::Collect(char (&szText)[kTraceTextBytes]) noexcept {
  constexpr std::size_t kRecordBytes = 128;
  constexpr std::size_t kCutAt = 125;
  char* pszEnd = szText;
  *pszEnd = 0;
  const SectionLock lock(m_cs);
  for (unsigned k = kSlots; k >= 1; --k) {
    Record& record = m_records[static_cast<std::uint8_t>(m_byCounter - k) % kSlots];
    if (record.stTime.wYear == 0) continue;
    pszEnd[kCutAt] = 0;
    std::snprintf(pszEnd, kRecordBytes, "$$$ [%02d:%02d(%02d.%03d)] [%08x(%08x)] %s(%d)\r\n", record.stTime.wHour,
                  record.stTime.wMinute, record.stTime.wSecond, record.stTime.wMilliseconds,
                  static_cast<unsigned>(record.dwProcessId), static_cast<unsigned>(record.dwThreadId),
                  record.pszRoutine != nullptr ? record.pszRoutine : "", record.nLine);
    // A record that did not fit keeps its first 125 characters and still ends its line; one whose own line feed stands
    // just here is whole.
    if (std::strlen(pszEnd) > kCutAt && pszEnd[kCutAt] != '\n') std::memcpy(pszEnd + kCutAt, "\r\n", 3);
    pszEnd += std::strlen(pszEnd);
    record.stTime.wYear = 0;
  }
  return szText;
}
