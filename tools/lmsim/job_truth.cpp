#include "tools/lmsim/job_truth.h"

#include <cstdio>

#include "sim/world.h"

namespace {

constexpr unsigned kQuestionTimeoutMs = 10'000;  // with which the printer is asked, unlike data

std::string Begin(DWORD dwId) { return sim::Format("begins: job %u", static_cast<unsigned>(dwId)); }
std::string End(DWORD dwId) { return sim::Format("over: job %u", static_cast<unsigned>(dwId)); }

}  // namespace

lmctl::LocalMs LocalNow() {
  SYSTEMTIME st;
  GetLocalTime(&st);
  return lmctl::MakeTime(st.wYear, st.wMonth, st.wDay, st.wHour, st.wMinute, st.wSecond, st.wMilliseconds);
}

void NoteBegin(sim::Journal& journal, const std::string& strQueue, DWORD dwId) { journal.Add(Begin(dwId), strQueue); }
void NoteEnd(sim::Journal& journal, const std::string& strQueue, DWORD dwId) { journal.Add(End(dwId), strQueue); }

JobTruth TruthOf(const Attempt& attempt, const std::string& strQueue, const std::string& strPort,
                 const std::vector<sim::Journal::Event>& events) {
  const auto id = static_cast<unsigned>(attempt.dwId);
  JobTruth truth;
  truth.nJob = id;
  truth.strQueue = strQueue;
  truth.strPort = strPort;
  truth.llFirst = attempt.llFirst;
  truth.llLast = attempt.llLast;
  truth.bStarted = attempt.result.bStarted;
  truth.bDelivered = attempt.result.bDelivered;
  truth.dwError = attempt.result.dwError;
  truth.nBytes = static_cast<std::int64_t>(attempt.result.ullDelivered);
  truth.bOnPortMonitor = attempt.bOnPortMonitor;
  unsigned nBegun = 0;
  bool bEnding = false;
  std::uint64_t ullResent = 0;
  unsigned nRestOfQuestion = 0;
  for (const sim::Journal::Event& event : events) {
    if (event.strText == Begin(attempt.dwId)) ++nBegun;
    if (nBegun != attempt.nOfJob + 1) continue;
    if (event.strText == End(attempt.dwId)) break;
    if (event.strText == sim::Format("SetJob %u sent-to-printer", id)) bEnding = true;
    if (event.strText.starts_with(sim::Format("user changes job %u:", id))) truth.dwChanged = event.dwTime;
    unsigned nTaken = 0, nOffered = 0, nTimeout = 0;
    const bool bSend =
        std::sscanf(event.strText.c_str(), "sdk send %u/%u timeout=%u", &nTaken, &nOffered, &nTimeout) == 3;
    if (bSend && nTimeout != kQuestionTimeoutMs) truth.ullSent += nTaken;
    if (!bEnding) continue;
    if (event.strText.starts_with("sdk SDK_SET_RESET")) ullResent = 0;
    if (!bSend) continue;
    // A question goes on where a part of it was taken.
    if (nTimeout != kQuestionTimeoutMs || nOffered != nRestOfQuestion)
      truth.bConfirmed = nTimeout == kQuestionTimeoutMs && (nOffered == 6 || nOffered == 2);
    nRestOfQuestion = nTimeout == kQuestionTimeoutMs ? nOffered - nTaken : 0;
    if (nTimeout != kQuestionTimeoutMs) ullResent += nTaken;
    if (nTimeout != kQuestionTimeoutMs && ullResent == attempt.result.ullDelivered) ++truth.nReprints;
  }
  if (truth.bOnPortMonitor) truth.ullSent = attempt.result.ullDelivered;
  return truth;
}
