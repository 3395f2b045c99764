// What is known so far of a job that is under way; the state machine's own.
#pragma once

#include <array>

#include "tools/lmctl/job_story.h"

namespace lmctl {

struct StoryMachine::Job {
  Story story;
  std::array<bool, 128> levels{};  // letters of the levels that its lines have
  std::vector<Key> threads;
  bool bStarting = true;  // no write yet
  bool bBytesUnknown = false;
  std::int64_t nBytes = 0;

  // The write that is under way.
  bool bWriting = false;
  bool bDataSent = false;  // its data went out, or failed to
  bool bTraced = false;    // level T shows its steps
  bool bDrained = false;   // the printer is asked whether it is ready
  bool bReady = false;
  std::int64_t nOffered = 0;
  struct Send {
    std::int64_t nLength, nWritten, nCode;
  };
  std::vector<Send> sends;  // of a write whose steps are not shown
  bool bLastWriteFailed = false;
  std::int64_t nLastCode = kUnknown;
  std::int64_t nLastMissing = 0;  // bytes of the last write that nobody took
  std::int64_t nDropped = 0;

  // The job's end on the device path.
  std::int64_t nPendingLength = kUnknown;  // of the send that is under way
  std::int64_t nRequestRest = 0;           // of a request that went out in part
  std::int64_t nResendRest = 0;            // of the job that is being sent again, as far as the lines tell
  enum class Exec : std::uint8_t { NotAsked, Asked, Failed } exec = Exec::NotAsked;
  bool bAskedAgain = false;  // the printer was asked to confirm it more than once: something came between
  bool bOneByte = false;
  bool bGaveUp = false;
  bool bCannotReprint = false;
  bool bResend = false;
  bool bReset = false;
  std::int64_t nDone = 0;  // resends that were logged as done
  std::string strLoss;     // why the printer did not confirm

  bool bCancelNow = false;   // the spooler's last answer
  bool bCancelSeen = false;  // by the watcher: that stays
  bool bCancelEver = false;
  LocalMs llCancelled = 0;
  LocalMs llWaitFrom = 0;
  LocalMs llResendFrom = 0;
  bool bRefused = false;

  bool Has(char cLevel) const { return levels[static_cast<unsigned char>(cLevel) & 127]; }
  void Saw(char cLevel) { levels[static_cast<unsigned char>(cLevel) & 127] = true; }
};

}  // namespace lmctl
