#include "tools/lmsim/explore.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "posix/explore.h"
#include "tools/lmsim/scene.h"

namespace {

w32::Exploring ExploringOf(const Scene& scene, Stage& stage, const ExploreOptions& options) {
  w32::Exploring what;
  what.strName = scene.pszName;
  what.play = [&] {
    scene.pfnPlay(stage);
    stage.Play();
  };
  what.outcome = [&] { return stage.Outcome(); };
  what.finish = [&](bool bFault, bool bShow) {
    if (bShow)
      for (const std::string& strEntry : stage.World().journal.Entries()) std::printf("   %s\n", strEntry.c_str());
    if (scene.pfnCheck != nullptr && !bFault) scene.pfnCheck(stage);
    stage.Finish(bFault);
    return stage.verdict.AllWell();
  };
  what.nPreemptions = options.nPreemptions >= 0 ? options.nPreemptions
                      : options.bShare          ? scene.nShare
                                                : scene.nPreemptions;
  what.nPreemptionsWithFault = options.bShare || options.nPreemptions >= 0 ? -1 : scene.nPreemptionsWithFault;
  what.bEveryCall = options.bEveryCall;
  what.bFreshDrives = scene.bFiles;
  if (scene.pszFrom != nullptr) what.strFrom = scene.pszFrom;
  if (options.bShare && scene.pszShareFrom != nullptr) what.strFrom = scene.pszShareFrom;
  what.affected = scene.affected;
  return what;
}

bool Report(const w32::Exploring& what, const ExploreOptions& options) {
  const w32::Explored explored = Explore(what);
  const bool bWell = explored.strFailed.empty();
  std::printf("%-20s %d preemptions: %llu schedules, %zu outcomes (%04x); with a failing call: %llu; %.1f s: %s\n",
              what.strName.c_str(), what.nPreemptions, static_cast<unsigned long long>(explored.ullSchedules),
              explored.nOutcomes, static_cast<unsigned>(explored.ullFingerprint & 0xFFFF),
              static_cast<unsigned long long>(explored.ullWithFailingCall), explored.dSeconds,
              bWell ? "all well" : "FAILED");
  if (bWell) return true;
  std::printf("%sFAILED, replay: ./run simulate --explore --scene %s --schedule '%s'%s\n", explored.strFailure.c_str(),
              what.strName.c_str(), explored.strFailed.c_str(),
              options.bEveryCall ? " --every-call"
              : options.bShare   ? " --share"
                                 : "");
  return false;
}

// A scene in a process of its own: log, archive and world are the process's.
bool ExploreScene(const Scene& scene, const ExploreOptions& options) {
  std::fflush(stdout);
  const pid_t nChild = fork();
  if (nChild == 0) {
    Stage stage;
    scene.pfnBuild(stage);
    const w32::Exploring what = ExploringOf(scene, stage, options);
    bool bWell = false;
    if (options.strSchedule.empty()) {
      bWell = Report(what, options);
    } else {
      bWell = ShowSchedule(what, options.strSchedule);
      std::printf("%s\n", bWell ? "all well" : "FAILED");
    }
    std::fflush(stdout);
    _exit(bWell ? 0 : 1);
  }
  int nStatus = -1;
  waitpid(nChild, &nStatus, 0);
  return nStatus == 0;
}

}  // namespace

int Explore(const ExploreOptions& options) {
  bool bWell = true;
  std::size_t nScenes = 0;
  for (const Scene& scene : AllScenes()) {
    if (!options.strScene.empty() && options.strScene != scene.pszName) continue;
    ++nScenes;
    bWell = ExploreScene(scene, options) && bWell;
  }
  if (nScenes == 0) {
    std::fprintf(stderr, "no scene of this name; there are:\n");
    for (const Scene& scene : AllScenes()) std::fprintf(stderr, "  %-20s %s\n", scene.pszName, scene.pszWhat);
    return 2;
  }
  std::printf("%zu scenes, %s\n", nScenes, bWell ? "all well" : "FAILED");
  return bWell ? 0 : 1;
}
