// The simulated world as the judge of what the administrator's tool reads out of the log.
#pragma once

#include <array>
#include <atomic>
#include <string>
#include <vector>

#include "tools/lmctl/story/story.h"
#include "tools/lmsim/job_truth.h"
#include "tools/lmsim/verdict.h"

// How many claims of each kind were told, at some combinations of levels: silence is no way out. Of all processes that judge.
struct ClaimCounts {
  static constexpr const char* kMasks[] = {"EWIDT", "EWID", "EWI", "EW"};
  std::array<std::atomic<std::uint64_t>, 4> jobs;
  std::array<std::array<std::atomic<std::uint64_t>, lmctl::kClaims>, 4> told;
  std::atomic<std::uint64_t> judged;  // told claims, of all combinations

  static ClaimCounts& Get();  // shared with the processes that are forked later
  void Print() const;
};

// A log, and what is known about it.
struct JudgedLog {
  std::string strText;
  bool bLinesLost = false;  // lines may be missing
  bool bClockSet = false;   // the clock was set back meanwhile
};

// Judges what is told of a log in which every level is on: of the whole log, of what every other combination of levels would have
// left of it, and of what is left when levels change, lines are cut off, files are gone or a process dies.
void JudgeAtEveryMask(const JudgedLog& log, const std::vector<JobTruth>& truths, unsigned nSeed, Verdict& verdict);
// … and of a log of some levels.
void JudgeOne(const JudgedLog& log, const std::vector<JobTruth>& truths, Verdict& verdict);
