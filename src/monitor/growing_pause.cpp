#include "monitor/growing_pause.h"

#include <algorithm>

namespace {

constexpr DWORD kLongestMs = 500;
// A round that took longer cannot spin.
constexpr DWORD kAtOnceMs = 50;

}  // namespace

void GrowingPause::End(bool bProgress, const IniJob& job) noexcept {
  if (bProgress) m_dwNextMs = kFirstMs;
  if (bProgress || GetTickCount() - m_dwStart >= kAtOnceMs) return;
  WaitForSingleObject(job.hEventCancel, m_dwNextMs);
  m_dwNextMs = std::min(2 * m_dwNextMs, kLongestMs);
}
