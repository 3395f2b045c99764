#include "log/trace_ring.h"

#include <cstdio>
#include <cstring>

#include "base/owners.h"
#include "log/log_message.h"

void CTraceRing::Push(DWORD dwProcessId, DWORD dwThreadId, const char* pszRoutine, int nLine) noexcept {
  SYSTEMTIME st;
  GetLocalTime(&st);
  const SectionLock lock(m_cs);
  char* pszSlot = m_szSlots[m_byCounter % kSlots];
  pszSlot[125] = 0;
  std::snprintf(pszSlot, kSlotBytes, "$$$ [%02d:%02d(%02d.%03d)] [%08x(%08x)] %s(%d)\r\n", st.wHour, st.wMinute,
                st.wSecond, st.wMilliseconds, static_cast<unsigned>(dwProcessId), static_cast<unsigned>(dwThreadId),
                pszRoutine != nullptr ? pszRoutine : "", nLine);
  // A record that did not fit keeps its first 125 characters and still ends its line; one whose own line feed stands
  // just here is whole.
  if (std::strlen(pszSlot) > 125 && pszSlot[125] != '\n') std::memcpy(pszSlot + 125, "\r\n", 3);
  ++m_byCounter;
}

const char* CTraceRing::Collect(LogThreadBuffers& buffers) noexcept {
  char* pszEnd = buffers.szCollect;
  *pszEnd = 0;
  const SectionLock lock(m_cs);
  for (unsigned k = kSlots; k >= 1; --k) {
    char* pszSlot = m_szSlots[static_cast<std::uint8_t>(m_byCounter - k) % kSlots];
    const std::size_t cb = std::strlen(pszSlot);
    std::memcpy(pszEnd, pszSlot, cb + 1);
    pszEnd += cb;
    *pszSlot = 0;
  }
  return buffers.szCollect;
}
