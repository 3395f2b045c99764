// lmctl jobs and lmctl explain.
#include <chrono>
#include <ctime>
#include <optional>
#include <stdexcept>
#include <thread>

#include "tools/lmctl/commands/commands.h"
#include "tools/lmctl/log/log_reader.h"
#include "tools/lmctl/render/render.h"
#include "tools/lmctl/story/story_machine.h"
#include "tools/lmctl/story/story_store.h"
#include "tools/lmctl/commands/terminal.h"
#include "tools/lmctl/commands/time_text.h"

namespace lmctl {
namespace {

bool SameText(std::string_view left, std::string_view right) {
  if (left.size() != right.size()) return false;
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  for (std::size_t n = 0; n < left.size(); ++n)
    if (lower(left[n]) != lower(right[n])) return false;
  return true;
}

LocalMs Now() {
  const std::time_t now = std::time(nullptr);
  const std::tm* pLocal = std::localtime(&now);
  return MakeTime(pLocal->tm_year + 1900, pLocal->tm_mon + 1, pLocal->tm_mday, pLocal->tm_hour, pLocal->tm_min,
                  pLocal->tm_sec, 0);
}

class Filter {
 public:
  explicit Filter(const Options& options)
      : m_options(options),
        m_llSince(options.strSince.empty() ? 0 : ParseTime(options.strSince, Now()).llFirst),
        m_llUntil(options.strUntil.empty() ? 0 : ParseTime(options.strUntil, Now()).llLast) {}
  bool Takes(const Story& story) const {
    if (m_options.nJob != 0 && story.nJob != m_options.nJob) return false;
    if (!m_options.strQueue.empty() && !SameText(ToUtf8(story.strQueue), m_options.strQueue)) return false;
    if (!m_options.strPort.empty() && !SameText(ToUtf8(story.strPort), m_options.strPort)) return false;
    if (m_llSince != 0 && story.llLast < m_llSince) return false;
    if (m_llUntil != 0 && story.llStarted > m_llUntil) return false;
    return !m_options.bFailed || story.outcome == Outcome::Failed || story.outcome == Outcome::Refused;
  }

 private:
  const Options& m_options;
  const LocalMs m_llSince;
  const LocalMs m_llUntil;
};

// The log as stories.
class StoryReader {
 public:
  StoryReader(const Options& options, StoryMachine::Sink sink, bool bEvents)
      : m_reader(options.logs), m_machine(std::move(sink), bEvents) {}
  void Read(bool bWhole) {
    Progress progress("reading the log");
    m_reader.Read(
        [&](std::string_view line, std::uint32_t nSource, std::uint64_t nLine) {
          const LogLine parsed = ParseLine(line);
          if (parsed.kind == LineKind::Other) return;
          m_machine.Line(parsed, parsed.kind == LineKind::Call ? TimeOf(parsed, m_reader.Sources()[nSource]) : 0,
                         {nSource, nLine});
        },
        bWhole, [&](std::uint64_t ullDone, std::uint64_t ullTotal) { progress.Show(ullDone, ullTotal); });
  }
  void End() { m_machine.End(); }
  void Refresh() { m_reader.Refresh(); }
  std::string Name(std::uint32_t nFile) const { return m_reader.Sources()[nFile].strName; }
  std::string Describe() const {
    const auto& sources = m_reader.Sources();
    if (sources.empty()) return "an empty log";
    std::string str = sources.front().path.parent_path().string();
    if (str.empty()) str = ".";
    return std::to_string(sources.size()) + (sources.size() == 1 ? " file in " : " files in ") + str;
  }

 private:
  LogReader m_reader;
  StoryMachine m_machine;
};

[[noreturn]] void Follow(StoryReader& reader) {
  for (;;) {
    std::fflush(stdout);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    reader.Refresh();
    reader.Read(false);
  }
}

}  // namespace

int Jobs(const Options& options) {
  const Filter filter(options);
  if (options.bFollow) {
    TableRenderer table(stdout, Columns(), WantsColour());
    if (!options.bJson) table.Header();
    StoryReader* pReader = nullptr;
    StoryReader reader(
        options,
        [&](Story&& story) {
          if (!filter.Takes(story)) return;
          if (options.bJson) {
            std::printf("%s\n", StoryJson(story, [&](std::uint32_t n) { return pReader->Name(n); }).c_str());
          } else {
            table.Row(story);
          }
        },
        false);
    pReader = &reader;
    reader.Read(false);
    Follow(reader);
  }

  StoryStore store;
  StoryReader reader(
      options,
      [&](Story&& story) {
        if (filter.Takes(story)) store.Add(story);
      },
      false);
  reader.Read(true);
  reader.End();
  const FileName name = [&](std::uint32_t nFile) { return reader.Name(nFile); };

  if (!options.strHtml.empty()) {
    std::FILE* pFile = std::fopen(options.strHtml.c_str(), "wb");
    if (pFile == nullptr)
      throw std::runtime_error("cannot write " + options.strHtml + ": choose another file with --html");
    LocalMs llFirst = 0;
    LocalMs llLast = 0;
    store.ForEach(options.nLast, [&](const Story& story) {
      if (llFirst == 0) llFirst = story.llStarted;
      llLast = std::max(llLast, story.llLast);
    });
    HtmlRenderer page(pFile, name);
    page.Begin(reader.Describe() +
               (llFirst != 0 ? ", " + ShortTime(llFirst) + " to " + ShortTime(llLast) : std::string(", without jobs")));
    store.ForEach(options.nLast, [&](const Story& story) { page.Job(story); });
    page.End();
    const bool bWritten = std::ferror(pFile) == 0;
    if (std::fclose(pFile) != 0 || !bWritten)
      throw std::runtime_error("cannot write " + options.strHtml + ": free space or choose another file with --html");
    std::printf("%s: %zu jobs\n", options.strHtml.c_str(),
                options.nLast != 0 ? std::min<std::size_t>(options.nLast, store.Size()) : store.Size());
  } else if (options.bJson) {
    bool bFirst = true;
    std::printf("[");
    store.ForEach(options.nLast, [&](const Story& story) {
      std::printf("%s\n%s", bFirst ? "" : ",", StoryJson(story, name).c_str());
      bFirst = false;
    });
    std::printf("\n]\n");
  } else if (store.Size() > 0) {
    TableRenderer table(stdout, Columns(), WantsColour());
    table.Header();
    store.ForEach(options.nLast, [&](const Story& story) { table.Row(story); });
  }
  if (store.Size() == 0 && options.nJob != 0 && !options.bFailed)
    throw std::runtime_error("no job " + std::to_string(options.nJob) + " in " + reader.Describe() +
                             ": look with lmctl jobs without filters; level I shows each job's start");
  if (store.Size() == 0 && !options.bJson && options.strHtml.empty())
    std::fprintf(stderr, "lmctl: no such jobs in %s\n", reader.Describe().c_str());
  return options.bFailed && store.Size() > 0 ? kExitWrong : kExitWell;
}

int ExplainJob(const Options& options) {
  const Filter filter(options);
  const LocalMs llAt = options.strAt.empty() ? 0 : ParseTime(options.strAt, Now()).llFirst;
  std::optional<Story> best;  // the latest, or the one nearest to the time
  const auto distance = [&](const Story& story) {
    return story.llStarted <= llAt && llAt <= story.llLast
               ? 0
               : std::min(std::abs(story.llStarted - llAt), std::abs(story.llLast - llAt));
  };
  StoryReader reader(
      options,
      [&](Story&& story) {
        if (!filter.Takes(story)) return;
        if (!best || (llAt == 0 ? story.llStarted >= best->llStarted : distance(story) <= distance(*best)))
          best = std::move(story);
      },
      true);
  reader.Read(true);
  reader.End();
  if (!best)
    throw std::runtime_error("no job " + std::to_string(options.nJob) + " in " + reader.Describe() +
                             ": look with lmctl jobs; level I shows each job's start");
  Explain(stdout, *best, [&](std::uint32_t nFile) { return reader.Name(nFile); });
  return best->outcome == Outcome::Failed || best->outcome == Outcome::Refused ? kExitWrong : kExitWell;
}

}  // namespace lmctl
