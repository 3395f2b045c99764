// The simulated service manager: one service and its state.
#pragma once

#include <windows.h>

namespace sim {

struct ServiceManager {
  bool bInstalled = true;
  DWORD dwState = SERVICE_RUNNING;
  unsigned nAsked = 0;  // status queries so far
};

}  // namespace sim
