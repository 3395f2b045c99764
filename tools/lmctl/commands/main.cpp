// lmctl: what happened to a receipt, and what the monitor needs.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "log/level.h"
#include "tools/lmctl/commands/commands.h"
#include "tools/lmctl/log/text_encoding.h"

#ifdef _WIN32
#include <windows.h>

#include <shellapi.h>

#include "tools/lmctl/windows/wide.h"
#endif

namespace {

// The words of the command line, UTF-8. On Windows they are taken from the wide one, since a queue may be named as it likes.
std::vector<std::string> Arguments(int argc, char** argv) {
#ifdef _WIN32
  int nWords = 0;
  if (LPWSTR* ppWords = CommandLineToArgvW(GetCommandLineW(), &nWords)) {
    std::vector<std::string> words;
    for (int n = 1; n < nWords; ++n) words.push_back(lmctl::Narrow(ppWords[n]));
    LocalFree(ppWords);
    return words;
  }
#endif
  return {argv + 1, argv + argc};
}

// A console shows what is written to it in its code page: that is UTF-8 while the tool runs. A pipe gets UTF-8 anyway.
class ConsoleShowsUtf8 {
#ifdef _WIN32
 public:
  ConsoleShowsUtf8() : m_nBefore(GetConsoleOutputCP()) { SetConsoleOutputCP(CP_UTF8); }
  ~ConsoleShowsUtf8() {
    std::fflush(stdout);
    if (m_nBefore != 0) SetConsoleOutputCP(m_nBefore);
  }
  ConsoleShowsUtf8(const ConsoleShowsUtf8&) = delete;
  ConsoleShowsUtf8& operator=(const ConsoleShowsUtf8&) = delete;

 private:
  const UINT m_nBefore;
#else
 public:
  ConsoleShowsUtf8() {}
#endif
};

}  // namespace

int main(int argc, char** argv) {
  using namespace lmctl;
  const ConsoleShowsUtf8 console;
  CLI::App app("Explains print jobs from the log of the Kelvane language monitor, and looks after the monitor.",
               "lmctl");
  app.set_version_flag("--version", std::string("lmctl ") + LM_VERSION);
  app.require_subcommand(1);
  Options options;
  const auto addLog = [&](CLI::App* pCommand) {
    pCommand->add_option("--log", options.logs, "the log's folder, or files of it (default: this machine's log)");
    pCommand->add_option(
        "--encoding", options.strEncoding,
        "the code page of a log from elsewhere: cp1252, cp850, cp932, utf-8 (default: this machine's)");
  };
  const auto levels = [&](const std::string& strLetters) {
    DWORD dwMask = 0;
    return std::string(LogMaskOf(strLetters, dwMask) ? "" : "levels are letters of " LOG_LEVEL_LETTERS);
  };

  CLI::App* pJobs = app.add_subcommand("jobs", "one row a job: when, where, how many bytes, what became of it");
  addLog(pJobs);
  pJobs->add_option("--queue", options.strQueue, "jobs of this queue");
  pJobs->add_option("--port", options.strPort, "jobs of this port");
  pJobs->add_option("--job", options.nJob, "this job")->check(CLI::PositiveNumber);
  pJobs->add_option("--since", options.strSince,
                    "from this time on: 2026-11-25, 2026-11-25T09:00, 09:00, 'yesterday 14:00', 2h");
  pJobs->add_option("--until", options.strUntil, "up to this time, or to the end of this day");
  pJobs->add_option("--last", options.nLast, "the last so many");
  pJobs->add_flag("--failed", options.bFailed, "jobs that were refused or failed; exit status 1 when there are any");
  pJobs->add_flag("--twice", options.bTwice, "jobs that may stand on paper more than once, with the reason");
  auto* pJson = pJobs->add_flag("--json", options.bJson, "as JSON");
  auto* pHtml = pJobs->add_option("--html", options.strHtml, "write a page with table and time lines to this file");
  pJobs->add_flag("--follow", options.bFollow, "go on as the log grows")->excludes(pHtml);
  pHtml->excludes(pJson);

  CLI::App* pExplain = app.add_subcommand("explain", "the story of a job in plain sentences, and what is on paper");
  addLog(pExplain);
  auto* pExplainJob = pExplain->add_option("--job", options.nJob, "the job's number")->check(CLI::PositiveNumber);
  pExplain->add_option("--queue", options.strQueue, "its queue");
  pExplain->add_option("--port", options.strPort, "its port");
  pExplain->add_option("--root", options.strRoot, "the root of the archive where it may lie (default: its queue's)");
  auto* pAt =
      pExplain->add_option("--at", options.strAt,
                           "when it was printed; without it the latest of that number, without a number every job "
                           "of that time");

  CLI::App* pMetrics = app.add_subcommand("metrics", "counters of the jobs in the Prometheus text format");
  addLog(pMetrics);
  pMetrics->add_option("--queue", options.strQueue, "jobs of this queue");
  pMetrics->add_option("--output", options.strOutput, "write this file, whole at once, instead of standard output");
  pMetrics->add_option("--state", options.strState,
                       "the file that keeps what was counted (default: beside the output, with the ending .state)");

  CLI::App* pLog = app.add_subcommand("log", "the lines of the log");
  addLog(pLog);
  pLog->add_option("--level", options.strLevels, "levels to show, letters of " LOG_LEVEL_LETTERS)->check(levels);
  pLog->add_option("--job", options.nJob, "lines that name this job")->check(CLI::PositiveNumber);
  pLog->add_flag("--follow", options.bFollow, "go on as the log grows");

  CLI::App* pArchive = app.add_subcommand("archive", "the archived jobs");
  pArchive->require_subcommand(1);
  CLI::App* pList = pArchive->add_subcommand("list", "the archived jobs by day, with time and size");
  pList->add_option("--root", options.strRoot, "the archive's root folder");
  pList->add_option("--queue", options.strQueue, "or the queue whose archive it is");
  CLI::App* pShow = pArchive->add_subcommand("show", "one job, control bytes by their names");
  pShow->add_option("FILE", options.strFile, "the job's file")->required();
  pShow->add_option("--raw", options.strRaw, "write its bytes to this file instead");
  CLI::App* pPrint = pArchive->add_subcommand("print", "print one again as a RAW job");
  pPrint->add_option("FILE", options.strFile, "the job's file")->required();
  pPrint->add_option("--queue", options.strQueue, "the queue to print on")->required();
  pPrint->add_flag("--yes", options.bYes, "do not ask");

  CLI::App* pDoctor = app.add_subcommand("doctor", "looks whether everything is as the monitor needs it");
  pDoctor->add_flag("--json", options.bJson, "as JSON");
  pDoctor->add_flag("--before-uninstall", options.bBeforeUninstall,
                    "only whether a queue's driver still names the monitor");

  CLI::App* pSettings = app.add_subcommand("settings", "shows and changes the settings of the machine or a queue");
  pSettings->add_option("QUEUE NAME=VALUE", options.settings, "a queue's name, and values to set (NAME= removes one)");

  pExplain->callback([&] {
    if (pExplainJob->count() + pAt->count() == 0)
      throw CLI::RequiredError("--job, --at or both: which job, or what time,");
  });

  try {
    std::vector<std::string> words = Arguments(argc, argv);
    std::reverse(words.begin(), words.end());  // as the library wants them
    app.parse(std::move(words));
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kExitWell : kExitUsage;
  }
  try {
    SetLogEncoding(options.strEncoding);
    if (pJobs->parsed()) return Jobs(options);
    if (pExplain->parsed()) return ExplainJob(options);
    if (pMetrics->parsed()) return ShowMetrics(options);
    if (pLog->parsed()) return ShowLog(options);
    if (pList->parsed()) return ArchiveList(options);
    if (pShow->parsed()) return ArchiveShow(options);
    if (pPrint->parsed()) return ArchivePrint(options);
    if (pDoctor->parsed()) return Doctor(options);
    return Settings(options);
  } catch (const std::invalid_argument& error) {
    std::fprintf(stderr, "lmctl: %s\n", Printable(error.what()).c_str());
    return kExitUsage;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "lmctl: %s\n", Printable(error.what()).c_str());
    return kExitWrong;
  }
}
