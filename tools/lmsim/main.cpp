// lmsim: worlds of random jobs and mishaps, a seed each, and what must hold after every one. Each runs in a process of its own,
// so that it begins like every other and a crash names it. A failing seed prints its own texts and how to replay it.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "tools/lmsim/explore.h"
#include "tools/lmsim/random_jobs.h"

namespace {

// Starts this program anew for one seed; what it prints goes to a file.
pid_t StartSeed(std::uint64_t ullSeed, bool bShow, const std::string& strOutput) {
  std::vector<std::string> arguments = {"lmsim", "--in-this-process", std::to_string(ullSeed)};
  if (bShow) arguments.emplace_back("--show");
  std::vector<char*> argumentPointers;
  for (std::string& strArgument : arguments) argumentPointers.push_back(strArgument.data());
  argumentPointers.push_back(nullptr);
  std::vector<char*> environment;
  for (char** ppsz = environ; *ppsz != nullptr; ++ppsz)
    if (!std::string(*ppsz).starts_with("W32_ROOT=")) environment.push_back(*ppsz);  // each has drives of its own
  environment.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, strOutput.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
  posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
  pid_t nChild = -1;
  const int nError =
      posix_spawn(&nChild, "/proc/self/exe", &actions, nullptr, argumentPointers.data(), environment.data());
  posix_spawn_file_actions_destroy(&actions);
  return nError == 0 ? nChild : -1;
}

// How far the seeds are, on a terminal.
class Progress {
 public:
  explicit Progress(std::uint64_t ullTotal) : m_ullTotal(ullTotal), m_bShow(isatty(STDERR_FILENO) != 0) {}
  void Show(std::uint64_t ullDone) {
    using namespace std::chrono;
    const auto now = steady_clock::now();
    if (!m_bShow || now - m_shown < milliseconds(500)) return;
    m_shown = now;
    const double dRate = static_cast<double>(ullDone) / std::max(0.001, duration<double>(now - m_begin).count());
    std::fprintf(stderr, "\r%llu of %llu seeds, %.1f a second, %.0f s left   ",
                 static_cast<unsigned long long>(ullDone), static_cast<unsigned long long>(m_ullTotal), dRate,
                 dRate > 0 ? static_cast<double>(m_ullTotal - ullDone) / dRate : 0);
  }
  ~Progress() {
    if (m_bShow) std::fprintf(stderr, "\r%60s\r", "");
  }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

 private:
  const std::uint64_t m_ullTotal;
  const bool m_bShow;
  std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
  std::chrono::steady_clock::time_point m_shown;
};

// Two at once for each core, since one hands over between its threads half of the time; none is begun after one failed. Returns
// the exit status.
int RunSeeds(std::uint64_t ullFirst, std::uint64_t ullSeeds, bool bShow) {
  const std::size_t nAtOnce = std::max(2u, 2 * std::thread::hardware_concurrency());
  struct Running {
    std::uint64_t ullSeed;
    std::string strOutput;
  };
  std::map<pid_t, Running> running;
  Progress progress(ullSeeds);
  std::uint64_t ullStarted = 0, ullDone = 0, ullFailed = 0;
  while (ullDone < ullStarted || (ullStarted < ullSeeds && ullFailed == 0)) {
    while (running.size() < nAtOnce && ullStarted < ullSeeds && ullFailed == 0) {
      const std::uint64_t ullSeed = ullFirst + ullStarted++;
      const std::string strOutput = std::filesystem::temp_directory_path() /
                                    ("lmsim-" + std::to_string(getpid()) + "-" + std::to_string(ullSeed));
      const pid_t nChild = StartSeed(ullSeed, bShow, strOutput);
      if (nChild < 0) {
        std::fprintf(stderr, "lmsim: the seed's process cannot be started\n");
        return 1;
      }
      running[nChild] = {ullSeed, strOutput};
    }
    int nStatus = -1;
    const auto it = running.find(waitpid(-1, &nStatus, 0));
    if (it == running.end()) continue;
    if (nStatus != 0 || bShow) {
      std::ifstream output(it->second.strOutput);
      std::printf("%s", std::string(std::istreambuf_iterator<char>(output), {}).c_str());
    }
    if (nStatus != 0) {
      ++ullFailed;
      std::printf("FAILED, replay: ./run simulate --show --seeds 1 --first %llu\n",
                  static_cast<unsigned long long>(it->second.ullSeed));
    }
    unlink(it->second.strOutput.c_str());
    running.erase(it);
    progress.Show(++ullDone);
  }
  std::printf("%llu seeds from %llu on, %s\n", static_cast<unsigned long long>(ullDone),
              static_cast<unsigned long long>(ullFirst), ullFailed == 0 ? "all well" : "FAILED");
  return ullFailed == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Random jobs, faults and cancels on several ports at once, in many worlds.");
  std::uint64_t ullFirst = 1, ullSeeds = 1000, ullSeed = 0;
  bool bShow = false;
  app.add_option("--seeds", ullSeeds, "how many worlds")->capture_default_str()->envname("LM_SEEDS");
  app.add_option("--first", ullFirst, "the first one's seed")->capture_default_str();
  app.add_flag("--show", bShow, "what happened in each world, and its log");
  CLI::Option* pOne = app.add_option("--in-this-process", ullSeed, "one seed, here")->group("");
  ExploreOptions explore;
  bool bExplore = false;
  app.add_flag("--explore", bExplore, "instead: every order of events of small scenes, within a bound");
  app.add_option("--scene", explore.strScene, "with --explore: one scene");
  app.add_option("--preemptions", explore.nPreemptions,
                 "with --explore: at most so many, instead of the scene's own number")
      ->check(CLI::Range(0, 4));
  app.add_option("--schedule", explore.strSchedule, "with --scene: one schedule of it, told step by step");
  app.add_flag("--every-call", explore.bEveryCall, "with --explore: leave no crossing out");
  app.add_flag("--share", explore.bShare, "with --explore: the part that the tests run");
  CLI11_PARSE(app, argc, argv);
  if (bExplore) return Explore(explore);
  if (pOne->count() != 0) return RunSeed(ullSeed, bShow) ? 0 : 1;
  return RunSeeds(ullFirst, ullSeeds, bShow);
}
