#include "tools/lmctl/commands/log_stories.h"

#include <cstdio>
#include <ctime>

#include "tools/common/progress_bar.h"
#include "tools/lmctl/commands/time_text.h"
#include "tools/lmctl/log/paths.h"
#include "tools/lmctl/render/render.h"

namespace lmctl {
namespace {

bool SameText(std::string_view left, std::string_view right) {
  if (left.size() != right.size()) return false;
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  for (std::size_t n = 0; n < left.size(); ++n)
    if (lower(left[n]) != lower(right[n])) return false;
  return true;
}

}  // namespace

LocalMs Now() {
  const std::time_t now = std::time(nullptr);
  const std::tm* pLocal = std::localtime(&now);
  return MakeTime(pLocal->tm_year + 1900, pLocal->tm_mon + 1, pLocal->tm_mday, pLocal->tm_hour, pLocal->tm_min,
                  pLocal->tm_sec, 0);
}

Filter::Filter(const Options& options)
    : m_options(options),
      m_llSince(options.strSince.empty() ? 0 : ParseTime(options.strSince, Now()).llFirst),
      m_llUntil(options.strUntil.empty() ? 0 : ParseTime(options.strUntil, Now()).llLast) {}

bool Filter::Takes(const Story& story) const {
  if (m_options.nJob != 0 && story.nJob != m_options.nJob) return false;
  if (!m_options.strQueue.empty() && !SameText(ToUtf8(story.strQueue), m_options.strQueue)) return false;
  if (!m_options.strPort.empty() && !SameText(ToUtf8(story.strPort), m_options.strPort)) return false;
  if (m_llSince != 0 && story.llLast < m_llSince) return false;
  if (m_llUntil != 0 && story.llStarted > m_llUntil) return false;
  return !m_options.bFailed || story.outcome == Outcome::Failed || story.outcome == Outcome::Refused;
}

StoryReader::StoryReader(const Options& options, StoryMachine::Sink sink, bool bEvents)
    : m_reader(options.logs), m_machine(std::move(sink), bEvents) {
  for (const LogReader::Source& source : m_reader.Sources())
    if (source.bYearGuessed)
      std::fprintf(stderr, "lmctl: %s: its lines are taken to be of %d, the year of its last write\n",
                   source.strName.c_str(), source.nYear);
}

void StoryReader::Read(bool bWhole) {
  lmtools::ProgressBar progress("reading the log", lmtools::ProgressBar::Kind::Patience);
  m_reader.Read(
      [&](const LogReader::Line& line) {
        const LogLine parsed = ParseLine(line.text, line.bWhole);
        if (parsed.kind == LineKind::Other) return;
        if (parsed.kind == LineKind::LostNote || parsed.bLostBefore)
          m_lossMarks.push_back("lost " + std::to_string(m_before.nMonth) + "/" + std::to_string(m_before.nDay) + " " +
                                std::to_string(m_before.nMsOfDay) + " " + std::to_string(m_before.nProcess) + " " +
                                std::to_string(m_before.nThread));
        if (parsed.kind == LineKind::Call) m_before = parsed;
        m_machine.Line(parsed, parsed.kind == LineKind::Call ? TimeOf(parsed, m_reader.Sources()[line.nSource]) : 0,
                       {line.nSource, line.nLine});
      },
      bWhole, [&](std::uint64_t ullDone, std::uint64_t ullTotal) { progress.Show(ullDone, ullTotal); });
}

void StoryReader::End() {
  m_machine.End();
  if (m_machine.Unlisted() != 0)
    std::fprintf(stderr,
                 "lmctl: %llu more job%s ended whose start is not logged: level I was off, or the lines are gone\n",
                 static_cast<unsigned long long>(m_machine.Unlisted()), m_machine.Unlisted() == 1 ? "" : "s");
}

std::string StoryReader::Describe() const {
  const auto& sources = m_reader.Sources();
  if (sources.empty()) return "an empty log";
  std::string str = TextOfPath(sources.front().path.parent_path());
  if (str.empty()) str = ".";
  return std::to_string(sources.size()) + (sources.size() == 1 ? " file in " : " files in ") + str;
}

}  // namespace lmctl
