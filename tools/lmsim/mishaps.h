// Those who get in the monitor's way while it works, each on a thread of its own. Each ends by itself; one that has a flag ends
// soon after it is set.
#pragma once

#include <windows.h>

#include <atomic>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "sim/side_thread.h"

// Another process that has the log's mutex and does not give it back for a while.
std::unique_ptr<sim::SideThread> HoldLogMutex(DWORD dwMilliseconds);

// A user who puts links to the folder kOutside in the place of log and archive folders, for a while each.
inline constexpr char kOutside[] = "C:\\Outside";
struct LinkPlan {
  std::string strPlace;
  DWORD dwWait;
};
void MakeOutside();
std::unique_ptr<sim::SideThread> MakeLinks(std::vector<LinkPlan> plan, const std::atomic<bool>& bStop);

// Programs and users that have to do with the files: scanners, locks that are not given up for a while, placeholders, clients
// whose hives refuse. EndMeddling puts an end to what is left of it.
std::unique_ptr<sim::SideThread> MeddleWithFiles(std::vector<std::string> places, std::mt19937_64& random,
                                                 const std::atomic<bool>& bStop);
void EndMeddling();

// Moves the clock on, or back.
void MoveClock(int nSeconds);
