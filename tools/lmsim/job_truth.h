// What the simulated world knows of a job that went through it: the truth beside which stories are held.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/journal.h"
#include "sim/spooler.h"
#include "tools/lmctl/log/log_line.h"

// One time that the spooler took a job through the monitor; a job that is restarted has several.
struct Attempt {
  DWORD dwId = 0;
  unsigned nOfJob = 0;  // 0: its first
  sim::PrintResult result;
  lmctl::LocalMs llFirst = 0, llLast = 0;  // local time
  DWORD dwEnded = 0;                       // GetTickCount
  bool bOnPortMonitor = false;
};

struct JobTruth {
  long long nJob = 0;
  std::string strQueue;
  std::string strPort;
  lmctl::LocalMs llFirst = 0, llLast = 0;  // all that is told of it lies between; 0: not known
  bool bStarted = false;
  bool bDelivered = false;
  bool bOnPortMonitor = false;
  bool bMayBeCancelled = false;   // the user deleted or restarted it
  bool bMustBeCancelled = false;  // … and the monitor had the time to see it
  bool bConfirmed = false;        // the last that the printer was asked is to confirm it
  bool bCameAgain = false;        // data of it went out in another attempt as well
  unsigned dwError = 0;
  std::int64_t nBytes = 0;
  std::int64_t nReprints = 0;
  std::uint64_t ullSent = 0;  // bytes that went to the device, all in all
  DWORD dwChanged = 0;        // when the user changed it; 0: never
};

lmctl::LocalMs LocalNow();

// Notes in the queue's journal where an attempt begins and where it is over.
void NoteBegin(sim::Journal& journal, const std::string& strQueue, DWORD dwId);
void NoteEnd(sim::Journal& journal, const std::string& strQueue, DWORD dwId);

// What its queue's events tell of an attempt; what the user did to it is not among that.
JobTruth TruthOf(const Attempt& attempt, const std::string& strQueue, const std::string& strPort,
                 const std::vector<sim::Journal::Event>& events);
