// Every order of events of a small scene, within a bound.
#pragma once

#include <cstdint>
#include <string>

struct ExploreOptions {
  std::string strScene;     // one scene; empty: all
  std::string strSchedule;  // one schedule of it, told step by step; empty: all within the bound
  int nPreemptions = -1;    // at most so many; -1: what the scene names
  bool bShare = false;      // the part that the tests run
  bool bEveryCall = false;  // also the crossings that are left out because nothing can come of them
};

// Explores and prints a line a scene. Returns the exit status: 0 when everything held. The process must be fresh.
int Explore(const ExploreOptions& options);
