// How long a loop waits that gets nowhere.
#ifndef _WIN32  // to the millisecond
#include "monitor/growing_pause.h"

#include "monitor/job_cancel.h"
#include "tests/support/world_test.h"

namespace {

TEST(GrowingPause, DoublesWhileNothingMovesAndACancelEndsIt) {
  IniJob job = {};
  job.hEventCancel = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  GrowingPause pause;
  const auto round = [&](DWORD dwWorkMs, bool bProgress) {
    pause.Begin();
    Sleep(dwWorkMs);
    const DWORD dwStart = GetTickCount();
    pause.End(bProgress, job);
    return GetTickCount() - dwStart;
  };
  for (const DWORD dwWait : {10u, 20u, 40u, 80u, 160u, 320u, 500u, 500u}) EXPECT_EQ(round(0, false), dwWait);
  EXPECT_EQ(round(50, false), 0u);  // it took its time
  EXPECT_EQ(round(0, true), 0u);
  EXPECT_EQ(round(49, false), 10u);
  NoteCancelled(job);
  EXPECT_EQ(round(0, false), 0u);
  CloseHandle(job.hEventCancel);
}

}  // namespace
#endif
