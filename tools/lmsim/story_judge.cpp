#include "tools/lmsim/story_judge.h"

#include <algorithm>

using lmctl::kUnknown;
using lmctl::Outcome;
using lmctl::Path;
using lmctl::Story;
using lmctl::Tri;

std::vector<Story> StoriesOf(const std::string& strLog) {
  std::vector<Story> stories;
  lmctl::StoryMachine machine([&](Story&& story) { stories.push_back(std::move(story)); }, false);
  std::uint64_t nLine = 0;
  for (std::size_t nStart = 0; nStart < strLog.size();) {
    const std::size_t nEnd = std::min(strLog.find('\n', nStart), strLog.size());
    const auto line = lmctl::ParseLine(std::string_view(strLog).substr(nStart, nEnd - nStart));
    machine.Line(line, line.Time(2026, 11), {0, ++nLine});
    nStart = nEnd + 1;
  }
  machine.End();
  return stories;
}

namespace {

Outcome Expected(const JobTruth& truth) {
  if (!truth.bStarted) return Outcome::Refused;
  if (!truth.bDelivered) return Outcome::Failed;
  return truth.bConfirmed ? Outcome::Confirmed : Outcome::Printed;
}

}  // namespace

void Judge(const std::vector<Story>& stories, const std::vector<JobTruth>& truths, bool bAllLevels, bool bLinesLost,
           Verdict& verdict) {
  for (const JobTruth& truth : truths) {
    verdict.About("the story of job " + std::to_string(truth.nJob));
    const auto it = std::find_if(stories.begin(), stories.end(), [&](const Story& s) { return s.nJob == truth.nJob; });
    if (it == stories.end()) {
      verdict.Holds(!bAllLevels || bLinesLost, "it is told");
      continue;
    }
    const Story& story = *it;
    const bool bExact = bAllLevels && !bLinesLost;
    verdict.Equal(story.strQueue, truth.strQueue, "queue");
    if (!story.strPort.empty() || bExact) verdict.Equal(story.strPort, truth.strPort, "port");
    if (truth.bStarted && (story.path != Path::Unknown || bExact))
      verdict.Equal(story.path, truth.bOnPortMonitor ? Path::PortMonitor : Path::Device, "path");
    if (story.nError > 0 && !truth.bStarted) verdict.Equal(story.nError, truth.dwError, "error");
    // Lines that are still held when the log is read tell nothing, not even that they are missing.
    const bool bCutShort = bLinesLost && !story.bOver;
    if (story.outcome == Outcome::Cancelled) {
      verdict.Holds(truth.bMayBeCancelled, "the user did cancel it");
    } else if (truth.bMustBeCancelled && !bCutShort && (story.outcome != Outcome::Unknown || bExact)) {
      verdict.Holds(false, std::string("cancelled, not ") + lmctl::OutcomeName(story.outcome));
    }
    // How far a deleted job had come when that was seen, only the monitor knows.
    if (truth.bMayBeCancelled || bCutShort) continue;
    if (story.outcome != Outcome::Unknown || bExact)
      verdict.Equal(std::string(lmctl::OutcomeName(story.outcome)), lmctl::OutcomeName(Expected(truth)), "outcome");
    if (story.nBytes != kUnknown || bExact) verdict.Equal(story.nBytes, truth.bStarted ? truth.nBytes : 0, "bytes");
    if (story.nReprints != kUnknown || bExact) verdict.Equal(story.nReprints, truth.nReprints, "reprints");
    if (story.maybeTwice == Tri::No) verdict.Equal(truth.nReprints, 0, "reprints of what cannot stand twice");
    if (bExact) verdict.Holds(story.bOver && story.llEnded >= story.llStarted, "it has an end");
  }
}
