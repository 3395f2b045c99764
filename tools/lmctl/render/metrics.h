// Counters and gauges of the jobs, in the Prometheus text format.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>

#include "tools/lmctl/story/story.h"

namespace lmctl {

// What is counted of a queue's jobs for ever.
struct QueueCounts {
  std::map<std::string, std::uint64_t> jobs;  // by outcome
  std::uint64_t ullBytes = 0;
  std::uint64_t nSentAgain = 0;
  std::uint64_t nMaybeTwice = 0;
  std::uint64_t ullWaitedMs = 0;
  LocalMs llLastJob = 0;  // the last line of the last job
};

// What is true of it now.
struct QueueNow {
  std::uint64_t nInProgress = 0;
  LocalMs llSince = 0;  // the start of the oldest of them
};

struct Metrics {
  std::map<std::string, QueueCounts> counts;  // by queue, UTF-8
  std::map<std::string, QueueNow> now;
  std::uint64_t nLostNotes = 0;
  std::uint64_t nUnlisted = 0;

  void Count(const Story& story);
  void Write(std::FILE* pOut) const;
};

}  // namespace lmctl
