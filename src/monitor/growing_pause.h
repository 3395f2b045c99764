// The pause of a loop that gets nowhere: of sends that take no byte and come back at once, of passes that change nothing.
#pragma once

#include <windows.h>

#include "monitor/records.h"

// One a loop. Grows from 10 ms by doubling to 500 ms a round, and begins anew when a round got somewhere. A round that took
// its time needs no pause.
class GrowingPause {
 public:
  // At the beginning of a round; notes the time.
  void Begin() noexcept { m_dwStart = GetTickCount(); }
  // At its end. bProgress: bytes were taken. Waits on the job's cancel event, which ends the pause.
  void End(bool bProgress, const IniJob& job) noexcept;

 private:
  static constexpr DWORD kFirstMs = 10;
  DWORD m_dwStart = 0;
  DWORD m_dwNextMs = kFirstMs;
};
