// The simulated world as the judge of what the administrator's tool reads out of the log.
#pragma once

#include <array>
#include <atomic>
#include <string>
#include <vector>

#include "tools/lmctl/story/story.h"
#include "tools/lmsim/verdict.h"

// What the world knows of a job.
struct JobTruth {
  long long nJob = 0;
  std::string strQueue;
  std::string strPort;
  bool bStarted = false;
  bool bDelivered = false;
  bool bOnPortMonitor = false;
  bool bMayBeCancelled = false;   // the user deleted or restarted it
  bool bMustBeCancelled = false;  // … and the monitor had the time to see it
  bool bConfirmed = false;        // the last that the printer was asked is to confirm it
  unsigned dwError = 0;
  std::int64_t nBytes = 0;
  std::int64_t nReprints = 0;
};

// How many claims of each kind were told, at some combinations of levels: silence is no way out. Of all processes that judge.
struct ClaimCounts {
  static constexpr const char* kMasks[] = {"EWIDT", "EWID", "EWI", "EW"};
  std::array<std::atomic<std::uint64_t>, 4> jobs;
  std::array<std::array<std::atomic<std::uint64_t>, lmctl::kClaims>, 4> told;
  std::atomic<std::uint64_t> judged;  // told claims, of all combinations

  static ClaimCounts& Get();  // shared with the processes that are forked later
  void Print() const;
};

// Judges what is told of a log in which every level is on: of the whole log, of what every other combination of levels would have
// left of it, and of one whose levels change. bLinesLost: lines may be missing.
void JudgeAtEveryMask(const std::string& strLog, const std::vector<JobTruth>& truths, bool bLinesLost, unsigned nSeed,
                      Verdict& verdict);
// … and of a log of some levels.
void JudgeOne(const std::string& strLog, const std::vector<JobTruth>& truths, bool bLinesLost, Verdict& verdict);
