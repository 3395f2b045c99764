// The pause of a loop that sends until everything is out: none, except where the device refuses everything at once.
#pragma once

#include <windows.h>

#include "monitor/records.h"

// Counts the sends of one loop. After 16 failures in a row that each came back in less than 50 ms it makes the loop wait on
// the job's cancel event between sends, until a send takes bytes again.
class SendPause {
 public:
  // Before a send; notes the time.
  void Begin() noexcept { m_dwStart = GetTickCount(); }
  // Behind it. bFailed: the library reported an error other than its time-out. Pauses for 500 ms at most.
  void End(bool bFailed, DWORD cbWritten, const IniJob& job) noexcept;

 private:
  DWORD m_dwStart = 0;
  DWORD m_nQuickFailures = 0;
};
