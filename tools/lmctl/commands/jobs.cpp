// lmctl jobs: one row a job.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "tools/lmctl/commands/log_stories.h"
#include "tools/common/terminal.h"
#include "tools/lmctl/log/paths.h"
#include "tools/lmctl/render/render.h"
#include "tools/lmctl/story/story_store.h"

namespace lmctl {
namespace {

// A job that runs, in place on the terminal's last line, until it or another one is done.
class RunningLine {
 public:
  explicit RunningLine(bool bShown) : m_bShown(bShown && lmtools::IsTerminal()) {}
  void Show(const StoryMachine& machine, const Filter& filter) {
    if (!m_bShown) return;
    std::string strText;
    machine.ForEachOpen([&](const Story& story, bool bEndWouldShow) {
      if (!filter.Takes(story) || !bEndWouldShow) return;
      strText += (strText.empty() ? "… job " : ", ") + std::to_string(story.nJob) + " on " + ToUtf8(story.strQueue) +
                 " since " + ShortTime(story.llStarted).substr(11);
    });
    if (strText == m_strText) return;
    Clear();
    m_strText = strText.substr(0, lmtools::Columns() > 1 ? lmtools::Columns() - 1 : 0);
    while (m_strText.size() < strText.size() && (strText[m_strText.size()] & 0xC0) == 0x80) m_strText.pop_back();
    std::printf("%s", m_strText.c_str());
  }
  void Clear() {
    if (!m_strText.empty()) std::printf("\r\033[K");
    m_strText.clear();
  }

 private:
  const bool m_bShown;
  std::string m_strText;
};

[[noreturn]] void FollowJobs(const Options& options, const Filter& filter) {
  TableRenderer table(stdout, lmtools::Columns(), lmtools::WantsColour());
  if (!options.bJson) table.Header();
  StoryReader* pReader = nullptr;
  RunningLine running(!options.bJson && lmtools::WantsColour());
  Neighbours neighbours;
  StoryReader reader(
      options,
      [&](Story&& story) {
        neighbours.Add(story);
        neighbours.Mark(story);
        if (!filter.Takes(story) || (options.bTwice && story.byTwice == 0)) return;
        running.Clear();
        if (options.bJson) {
          std::printf("%s\n", StoryJson(story, [&](std::uint32_t n) { return pReader->Name(n); }).c_str());
        } else {
          table.Row(story);
        }
      },
      false);
  pReader = &reader;
  for (;;) {
    reader.Read(false);
    running.Show(reader.Machine(), filter);
    std::fflush(stdout);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    reader.Refresh();
  }
}

void WritePage(const Options& options, StoryStore& store, const StoryReader& reader) {
  const std::string& strFile = options.strHtml;
  LocalMs llFirst = 0;
  LocalMs llLast = 0;
  store.ForEach(options.nLast, [&](const Story& story) {
    if (llFirst == 0) llFirst = story.llStarted;
    llLast = std::max(llLast, story.llLast);
  });
  std::ofstream file(PathOf(strFile), std::ios::binary);
  if (!file) throw std::runtime_error("cannot write " + strFile + ": choose another file with --html");
  HtmlRenderer page(file, [&](std::uint32_t nFile) { return reader.Name(nFile); });
  page.Begin(reader.Describe() +
             (llFirst != 0 ? ", " + ShortTime(llFirst) + " to " + ShortTime(llLast) : std::string(", without jobs")));
  store.ForEach(options.nLast, [&](const Story& story) { page.Job(story); });
  page.End();
  file.close();
  if (!file) throw std::runtime_error("cannot write " + strFile + ": free space or choose another file with --html");
  std::printf("%s: %zu jobs\n", strFile.c_str(),
              options.nLast != 0 ? std::min<std::size_t>(options.nLast, store.Size()) : store.Size());
}

}  // namespace

int Jobs(const Options& options) {
  const Filter filter(options);
  if (options.bFollow) FollowJobs(options, filter);

  StoryStore all;
  StoryReader reader(
      options,
      [&](Story&& story) {
        all.Show(story);
        if (filter.Takes(story)) all.Add(story);
      },
      !options.strHtml.empty());
  reader.Read(true);
  reader.End();
  StoryStore twice;
  if (options.bTwice) {
    all.ForEach(0, [&](const Story& story) {
      if (story.byTwice != 0) twice.AddMarked(story);
    });
  }
  StoryStore& store = options.bTwice ? twice : all;

  if (!options.strHtml.empty()) {
    WritePage(options, store, reader);
  } else if (options.bJson) {
    bool bFirst = true;
    std::printf("[");
    store.ForEach(options.nLast, [&](const Story& story) {
      const std::string strJson = StoryJson(story, [&](std::uint32_t nFile) { return reader.Name(nFile); });
      std::printf("%s\n%s", bFirst ? "" : ",", strJson.c_str());
      bFirst = false;
    });
    std::printf("\n]\n");
  } else if (options.bTwice) {
    store.ForEach(options.nLast, [&](const Story& story) { TellTwice(stdout, story); });
  } else if (store.Size() > 0) {
    TableRenderer table(stdout, lmtools::Columns(), lmtools::WantsColour());
    table.Header();
    store.ForEach(options.nLast, [&](const Story& story) { table.Row(story); });
  }
  if (store.Size() == 0 && options.nJob != 0 && !options.bFailed && !options.bTwice)
    throw std::runtime_error("no job " + std::to_string(options.nJob) + " in " + reader.Describe() +
                             ": look with lmctl jobs without filters; level I shows each job's start");
  if (store.Size() == 0 && !options.bJson && options.strHtml.empty())
    std::fprintf(stderr, "lmctl: no such jobs in %s\n", reader.Describe().c_str());
  return options.bFailed && store.Size() > 0 ? kExitWrong : kExitWell;
}

}  // namespace lmctl
