#include "tools/lmsim/story_judge.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <new>
#include <random>
#include <string_view>

#include "tools/lmctl/story/neighbours.h"
#include "tools/lmctl/story/story_machine.h"

using lmctl::Claim;
using lmctl::kUnknown;
using lmctl::Outcome;
using lmctl::Path;
using lmctl::Story;
using lmctl::Tri;

namespace {

constexpr std::string_view kLetters = "EWIDT";
constexpr unsigned kAllMasks = 1u << kLetters.size();

std::vector<std::string_view> LinesOf(const std::string& strLog) {
  std::vector<std::string_view> lines;
  for (std::size_t nStart = 0; nStart < strLog.size();) {
    const std::size_t nEnd = std::min(strLog.find('\n', nStart), strLog.size());
    lines.push_back(std::string_view(strLog).substr(nStart, nEnd - nStart));
    nStart = nEnd + 1;
  }
  return lines;
}

struct Told {
  std::vector<Story> stories;
  std::uint64_t nLines = 0;
};

// bShown: whether a line is there. fileOf: in which file, by its number.
template <class Shown>
Told StoriesOf(const std::vector<lmctl::LogLine>& lines, Shown&& bShown,
               const std::function<std::uint32_t(std::uint64_t)>& fileOf = {}) {
  Told told;
  lmctl::StoryMachine machine([&](Story&& story) { told.stories.push_back(std::move(story)); }, false);
  for (const lmctl::LogLine& line : lines) {
    if (!bShown(line)) continue;
    const std::uint32_t nFile = fileOf ? fileOf(static_cast<std::uint64_t>(&line - lines.data())) : 0;
    machine.Line(line, line.Time(2026, 11), {nFile, ++told.nLines});
  }
  machine.End();
  lmctl::Neighbours neighbours;
  for (const Story& story : told.stories) neighbours.Add(story);
  for (Story& story : told.stories) neighbours.Mark(story);
  return told;
}

bool IsIn(unsigned nMask, char cLevel) {
  const std::size_t nAt = kLetters.find(cLevel);
  return nAt == std::string_view::npos || (nMask >> nAt & 1) != 0;
}

std::string NameOf(unsigned nMask) {
  std::string str;
  for (const char c : kLetters)
    if (IsIn(nMask, c)) str += c;
  return str.empty() ? "no level" : str;
}

Outcome Expected(const JobTruth& truth) {
  if (!truth.bStarted) return Outcome::Refused;
  if (!truth.bDelivered) return Outcome::Failed;
  return truth.bConfirmed ? Outcome::Confirmed : Outcome::Printed;
}

void JudgeStory(const Story& story, const JobTruth& truth, bool bExact, bool bClockSet, std::uint64_t nLines,
                Verdict& verdict) {
  for (std::size_t n = 0; n < lmctl::kClaims; ++n) {
    const auto claim = static_cast<Claim>(n);
    if (!story.IsTold(claim)) continue;
    ++ClaimCounts::Get().judged;
    const bool bNeedsProof = !(claim == Claim::Ended && story.llEnded == 0) &&
                             !(claim == Claim::Path && story.path == Path::Unknown) &&
                             !(claim == Claim::Error && story.nError == kUnknown) &&
                             !(claim == Claim::Response && story.strResponse.empty());
    if (bNeedsProof)
      verdict.Holds(story.Proof(claim).nLine != 0 && story.Proof(claim).nLine <= nLines,
                    std::string(lmctl::ClaimName(claim)) + " stands on a line");
  }
  if (bExact) verdict.Holds(story.bOver && (bClockSet || story.llEnded >= story.llStarted), "it has an end");
  if (story.llEnded != 0 && truth.llLast != 0) verdict.Holds(story.llEnded <= truth.llLast, "its end");
  if (!story.strPort.empty() || bExact) verdict.Equal(story.strPort, truth.strPort, "port");
  if (story.path != Path::Unknown || (bExact && truth.bStarted))
    verdict.Equal(story.path, truth.bOnPortMonitor ? Path::PortMonitor : Path::Device, "path");
  if (story.nError > 0 && !truth.bStarted) verdict.Equal(story.nError, truth.dwError, "error");
  // Of a job without an end the log shows what it shows. (Lines that are still held when it is read tell nothing, not even that
  // they are missing.)
  const bool bCutShort = !story.bOver && !bExact;
  if (bCutShort) verdict.AtMost(story.nBytes, truth.nBytes, "bytes");
  if (story.outcome == Outcome::Cancelled) {
    verdict.Holds(truth.bMayBeCancelled, "the user did cancel it (" + story.strReason + ")");
  } else if (truth.bMustBeCancelled && !bCutShort && (story.outcome != Outcome::Unknown || bExact)) {
    verdict.Holds(false, std::string("cancelled, not ") + lmctl::OutcomeName(story.outcome));
  }
  // How far a deleted job had come when that was seen, only the monitor knows.
  if (truth.bMayBeCancelled || bCutShort) return;
  if (story.outcome != Outcome::Unknown || bExact)
    verdict.Equal(std::string(lmctl::OutcomeName(story.outcome)), lmctl::OutcomeName(Expected(truth)),
                  "outcome (" + story.strReason + ")");
  if (story.nBytes != kUnknown || bExact) verdict.Equal(story.nBytes, truth.bStarted ? truth.nBytes : 0, "bytes");
  if (story.nReprints != kUnknown || bExact) verdict.Equal(story.nReprints, truth.nReprints, "reprints");
  if (story.maybeTwice == Tri::No) verdict.Equal(truth.nReprints, 0, "reprints of what cannot stand twice");
}

// Whether a story is of this attempt.
bool IsOf(const Story& story, const JobTruth& truth) {
  return story.nJob == truth.nJob && story.strQueue == truth.strQueue &&
         (truth.llFirst == 0 || (story.llStarted >= truth.llFirst && story.llStarted <= truth.llLast));
}

void Judge(const Told& told, const std::vector<JobTruth>& truths, const std::string& strLevels, const JudgedLog& log,
           Verdict& verdict) {
  const bool bAllLevels = strLevels == kLetters;  // every member must be told then
  for (const Story& story : told.stories) {
    const bool bKnown = std::any_of(truths.begin(), truths.end(), [&](const JobTruth& t) { return IsOf(story, t); });
    if (bKnown) continue;
    verdict.About("the story of job " + std::to_string(story.nJob) + " at " + strLevels);
    verdict.Holds(false, "there was such a job on " + story.strQueue);
  }
  for (const JobTruth& truth : truths) {
    verdict.About("the story of job " + std::to_string(truth.nJob) + " at " + strLevels);
    const auto it =
        std::find_if(told.stories.begin(), told.stories.end(), [&](const Story& s) { return IsOf(s, truth); });
    if (it != told.stories.end()) {
      const bool bShownAgain = std::any_of(told.stories.begin(), told.stories.end(), [&](const Story& s) {
        return &s != &*it && s.nJob == it->nJob && s.nLife == it->nLife && s.strQueue == it->strQueue;
      });
      if (truth.bCameAgain && bShownAgain) verdict.Holds(it->maybeTwice != Tri::No, "it may stand twice");
      JudgeStory(*it, truth, bAllLevels && !log.bLinesLost, log.bClockSet, told.nLines, verdict);
    } else {
      verdict.Holds(!bAllLevels || log.bLinesLost, "it is told");
    }
    const auto* const pMask = std::find(std::begin(ClaimCounts::kMasks), std::end(ClaimCounts::kMasks), strLevels);
    if (pMask == std::end(ClaimCounts::kMasks) || log.bLinesLost) continue;
    const auto nMask = static_cast<std::size_t>(pMask - std::begin(ClaimCounts::kMasks));
    ClaimCounts& counts = ClaimCounts::Get();
    ++counts.jobs[nMask];
    for (std::size_t n = 0; it != told.stories.end() && n < lmctl::kClaims; ++n)
      if (it->IsTold(static_cast<Claim>(n))) ++counts.told[nMask][n];
  }
}

std::vector<lmctl::LogLine> Parsed(const std::string& strLog) {
  std::vector<lmctl::LogLine> parsed;
  for (const std::string_view line : LinesOf(strLog)) parsed.push_back(lmctl::ParseLine(line));
  return parsed;
}

bool All(const lmctl::LogLine&) { return true; }

// Levels that change while the log is written, each time for as long as the monitor keeps them; all of them are on at first, so
// that the log shows that they changed.
void JudgeChangingLevels(const std::vector<lmctl::LogLine>& lines, const std::vector<JobTruth>& truths,
                         const JudgedLog& log, unsigned nSeed, Verdict& verdict) {
  constexpr lmctl::LocalMs kStayMs = 15'000;
  std::mt19937 random(nSeed);
  unsigned nMask = kAllMasks - 1;
  lmctl::LocalMs llChange = 0;
  const Told told = StoriesOf(lines, [&](const lmctl::LogLine& line) {
    if (line.kind != lmctl::LineKind::Call) return true;
    const lmctl::LocalMs llTime = line.Time(2026, 11);
    if (llChange == 0) llChange = llTime + static_cast<lmctl::LocalMs>(random() % 20'000);
    if (llTime >= llChange) {
      nMask = random() % 3 == 0 ? kAllMasks - 1 : random() % kAllMasks;
      llChange = llTime + kStayMs + static_cast<lmctl::LocalMs>(random() % 20'000);
    }
    return IsIn(nMask, line.cLevel);
  });
  Judge(told, truths, "levels that change", log, verdict);
}

// The same log, as threads of a pool would have left it: each call on whichever thread is free, whose number was another job's
// before.
std::vector<lmctl::LogLine> OnPooledThreads(std::vector<lmctl::LogLine> lines, unsigned nSeed) {
  using lmctl::Step;
  struct Call {
    std::vector<std::size_t> lines;
    bool bDataOut = false;
  };
  std::vector<Call> calls;
  std::map<std::uint32_t, std::size_t> current;  // by thread
  for (std::size_t n = 0; n < lines.size(); ++n) {
    if (lines[n].kind != lmctl::LineKind::Call) continue;
    const Step step = lmctl::StepOf(lines[n]);
    const auto it = current.find(lines[n].nThread);
    const bool bEnds =
        step == Step::EndOnPort || (step == Step::AskedCancel && it != current.end() && calls[it->second].bDataOut);
    if (it == current.end() || step == Step::Start || step == Step::Offer || bEnds) {
      current[lines[n].nThread] = calls.size();
      calls.emplace_back();
    }
    Call& call = calls[current[lines[n].nThread]];
    call.lines.push_back(n);
    // The end of a job begins behind its last buffer.
    call.bDataOut = !bEnds && (call.bDataOut || step == Step::SendTook || step == Step::SendShort ||
                               step == Step::SendFailed || step == Step::Dropped || step == Step::PortTook);
  }
  std::sort(calls.begin(), calls.end(), [](const Call& l, const Call& r) { return l.lines.front() < r.lines.front(); });
  std::mt19937 random(nSeed);
  std::vector<std::size_t> busyUntil;  // by thread of the pool
  for (const Call& call : calls) {
    std::vector<std::size_t> idle;
    for (std::size_t n = 0; n < busyUntil.size(); ++n)
      if (busyUntil[n] < call.lines.front()) idle.push_back(n);
    if (idle.empty()) {
      idle.push_back(busyUntil.size());
      busyUntil.push_back(0);
    }
    const std::size_t nThread = idle[random() % idle.size()];
    busyUntil[nThread] = call.lines.back();
    for (const std::size_t n : call.lines) lines[n].nThread = static_cast<std::uint32_t>(0x500 + nThread * 4);
  }
  return lines;
}

// (On such threads, where the start of a job is lost, what it goes on to say may be anybody's: a log with holes is not judged.)
void JudgePool(const std::vector<lmctl::LogLine>& lines, const std::vector<JobTruth>& truths, const JudgedLog& log,
               unsigned nSeed, Verdict& verdict) {
  const std::vector<lmctl::LogLine> pooled = OnPooledThreads(lines, nSeed);
  for (const std::string_view levels :
       {kLetters, std::string_view("EWIT"), std::string_view("IT"), std::string_view("EIDT")}) {
    const Told told = StoriesOf(pooled, [&](const lmctl::LogLine& line) {
      return line.kind != lmctl::LineKind::Call || levels.find(line.cLevel) != std::string_view::npos;
    });
    Judge(told, truths, levels == kLetters ? std::string(levels) : std::string(levels) + " on threads of a pool", log,
          verdict);
  }
}

// A stretch of the log that is not there, and the note that says so.
std::vector<lmctl::LogLine> WithAHole(std::vector<lmctl::LogLine> lines, unsigned nSeed) {
  std::mt19937 random(nSeed);
  std::ptrdiff_t nFirst = 0;  // behind the lines that tell which queue has which port
  for (std::ptrdiff_t n = 0; n < std::ssize(lines); ++n)
    if (lmctl::StepOf(lines[static_cast<std::size_t>(n)]) == lmctl::Step::PortMade) nFirst = n + 1;
  if (nFirst >= std::ssize(lines)) return lines;
  const auto nAt =
      nFirst + static_cast<std::ptrdiff_t>(random() % static_cast<std::size_t>(std::ssize(lines) - nFirst));
  const auto nEnd = std::min<std::ptrdiff_t>(nAt + 1 + static_cast<std::ptrdiff_t>(random() % 200), std::ssize(lines));
  lines.erase(lines.begin() + nAt, lines.begin() + nEnd);
  lines.insert(lines.begin() + nAt, lmctl::ParseLine("<=== Log output here failed"));
  return lines;
}

// What a process leaves that dies while it writes a line; the next one ends that line, or it has none.
void JudgeDeath(const JudgedLog& log, const std::vector<JobTruth>& truths, unsigned nSeed, Verdict& verdict) {
  std::mt19937 random(nSeed);
  const std::size_t nEnd = random() % (log.strText.size() + 1);
  JudgedLog cut = {log.strText.substr(0, nEnd), true, log.bClockSet};
  std::vector<lmctl::LogLine> lines;
  for (const std::string_view line : LinesOf(cut.strText))
    lines.push_back(lmctl::ParseLine(line, line.data() + line.size() < cut.strText.data() + cut.strText.size()));
  for (const char* pszLevels : {"EWIDT", "EWI", "IT"}) {
    const auto bShown = [&](const lmctl::LogLine& line) {
      return line.kind != lmctl::LineKind::Call || std::strchr(pszLevels, line.cLevel) != nullptr;
    };
    const std::string strAt = std::string(" at ") + pszLevels;
    Judge(StoriesOf(lines, bShown), truths, "a log that was cut off" + strAt, cut, verdict);
    // The next process, or somebody's editor, or none: lines that follow at once.
    for (const char* pszBetween : {"\r\n", ""}) {
      const std::string strBoth = cut.strText + pszBetween + log.strText;
      Judge(StoriesOf(Parsed(strBoth), bShown), truths, "a process that died" + strAt, cut, verdict);
    }
  }
}

// Days and rotated files: where they are all there nothing changes; one that is gone takes its lines along.
void JudgeFiles(const std::vector<lmctl::LogLine>& lines, const std::vector<JobTruth>& truths, const JudgedLog& log,
                unsigned nSeed, Verdict& verdict) {
  if (lines.empty()) return;
  std::mt19937 random(nSeed);
  const std::uint64_t nFirst = random() % lines.size();
  std::uint64_t nSecond = nFirst;  // a file takes its time
  const lmctl::LocalMs llFirst = lines[nFirst].Time(2026, 11);
  while (nSecond < lines.size() && lines[nSecond].Time(2026, 11) <= llFirst + 61'000) ++nSecond;
  const auto fileOf = [&](std::uint64_t n) { return n < nFirst ? 0u : n < nSecond ? 1u : 2u; };
  JudgedLog less = log;
  less.bLinesLost = true;
  // (Where a file ends with the setting of the clock, it looks as if one were missing.)
  Judge(StoriesOf(lines, All, fileOf), truths, std::string(kLetters), log.bClockSet ? less : log, verdict);
  if (lines[nFirst].kind != lmctl::LineKind::Call || nSecond == lines.size()) return;
  const auto bThere = [&](const lmctl::LogLine& line) {
    return fileOf(static_cast<std::uint64_t>(&line - lines.data())) != 1;
  };
  Judge(StoriesOf(lines, bThere, fileOf), truths, "a file that is gone", less, verdict);
}

}  // namespace

ClaimCounts& ClaimCounts::Get() {
  static auto* pCounts =
      new (mmap(nullptr, sizeof(ClaimCounts), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) ClaimCounts{};
  return *pCounts;
}

void ClaimCounts::Print() const {
  if (judged == 0) return;
  std::printf("%llu claims of stories judged, at every combination of levels; told of all jobs, in per cent:\n       ",
              static_cast<unsigned long long>(judged.load()));
  for (std::size_t n = 0; n < lmctl::kClaims; ++n) std::printf(" %10s", lmctl::ClaimName(static_cast<Claim>(n)));
  std::printf("\n");
  for (std::size_t nMask = 0; nMask < std::size(kMasks); ++nMask) {
    std::printf("  %-5s", kMasks[nMask]);
    for (const auto& n : told[nMask])
      std::printf(" %10.1f",
                  jobs[nMask] != 0 ? 100.0 * static_cast<double>(n) / static_cast<double>(jobs[nMask]) : 0.0);
    std::printf("\n");
  }
}

void JudgeAtEveryMask(const JudgedLog& log, const std::vector<JobTruth>& truths, unsigned nSeed, Verdict& verdict) {
  const std::vector<lmctl::LogLine> lines = Parsed(log.strText);
  for (unsigned nMask = 0; nMask < kAllMasks; ++nMask) {
    const Told told = StoriesOf(lines, [&](const lmctl::LogLine& line) {
      return line.kind != lmctl::LineKind::Call || IsIn(nMask, line.cLevel);
    });
    Judge(told, truths, NameOf(nMask), log, verdict);
  }
  for (unsigned n = 0; n < 4; ++n) JudgeChangingLevels(lines, truths, log, nSeed * 4 + n, verdict);
  if (!log.bLinesLost) JudgePool(lines, truths, log, nSeed, verdict);
  JudgedLog less = log;
  less.bLinesLost = true;
  Judge(StoriesOf(WithAHole(lines, nSeed), All), truths, "a log with a hole", less, verdict);
  JudgeDeath(log, truths, nSeed, verdict);
  JudgeFiles(lines, truths, log, nSeed, verdict);
  // The process begins anew under its number, with the same numbers of threads and jobs, and the clock was set back.
  std::vector<lmctl::LogLine> twice = lines;
  twice.insert(twice.end(), lines.begin(), lines.end());
  for (const std::string_view levels : {kLetters, std::string_view("EWI")}) {
    Told told = StoriesOf(twice, [&](const lmctl::LogLine& line) {
      return line.kind != lmctl::LineKind::Call || levels.find(line.cLevel) != std::string_view::npos;
    });
    Judge(told, truths, "a process that comes again", log, verdict);
    std::reverse(told.stories.begin(), told.stories.end());
    Judge(told, truths, "a process that came again", log, verdict);
  }
}

void JudgeOne(const JudgedLog& log, const std::vector<JobTruth>& truths, Verdict& verdict) {
  Judge(StoriesOf(Parsed(log.strText), All), truths, "the levels that were on", log, verdict);
}
