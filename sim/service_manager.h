// The simulated service manager: one service and its state.
#pragma once

#include <windows.h>

#include <atomic>

namespace sim {

struct ServiceManager {
  bool bInstalled = true;
  std::atomic<DWORD> dwState = SERVICE_RUNNING;
  std::atomic<unsigned> nAsked = 0;  // status queries so far
};

}  // namespace sim
