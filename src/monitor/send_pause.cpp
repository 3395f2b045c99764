#include "monitor/send_pause.h"

namespace {

constexpr DWORD kQuickMs = 50;
constexpr DWORD kQuickFailures = 16;
constexpr DWORD kRefusedPauseMs = 500;

}  // namespace

void SendPause::End(bool bFailed, DWORD cbWritten, const IniJob& job) noexcept {
  if (cbWritten > 0) {
    m_nQuickFailures = 0;
    return;
  }
  const bool bQuickFailure = bFailed && GetTickCount() - m_dwStart < kQuickMs;
  // Once the loop pauses, only bytes that are taken end that.
  if (m_nQuickFailures < kQuickFailures) m_nQuickFailures = bQuickFailure ? m_nQuickFailures + 1 : 0;
  if (bFailed && m_nQuickFailures == kQuickFailures) WaitForSingleObject(job.hEventCancel, kRefusedPauseMs);
}
