#include "tools/lmsim/random_checks.h"

#include <algorithm>
#include <map>

namespace {

// A deletion is noticed within one poll of the job's watcher; the rest is for the transfer that is under way.
constexpr DWORD kNoticedMs = 600;
// A deleted job is over within a second, and what the call takes that it is in: a transfer that nobody can cancel, a log
// that somebody holds.
constexpr DWORD kEndsMs = 1500;
constexpr DWORD kLockMs = 3000;  // that the device's lock is waited for
constexpr DWORD kLongestTransferMs = 90'000;
constexpr DWORD kLongestLogWaitMs = 62'000;

// Offers of one buffer that take nothing; a printer that is not ready makes the write wait instead.
constexpr unsigned kMostOffers = 40;

std::size_t CountIn(const std::string& strText, const std::string& strPart) {
  std::size_t n = 0;
  for (std::size_t nAt = strText.find(strPart); nAt != std::string::npos; nAt = strText.find(strPart, nAt + 1)) ++n;
  return n;
}

// From the moment on when a deletion was noticed nothing is sent, and the device is cleared behind the job.
void CheckCancelled(const sim::World& world, const WorldKind& kind, const PortPlan& port, const RandomJob& job,
                    Verdict& verdict) {
  const auto id = static_cast<unsigned>(job.dwId);
  const std::string strEnd = sim::Format("over: job %u", id);
  const std::string strSent = sim::Format("SetJob %u sent-to-printer", id);
  const std::string strChange = sim::Format("user changes job %u:", id);
  // What was there for less than a poll may have been seen by nobody; the watch begins behind the wait for
  // the device's lock, before the first transfer.
  if (job.afterwards != Afterwards::Stays) {
    if (kind.bLostWatchers || kind.bLogHeld) return;
    DWORD dwBegun = 0;
    DWORD dwGone = 0;
    bool bLocking = false;
    for (const sim::Journal::Event& event : world.journal.EventsOf(port.strQueue)) {
      if (event.strText == strEnd) break;
      if (event.strText.starts_with("sdk SDK_SET_LOCK")) bLocking = true;
      if (bLocking && event.strText.starts_with("transfer begins")) {
        dwBegun = std::max(dwBegun, event.dwTime);
        bLocking = false;
      }
      if (event.strText.starts_with(strChange)) {
        dwBegun = std::max(dwBegun, event.dwTime);
        dwGone = event.dwTime + job.dwAfterwards;
      }
    }
    if (dwGone <= dwBegun + kNoticedMs) return;
  }
  DWORD dwLocked = 0;
  DWORD dwNoticed = 0;
  DWORD dwChanged = 0;
  bool bEnding = false;
  bool bMustClear = false;
  std::string strLast;  // of the requests that clear the device
  std::string strBeforeLast;
  for (const sim::Journal::Event& event : world.journal.EventsOf(port.strQueue)) {
    if (event.strText == strEnd) break;
    if (event.strText == strSent) bEnding = true;
    if (event.strText.starts_with("sdk SDK_SET_LOCK")) dwLocked = event.dwTime;
    if (event.strText.starts_with(strChange)) {
      dwChanged = event.dwTime;
      dwNoticed = event.dwTime + kNoticedMs;
      bMustClear = !bEnding && !kind.bLostWatchers;  // a query that fails tells nothing
    }
    if (event.strText.starts_with("sdk SDK_CANCEL_IO_EX") || event.strText.starts_with("sdk SDK_SET_RESET")) {
      strBeforeLast = strLast;
      strLast = event.strText;
    }
    if (dwNoticed != 0 && event.strText.starts_with("transfer begins")) {
      verdict.AtMost(event.dwTime, std::max(dwNoticed, dwLocked + kNoticedMs), "time of a transfer after its deletion");
    }
  }
  if (dwChanged != 0) {
    const DWORD dwCall = (kind.bLostWatchers ? kLongestTransferMs : 0) + (kind.bLogHeld ? kLongestLogWaitMs : 0);
    verdict.AtMost(job.attempts[0].dwEnded, std::max(dwChanged, dwLocked + kLockMs) + kEndsMs + dwCall,
                   "end after its deletion");
  }
  if (!bMustClear) return;
  verdict.Equal(strBeforeLast, "sdk SDK_CANCEL_IO_EX timeout=0", "last but one of the clearing requests");
  verdict.Equal(strLast, "sdk SDK_SET_RESET timeout=5000", "last of the clearing requests");
}

}  // namespace

void CheckPort(sim::World& world, const WorldKind& kind, const PortPlan& port, Verdict& verdict) {
  std::string strArchive;
  for (const auto& [strName, strBytes] : sim::World::ArchivedFiles(port.strRoot)) strArchive += strBytes;
  const std::vector<std::string> strips = world.PrinterOf(port.strPort).Strips();
  std::pair<std::size_t, std::size_t> before;  // strip and position of the job before
  for (const RandomJob& job : port.jobs) {
    verdict.About(sim::Format("job %u on %s", static_cast<unsigned>(job.dwId), port.strPort.c_str()));
    const sim::Job& spooled = *world.spooler.FindJob(job.dwId);
    if (!spooled.bGone) {
      const auto nStarted = static_cast<unsigned>(std::count_if(
          job.attempts.begin(), job.attempts.end(), [](const Attempt& attempt) { return attempt.result.bStarted; }));
      verdict.Equal(spooled.nSentToPrinter, nStarted, "reports of its data");
      verdict.Equal(spooled.nLastPageEjected, nStarted, "reports of its last page");
    }
    const sim::PrintResult& result = job.attempts[0].result;
    verdict.AtMost(result.nMostOffers, kMostOffers, "offers of one buffer");
    verdict.Holds(result.bStarted || result.dwError != 0, "a refusal has a code");
    const bool bOnPortMonitor = job.attempts[0].bOnPortMonitor;
    if (job.IsCancelled() && result.bStarted && !bOnPortMonitor) CheckCancelled(world, kind, port, job, verdict);
    if (job.attempts.size() > 1 && job.attempts[1].result.bDelivered && !job.attempts[1].bOnPortMonitor &&
        spooled.strDatatype != "RAW" && !kind.bTiny) {
      const bool bWhole = std::any_of(strips.begin(), strips.end(), [&](const std::string& strStrip) {
        return strStrip.find(job.strData) != std::string::npos;
      });
      verdict.Holds(bWhole, "a job that began again is on paper");
    }
    if (job.IsCancelled() || !result.bDelivered) continue;
    if (!strArchive.empty() && !kind.bLinks && !kind.bOthers && !kind.bTiny) {
      verdict.Equal(CountIn(strArchive, job.strData), 1u, "whole in the archive");
    }
    if (spooled.strDatatype == "RAW" || bOnPortMonitor || kind.bTiny)
      continue;  // nobody asks the printer to confirm these
    // Whole exactly once on the last strip that has any of it, behind the job before.
    std::size_t nLast = strips.size();
    for (std::size_t n = 0; n < strips.size(); ++n)
      if (CountIn(strips[n], job.strData.substr(0, 5)) != 0) nLast = n;
    verdict.Holds(nLast < strips.size(), "it is on paper");
    if (nLast == strips.size()) return;
    verdict.Equal(CountIn(strips[nLast], job.strData), 1u, "whole on the last strip that has any of it");
    const std::pair<std::size_t, std::size_t> here(nLast, strips[nLast].find(job.strData));
    verdict.Holds(here >= before, "it stands behind the job before");
    before = here;
  }
}
