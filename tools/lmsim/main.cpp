// lmsim: worlds of random jobs and mishaps, a seed each, and what must hold after every one. Each runs in a process of its own,
// so that it begins like every other and a crash names it. A failing seed prints its own texts and how to replay it.
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "posix/forked_run.h"
#include "posix/progress_line.h"
#include "tools/lmsim/explore.h"
#include "tools/lmsim/random_jobs.h"
#include "tools/lmsim/story_judge.h"

namespace {

constexpr unsigned kMostSecondsASeed = 300;  // of the machine's own time; most take less than one

// Two at once for each core, since one hands over between its threads half of the time; none is begun after one failed. Returns
// the exit status.
int RunSeeds(std::uint64_t ullFirst, std::uint64_t ullSeeds, bool bShow) {
  const unsigned nAtOnce = std::max(2u, 2 * std::thread::hardware_concurrency());
  ClaimCounts& counts = ClaimCounts::Get();
  std::vector<w32::ForkedRun> runs;
  for (unsigned n = 0; n < nAtOnce; ++n) runs.emplace_back(std::to_string(n));
  std::vector<std::uint64_t> seeds(nAtOnce);
  w32::ProgressLine progress("seeds");
  std::uint64_t ullStarted = 0, ullDone = 0, ullFailed = 0;
  while (ullDone < ullStarted || (ullStarted < ullSeeds && ullFailed == 0)) {
    for (unsigned n = 0; n < nAtOnce && ullStarted < ullSeeds && ullFailed == 0; ++n) {
      if (runs[n].IsRunning()) continue;
      const std::uint64_t ullSeed = seeds[n] = ullFirst + ullStarted++;
      runs[n].FreshDrives();
      runs[n].Start([&] {
        alarm(kMostSecondsASeed);  // a hang that the scheduler does not see
        return RunSeed(ullSeed, bShow);
      });
    }
    int nStatus = -1;
    const pid_t nChild = waitpid(-1, &nStatus, 0);
    const auto it = std::find_if(runs.begin(), runs.end(), [&](w32::ForkedRun& run) { return run.Ended(nChild); });
    if (it == runs.end()) continue;
    if (nStatus != 0 || bShow) std::printf("%s", it->Output().c_str());
    if (nStatus != 0) {
      ++ullFailed;
      std::printf("FAILED, replay: ./run simulate --show --seeds 1 --first %llu\n",
                  static_cast<unsigned long long>(seeds[static_cast<std::size_t>(it - runs.begin())]));
    }
    ++ullDone;
    if (progress.IsDue()) progress.Show(ullDone, static_cast<double>(ullSeeds - ullDone));
  }
  counts.Print();
  std::printf("%llu seeds from %llu on, %s\n", static_cast<unsigned long long>(ullDone),
              static_cast<unsigned long long>(ullFirst), ullFailed == 0 ? "all well" : "FAILED");
  return ullFailed == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Random jobs, faults and cancels on several ports at once, in many worlds.");
  std::uint64_t ullFirst = 1, ullSeeds = 1000;
  bool bShow = false;
  app.add_option("--seeds", ullSeeds, "how many worlds")->capture_default_str()->envname("LM_SEEDS");
  app.add_option("--first", ullFirst, "the first one's seed")->capture_default_str();
  app.add_flag("--show", bShow, "what happened in each world, and its log");
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
  return bExplore ? Explore(explore) : RunSeeds(ullFirst, ullSeeds, bShow);
}
