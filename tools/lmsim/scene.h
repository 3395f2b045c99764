// A small scene for the exploration: a world, the threads that meet in it, and what must hold afterwards.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "posix/control.h"
#include "sim/side_thread.h"
#include "sim/world.h"
#include "tools/lmsim/verdict.h"

// One job and what is known of it afterwards.
struct SceneJob {
  DWORD dwId = 0;
  std::string strQueue;
  std::string strData;
  bool bToBeConfirmed = true;
  bool bMayBeCutOff = false;  // by the close of its port
  sim::PrintResult result;
  DWORD dwEnded = 0;            // GetTickCount
  std::uint64_t ullLateMs = 0;  // how long threads had been kept waiting by then
};

class Stage {
 public:
  // Builds the world: quiet log, the monitor attached.
  Stage();

  // ---- before the threads
  // A queue with automatic reprint on a printer of its own, whose port is open.
  HANDLE AddTill(const std::string& strQueue, const std::string& strPort, const sim::PrinterSettings& settings = {},
                 const std::string& strDriver = "Kelvane HM-520");
  SceneJob& AddJob(const std::string& strQueue, const std::string& strData, const std::string& strDatatype = "TEXT");

  // ---- the threads; they start when all of them are there
  void Thread(const char* pszName, std::function<void()> act);
  // Things that happen one after the other, each at any moment, but within this time.
  void Happens(std::vector<std::function<void()>> acts, DWORD dwWithinMs = INFINITE);
  void Print(HANDLE hPort, SceneJob& job, const sim::PrintOptions& options = {});
  // Runs all of them to their end.
  void Play();

  // ---- afterwards
  // Closes what is open, looks at what must hold in every scene, and ends the world. bFault: a call has failed.
  void Finish(bool bFault);
  // What one course of events came to, for the comparison of explorations.
  std::string Outcome();

  sim::World& World() { return *m_world; }
  Verdict verdict;

 private:
  // What must hold of a job: nothing is sent behind its deletion; it is confirmed, or the device is cleared; a job that
  // nobody deleted lies whole on the last strip, once.
  void CheckDeletion(const SceneJob& job);
  void CheckConfirmation(const SceneJob& job);
  void CheckPaper(const SceneJob& job);
  bool IsSeenDeleted(const SceneJob& job) const;
  std::string PortOf(const SceneJob& job);

  struct Actor {
    const char* pszName;
    std::function<void()> act;
    std::unique_ptr<sim::SideThread> pThread;
  };
  w32::Balance m_before;
  std::optional<sim::World> m_world;
  std::vector<std::unique_ptr<SceneJob>> m_jobs;
  std::vector<Actor> m_actors;
};

struct Scene {
  const char* pszName = nullptr;
  const char* pszWhat = nullptr;
  void (*pfnBuild)(Stage& stage) = nullptr;  // alone in the process
  void (*pfnPlay)(Stage& stage) = nullptr;   // adds the threads
  void (*pfnCheck)(Stage& stage) = nullptr;  // what must hold beside what always must; null: nothing
  // Calls whose result what happens can change: it is enough to let it happen right before one of them.
  std::vector<std::string> affected = {};
  int nPreemptions = 2;
  int nPreemptionsWithFault = 1;       // together with one failing call; -1: none fails
  const char* pszFrom = nullptr;       // the first call of this name begins it; null: the threads' start does
  int nShare = 0;                      // preemptions in the part that the tests run
  const char* pszShareFrom = nullptr;  // … which begins at the first call of this name; null: with the threads
  bool bFiles = false;                 // it writes files: each run gets fresh drives
};

std::span<const Scene> AllScenes();
