// A random world, as it was drawn: what disturbs it, its ports and their jobs, and what came of them.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "sim/spooler.h"
#include "tools/lmsim/job_truth.h"

inline constexpr DWORD kCancelled = JOB_STATUS_DELETING | JOB_STATUS_DELETED | JOB_STATUS_RESTART;

// What a world has beside its printers' faults.
struct WorldKind {
  bool bHostile = false;  // platform calls fail at random: nothing may crash, hang or leak, and no more is asked for
  bool bLostWatchers = false;  // watchers that cannot start, or that end early
  bool bLogHeld = false;       // somebody has the log's mutex
  bool bLinks = false;         // somebody puts links in the place of folders
  bool bOthers = false;        // programs and users have to do with the files
  bool bTiny = false;          // jobs of no bytes to eight, as short as a question: only their stories are looked at
  bool bRestarts = false;      // the spooler prints again what the user restarts
  bool bIntruders = false;     // jobs are started on ports that are busy
  bool bParts = false;         // the port monitor takes writes in part, or not at all
  bool bClockSet = false;      // back, by an hour

  bool LinesMayBeLost() const { return bLogHeld || bLinks || bOthers; }
};

enum class Afterwards { Stays, TakenBack, Leaves };

struct RandomJob {
  DWORD dwId = 0;
  std::string strData;
  DWORD dwUserChange = 0;  // what the user does to it: status bits
  DWORD dwChangeAfter = 0;
  Afterwards afterwards = Afterwards::Stays;  // what becomes of the bits
  DWORD dwAfterwards = 0;
  std::vector<Attempt> attempts;  // the second: after the spooler restarted it
  DWORD dwIntruder = 0;  // a job that is started on the port, which may be busy, so long after this one; 0: none
  DWORD dwIntrudesAfter = 0;
  Attempt intrusion;

  bool IsCancelled() const { return (dwUserChange & kCancelled) != 0; }
};

struct PortPlan {
  std::string strPort;
  std::string strQueue;
  std::string strRoot;  // of its archive; empty when it has none
  HANDLE hPort = nullptr;
  bool bSettingGoesAway = false;  // "AutoReprint" becomes 0 after the first job
  std::vector<RandomJob> jobs;
};
