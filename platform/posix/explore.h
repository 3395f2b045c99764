// Every order of events of something small, within a bound.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace w32 {

// What is explored. The process has no other thread when the exploration begins; each run is a forked child of it.
struct Exploring {
  std::string strName;
  std::function<void()> play;                           // starts the threads and waits for their ends
  std::function<std::string()> outcome;                 // what one course of events came to
  std::function<bool(bool bFault, bool bShow)> finish;  // whether all holds; prints what does not
  int nPreemptions = 2;                                 // at most so many
  int nPreemptionsWithFault = 1;                        // then each failing call in turn, with so many; -1: none fails
  bool bEveryCall = false;                              // leave no crossing out, though nothing can come of it
  bool bFreshDrives = false;                            // runs write files: each gets drives as they are now
  std::string strFrom;                // places count from the first call of this name on; empty: from the beginning
  std::vector<std::string> affected;  // calls whose result what happens can change: it is tried right before them
};

struct Explored {
  std::uint64_t ullSchedules = 0;
  std::uint64_t ullWithFailingCall = 0;
  std::size_t nOutcomes = 0;
  std::uint64_t ullFingerprint = 0;  // of the set of outcomes
  double dSeconds = 0;
  std::string strFailed;   // the schedule that failed, with the fewest turns; empty: none did
  std::string strFailure;  // what it printed
};
Explored Explore(const Exploring& what);

// Runs one schedule ("12.1+40.2!7": at crossing 12 way 1, at crossing 40 way 2; fault point 7 fails) and tells it step by step.
// Returns whether all holds.
bool ShowSchedule(const Exploring& what, const std::string& strSchedule);

}  // namespace w32
