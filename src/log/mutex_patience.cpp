#include "log/mutex_patience.h"

#include <algorithm>

namespace {

constexpr DWORD kBudgetMs = 61'000;
constexpr DWORD kRecoveryMs = 600'000;
constexpr DWORD kLongWaitMs = 1000;
constexpr DWORD kAtOnceMs = 20;  // more than the tick count's grain
constexpr DWORD kAtOnceInARow = 10;

}  // namespace

DWORD MutexPatience::Limit(DWORD dwNow) noexcept {
  if (m_dwSpentMs != 0 && dwNow - m_dwLastCost >= kRecoveryMs) m_dwSpentMs = 0;
  if (m_bShort && m_nAtOnce >= kAtOnceInARow && dwNow - m_dwShortSince >= kRecoveryMs) m_bShort = false;
  const DWORD dwSpent = m_dwSpentMs;
  return std::min(m_bShort ? kShortMs : kLongMs, kBudgetMs - std::min(kBudgetMs, dwSpent));
}

void MutexPatience::Waited(DWORD dwStart, DWORD dwNow, bool bServed) noexcept {
  const DWORD dwWaited = dwNow - dwStart;
  if (dwWaited < kAtOnceMs) {
    if (m_bShort) m_nAtOnce = bServed ? m_nAtOnce + 1 : 0;
    return;
  }
  m_nAtOnce = 0;
  m_dwSpentMs += dwWaited;
  m_dwLastCost = dwNow;
  if (dwWaited <= kLongWaitMs) return;
  m_bShort = true;
  m_dwShortSince = dwNow;
}
