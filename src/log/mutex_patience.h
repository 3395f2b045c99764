// How long a line may wait for the machine-wide mutex, whoever holds it and in whatever rhythm.
//
// The first wait may last a minute. After one of more than a second, waits last 50 ms at most until ten in a row were served
// at once and ten minutes have gone; and all of them together cost at most 61 s until ten minutes have gone by in which none
// cost anything. A wait that the clock's grain hardly shows counts as none: our own processes take turns like that.
#pragma once

#include <windows.h>

#include <atomic>

class MutexPatience {
 public:
  static constexpr DWORD kLongMs = 60'000;
  static constexpr DWORD kShortMs = 50;

  // The longest that a wait which begins now may take. Any thread.
  DWORD Limit(DWORD dwNow) noexcept;
  // Behind a wait that began at dwStart and has ended now. Any thread.
  void Waited(DWORD dwStart, DWORD dwNow, bool bServed) noexcept;

 private:
  // Each is one word, and two threads that meet here only measure a little less exactly.
  std::atomic<bool> m_bShort{false};
  std::atomic<DWORD> m_dwShortSince{0};
  std::atomic<DWORD> m_nAtOnce{0};     // in a row
  std::atomic<DWORD> m_dwSpentMs{0};   // since waits began to cost something
  std::atomic<DWORD> m_dwLastCost{0};  // when the last one did
};
