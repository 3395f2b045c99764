// lmctl explain: the story of a job, or what happened at a time.
#include <algorithm>
#include <cstdio>
#include <optional>
#include <stdexcept>

#include "tools/lmctl/commands/archive_files.h"
#include "tools/lmctl/commands/log_stories.h"
#include "tools/lmctl/commands/time_text.h"
#include "tools/lmctl/log/paths.h"
#include "tools/lmctl/render/render.h"
#include "tools/lmctl/story/neighbours.h"
#include "tools/lmctl/commands/queue.h"

namespace lmctl {
namespace {

constexpr std::size_t kMostAtOnce = 20;

LocalMs Distance(const Story& story, LocalMs llAt) {
  if (story.llStarted <= llAt && llAt <= story.llLast) return 0;
  return std::min(std::abs(story.llStarted - llAt), std::abs(story.llLast - llAt));
}

void TellBeside(const char* pszWhich, const std::optional<Story>& story) {
  if (!story) return;
  std::printf("The job %s: %lld on %s, %s to %s, %s\n", pszWhich, static_cast<long long>(story->nJob),
              ToUtf8(story->strQueue).c_str(), ShortTime(story->llStarted).c_str(),
              ShortTime(story->llLast).substr(11).c_str(), OutcomeText(*story).c_str());
}

// Where the job lies in the archive, when it does.
void TellArchived(const Options& options, const Story& story) {
  std::string strRoot = options.strRoot;
  try {
    if (strRoot.empty()) strRoot = ArchiveRootOfQueue(ToUtf8(story.strQueue));
  } catch (const std::exception&) {
    return;  // the log is from elsewhere, or the queue is gone
  }
  if (strRoot.empty()) return;
  const auto job = FindArchived(PathOf(strRoot), story);
  if (!job) return;
  std::printf("Archived: %llu bytes. To print it again: lmctl archive print \"%s\" --queue \"%s\"\n",
              static_cast<unsigned long long>(job->ullBytes), Printable(TextOfPath(job->path)).c_str(),
              ToUtf8(story.strQueue).c_str());
}

}  // namespace

int ExplainJob(const Options& options) {
  const Filter filter(options);
  TimeSpan at = options.strAt.empty() ? TimeSpan{0, 0} : ParseTime(options.strAt, Now());
  at.llLast = std::max(at.llLast, at.llFirst + 999);  // a time is written in seconds
  Neighbours neighbours;
  std::optional<Story> best;    // the latest of the number, or the one nearest to the time
  std::vector<Story> underWay;  // at the time
  std::optional<Story> before, after;
  StoryReader reader(
      options,
      [&](Story&& story) {
        neighbours.Add(story);
        if (!filter.Takes(story)) return;
        if (options.nJob != 0) {
          if (!best || (at.llFirst == 0 ? story.llStarted >= best->llStarted
                                        : Distance(story, at.llFirst) <= Distance(*best, at.llFirst)))
            best = std::move(story);
        } else if (story.llLast < at.llFirst) {
          if (!before || story.llLast > before->llLast) before = std::move(story);
        } else if (story.llStarted > at.llLast) {
          if (!after || story.llStarted < after->llStarted) after = std::move(story);
        } else if (underWay.size() < kMostAtOnce) {
          underWay.push_back(std::move(story));
        }
      },
      true);
  reader.Read(true);
  reader.End();
  const FileName name = [&](std::uint32_t nFile) { return reader.Name(nFile); };
  if (options.nJob != 0) {
    if (!best)
      throw std::runtime_error("no job " + std::to_string(options.nJob) + " in " + reader.Describe() +
                               ": look with lmctl jobs; level I shows each job's start");
    underWay.push_back(std::move(*best));
  } else if (underWay.empty()) {
    std::printf("No job that the log names was under way at %s.\n", options.strAt.c_str());
    TellBeside("before", before);
    TellBeside("after", after);
    return kExitWell;
  }
  bool bWrong = false;
  for (Story& story : underWay) {
    neighbours.Mark(story);
    if (&story != &underWay.front()) std::printf("\n");
    Explain(stdout, story, name);
    TellArchived(options, story);
    bWrong = bWrong || story.outcome == Outcome::Failed || story.outcome == Outcome::Refused;
  }
  return bWrong ? kExitWrong : kExitWell;
}

}  // namespace lmctl
