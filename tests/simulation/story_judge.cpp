#include "tests/simulation/story_judge.h"

#include <gtest/gtest.h>

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
  EXPECT_EQ(machine.OpenJobs(), 0u);
  return stories;
}

namespace {

Outcome Expected(const JobTruth& truth) {
  if (!truth.bStarted) return Outcome::Refused;
  if (!truth.bDelivered) return Outcome::Failed;
  return truth.bConfirmed ? Outcome::Confirmed : Outcome::Printed;
}

}  // namespace

void Judge(const std::vector<Story>& stories, const std::vector<JobTruth>& truths, bool bAllLevels, bool bLinesLost) {
  for (const JobTruth& truth : truths) {
    SCOPED_TRACE("the story of job " + std::to_string(truth.nJob));
    const auto it = std::find_if(stories.begin(), stories.end(), [&](const Story& s) { return s.nJob == truth.nJob; });
    if (it == stories.end()) {
      EXPECT_TRUE(!bAllLevels || bLinesLost);
      continue;
    }
    const Story& story = *it;
    const bool bExact = bAllLevels && !bLinesLost;
    EXPECT_EQ(story.strQueue, truth.strQueue);
    if (!story.strPort.empty() || bExact) {
      EXPECT_EQ(story.strPort, truth.strPort);
    }
    if (truth.bStarted && (story.path != Path::Unknown || bExact)) {
      EXPECT_EQ(story.path, truth.bOnPortMonitor ? Path::PortMonitor : Path::Device);
    }
    if (story.nError > 0 && !truth.bStarted) {
      EXPECT_EQ(story.nError, truth.dwError);
    }
    // Lines that are still held when the log is read tell nothing, not even that they are missing.
    const bool bCutShort = bLinesLost && !story.bOver;
    if (story.outcome == Outcome::Cancelled) {
      EXPECT_TRUE(truth.bMayBeCancelled);
    } else if (truth.bMustBeCancelled && !bCutShort && (story.outcome != Outcome::Unknown || bExact)) {
      EXPECT_EQ(story.outcome, Outcome::Cancelled) << lmctl::OutcomeName(story.outcome);
    }
    // How far a deleted job had come when that was seen, only the monitor knows.
    if (truth.bMayBeCancelled || bCutShort) continue;
    if (story.outcome != Outcome::Unknown || bExact) {
      EXPECT_EQ(story.outcome, Expected(truth)) << lmctl::OutcomeName(story.outcome) << ": " << story.strReason;
    }
    if (story.nBytes != kUnknown || bExact) {
      EXPECT_EQ(story.nBytes, truth.bStarted ? truth.nBytes : 0);
    }
    if (story.nReprints != kUnknown || bExact) {
      EXPECT_EQ(story.nReprints, truth.nReprints);
    }
    if (story.maybeTwice == Tri::No) {
      EXPECT_EQ(truth.nReprints, 0);
    }
    if (bExact) {
      EXPECT_TRUE(story.bOver && story.llEnded >= story.llStarted);
    }
  }
}
