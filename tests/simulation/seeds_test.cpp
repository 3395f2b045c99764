// Many seeds, each in a process of its own, so that it begins like every other and a crash names it. A failing seed prints its
// own texts and how to replay it.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <thread>

#include "tests/simulation/random_jobs.h"
#include "tests/support/world_test.h"

using namespace testing_support;

namespace {

std::uint64_t FromEnvironment(const char* pszName, std::uint64_t ullDefault) {
  const char* psz = std::getenv(pszName);
  return psz != nullptr ? std::strtoull(psz, nullptr, 10) : ullDefault;
}

// Starts this program anew for one seed; what it prints goes to a file.
pid_t StartSeed(std::uint64_t ullSeed, const std::string& strOutput) {
  std::string strFilter = "--gtest_filter=Simulation.TheSeedOfThisProcess";
  std::string strProgram = "simulation_tests";
  char* apszArguments[] = {strProgram.data(), strFilter.data(), nullptr};
  std::string strSeed = "LM_THE_SEED=" + std::to_string(ullSeed);
  std::vector<char*> environment;
  for (char** ppsz = environ; *ppsz != nullptr; ++ppsz)
    if (!std::string(*ppsz).starts_with("W32_ROOT=")) environment.push_back(*ppsz);  // each has drives of its own
  environment.push_back(strSeed.data());
  environment.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, strOutput.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
  posix_spawn_file_actions_adddup2(&actions, 1, 2);
  pid_t nChild = -1;
  const int nError = posix_spawn(&nChild, "/proc/self/exe", &actions, nullptr, apszArguments, environment.data());
  posix_spawn_file_actions_destroy(&actions);
  return nError == 0 ? nChild : -1;
}

// How far the seeds are, on a terminal.
class Progress {
 public:
  explicit Progress(std::uint64_t ullTotal) : m_ullTotal(ullTotal), m_bShow(isatty(2) != 0) {}
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

TEST(Simulation, RandomJobsUnderManySeeds) {
  const std::uint64_t ullFirst = FromEnvironment("LM_FIRST_SEED", 1);
  const std::uint64_t ullSeeds = FromEnvironment("LM_SEEDS", 1000);
  const std::size_t nAtOnce = std::max(1u, std::thread::hardware_concurrency());
  struct Running {
    std::uint64_t ullSeed;
    std::string strOutput;
  };
  std::map<pid_t, Running> running;
  Progress progress(ullSeeds);
  std::uint64_t ullStarted = 0;
  std::uint64_t ullDone = 0;
  while (ullDone < ullStarted || (ullStarted < ullSeeds && !HasFailure())) {
    while (running.size() < nAtOnce && ullStarted < ullSeeds && !HasFailure()) {
      const std::uint64_t ullSeed = ullFirst + ullStarted++;
      const std::string strOutput =
          ::testing::TempDir() + sim::Format("seed-%d-%llu.txt", getpid(), static_cast<unsigned long long>(ullSeed));
      const pid_t nChild = StartSeed(ullSeed, strOutput);
      ASSERT_GT(nChild, 0);
      running[nChild] = {ullSeed, strOutput};
    }
    int nStatus = -1;
    const auto it = running.find(waitpid(-1, &nStatus, 0));
    if (it == running.end()) continue;
    if (nStatus != 0) {
      std::ifstream output(it->second.strOutput);
      std::printf("%s", std::string(std::istreambuf_iterator<char>(output), {}).c_str());
      ADD_FAILURE() << "replay: LM_SHOW=1 ./run simulate --seeds 1 --first " << it->second.ullSeed;
    }
    unlink(it->second.strOutput.c_str());
    running.erase(it);
    progress.Show(++ullDone);
  }
  std::printf("%llu seeds from %llu on\n", static_cast<unsigned long long>(ullDone),
              static_cast<unsigned long long>(ullFirst));
}

// Run by the test above. Without a seed it is one of a few that cover little.
TEST(Simulation, TheSeedOfThisProcess) { RunSeed(FromEnvironment("LM_THE_SEED", 1)); }

}  // namespace
