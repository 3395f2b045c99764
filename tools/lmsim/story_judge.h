// The simulated world as the judge of what the administrator's tool reads out of the log.
#pragma once

#include <string>
#include <vector>

#include "tools/lmctl/job_story.h"
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

// The stories of a log's text.
std::vector<lmctl::Story> StoriesOf(const std::string& strLog);

// bAllLevels: every member must be told; otherwise what is told must be true. bLinesLost: jobs may be missing.
void Judge(const std::vector<lmctl::Story>& stories, const std::vector<JobTruth>& truths, bool bAllLevels,
           bool bLinesLost, Verdict& verdict);
