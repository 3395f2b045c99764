// What a line says: the lines that tell of a job, as steps. Which is which stands in one table in steps.cpp.
#pragma once

#include <cstdint>

#include "tools/lmctl/log/log_line.h"

namespace lmctl {

enum class Step : std::uint8_t {
  None,    // tells nothing of a job
  CutOff,  // the line is not whole
  // The monitor and its ports.
  MonitorLoaded,
  PortOpened,  // names port and queue
  PortMade,    // names the port and its address
  PortFreed,   // names its address
  PortClosed,  // names it
  // The start.
  Start,  // names queue and job
  StartTraced,
  StartOnDevice,
  Busy,  // names queue and job
  RefusedQueue,
  RefusedByPort,  // names queue and job
  RefusedUnknownJob,
  RefusedMemory,
  RefusedLibrary,
  RefusedCall,
  RefusedLock,
  RefusedOpen,
  RefusedSync,
  // The spooler deletes or restarts it.
  Watch,  // names the job
  WatcherSawCancel,
  SawCancel,
  AskedCancel,  // names the port's address
  // Its data.
  Offer,     // names the port
  Inspect,   // names the port's address
  OnDevice,  // names the port
  Dropped,
  PortTook,    // names the port
  PortFailed,  // names the port
  NoMemory,
  // A transfer through the library.
  SendBegins,
  SendTook,
  SendShort,
  SendFailed,
  Drain,
  Read,
  Reset,
  UnlockFailed,
  // The waits.
  Answer,
  Ready,
  Stopped,
  Offline,
  NotConnected,
  // The job sent again.
  SentAgain,
  ResendOffline,
  ResendImpossible,
  GaveUp,
  // The end.
  EndOnPort,  // names port and job
  LastPage,   // names the port's address and the job
};

Step StepOf(const LogLine& line);

}  // namespace lmctl
