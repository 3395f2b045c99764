// How long lines wait for the machine-wide mutex.
#include "log/mutex_patience.h"

#include <gtest/gtest.h>

namespace {

constexpr DWORD kTenMinutesMs = 600'000;

TEST(MutexPatience, AfterALongWaitTheNextAreShortUntilTenWereServedAtOnceAndTenMinutesHaveGone) {
  MutexPatience patience;
  EXPECT_EQ(patience.Limit(1000), MutexPatience::kLongMs);
  patience.Waited(1000, 2000, false);  // a second is not long
  EXPECT_EQ(patience.Limit(2000), MutexPatience::kLongMs);
  patience.Waited(2000, 3001, false);
  EXPECT_EQ(patience.Limit(3001), MutexPatience::kShortMs);
  for (int n = 0; n < 9; ++n) patience.Waited(4000, 4000, true);
  EXPECT_EQ(patience.Limit(3001 + kTenMinutesMs), MutexPatience::kShortMs);
  patience.Waited(4000, 4000, false);  // begins the row anew
  for (int n = 0; n < 10; ++n) patience.Waited(4000, 4000, true);
  EXPECT_EQ(patience.Limit(3000 + kTenMinutesMs), MutexPatience::kShortMs);
  EXPECT_EQ(patience.Limit(3001 + kTenMinutesMs), MutexPatience::kLongMs);
}

TEST(MutexPatience, AllWaitsTogetherCostAMinuteUntilTenMinutesHaveCostNothing) {
  MutexPatience patience;
  DWORD dwNow = 1;
  for (int n = 0; n < 60; ++n) {
    patience.Waited(dwNow, dwNow + 1000, true);
    dwNow += 2000;
  }
  EXPECT_EQ(patience.Limit(dwNow), 1000u);
  patience.Waited(dwNow, dwNow + 900, true);
  EXPECT_EQ(patience.Limit(dwNow + 900), 100u);
  patience.Waited(dwNow + 900, dwNow + 919, true);  // the clock's grain
  EXPECT_EQ(patience.Limit(dwNow + 919), 100u);
  EXPECT_EQ(patience.Limit(dwNow + 900 + kTenMinutesMs), MutexPatience::kLongMs);
}

}  // namespace
