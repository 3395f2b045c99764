// The course of one job: where it stands, and what its lines have proved so far. Fed with the steps of its own lines, in their
// order; which job a line belongs to is settled by the story machine. Pure.
//
// How to read it: a job is in one State. Its data comes in writes; what goes to the device outside of a write belongs to its end,
// and moves the job from state to state (BeginSend). While level T is on, every transfer shows its beginning, and the order of
// the steps alone tells what a transfer is. Without it only amounts are shown, and a transfer is told by them where they leave no
// doubt.
// What is not proved stays not told (claims.cpp).
#pragma once

#include <array>

#include "tools/lmctl/story/steps.h"
#include "tools/lmctl/story/story.h"

namespace lmctl {

class JobCourse {
 public:
  enum class State : std::uint8_t {
    Starting,   // no data yet
    Data,       // in its data
    Asked,      // the printer was asked to confirm it
    Lost,       // it did not; it is asked for its status until it can print
    Cleared,    // it was reset
    Readied,    // and asked for its status once more
    Resending,  // the job goes out again
  };
  struct At {
    LocalMs llTime = 0;
    Place place;
  };

  JobCourse(std::string strQueue, std::int64_t nJob, std::uint32_t nProcess, const At& at, bool bEvents);

  // A line of the job's.
  void Take(Step step, const LogLine& line, const At& at);
  // A call begins: what the one before left open is closed.
  void CloseCall();
  // The start was refused, and so the job is over. kUnknown: the code is not logged.
  void Refuse(std::int64_t nError, std::string strReason, const At& at);
  // Its end: bOver when that is proved, llEnded where its time is.
  Story Conclude(bool bOver, LocalMs llEnded);

  // What others know about it.
  void LinesWereLost() { m_story.bLinesLost = true; }
  void LevelsChanged() { m_bLevelsChanged = true; }        // level T was off at some time, or may have been
  void LinesMayBeOthers() { m_bOthers = true; }            // or its own may count for another job
  void PauseOfLevels();                                    // as long as levels stay as they are: one may have been off
  void IsOnSeveralThreads() { m_bSeveralThreads = true; }  // or on one that serves other jobs meanwhile
  void MayBeCancelled() { m_bMayBeCancelled = true; }      // somebody's watcher saw a deletion
  void KnowsDetails() { m_bDetails = true; }               // level D was on in its process
  // at: the line that tells the port.
  void SetPort(std::string_view port, const At& at);
  void Note(std::string strText, const At& at);

  bool IsTraced() const { return Has('T'); }
  bool IsTracedThroughout() const { return Has('T') && !m_bLevelsMixed && !m_bLevelsChanged; }  // as far as it is known
  bool Has(char cLevel) const { return m_levels[static_cast<unsigned char>(cLevel) & 127]; }
  bool IsWriting() const { return m_write.bOpen; }
  bool IsFresh() const { return m_bInStart; }                             // still in the call that starts it
  bool IsSurelyOwn() const { return !m_story.bLinesLost && !m_bOthers; }  // what its lines say
  bool IsOnPortMonitor() const { return m_story.path == Path::PortMonitor; }
  const Story& story() const { return m_story; }

 private:
  struct Sent {
    std::int64_t nLength, nTook, nCode;  // kUnknown where it is not shown; nTook: it failed
    At at;
  };
  enum class Request : std::uint8_t { Status, Exec };

  void Prove(Claim claim, const At& at) { m_story.proofs[static_cast<std::size_t>(claim)] = at.place; }
  void TakesPath(Path path, const At& at);
  void Cancelled(const LogLine& line, const At& at);
  void BeginWrite(const LogLine& line, const At& at);
  void DataSent(const Sent& sent);
  void UntracedWrite();
  void BeginSend(std::int64_t nLength, const At& at);
  void EndSend(std::int64_t nLength, std::int64_t nTook, std::int64_t nCode, const At& at);
  void UntracedEndSend(const Sent& sent);
  void BeginRequest(Request request, std::int64_t nLength, const At& at);
  void Resend(std::int64_t nLength, const At& at);
  void Resent(const Sent& sent);
  void BeginWait(const At& at);
  void EndWait(Phase::Kind kind, LocalMs& llFrom, const At& at);

  // Claims (claims.cpp).
  bool IsNeverTraced() const { return !Has('T') && !m_bLevelsChanged; }
  bool MayBeOthers() const;
  bool ShowsAmounts() const;
  bool MayBeOut() const;
  bool WasSentOnce() const;
  bool MayHaveGivenUp() const;
  void ConcludeNumbers();
  void ConcludeTwice();
  void ConcludeOutcome();
  void ConcludeConfirmation();
  void Claims(Outcome outcome, std::string strReason, const At& at);
  void NotTold(std::string strReason) { m_story.strReason = std::move(strReason); }

  Story m_story;
  const bool m_bEvents;
  State m_state = State::Starting;
  std::array<bool, 128> m_levels{};  // letters of the levels that its lines have
  bool m_bLevelsChanged = false;
  bool m_bLevelsMixed = false;  // a call or a transfer without a line of level T: so that level was off, at least then
  bool m_bPaused = false;       // while a transfer was under way: its end must come next
  bool m_bSeveralThreads = false;
  bool m_bOthers = false;  // lines may be another job's
  bool m_bUnclear = false;
  bool m_bMayBeCancelled = false;
  bool m_bDetails = false;
  bool m_bInfoMissing = false;  // a line of level I, or of the result of a send, should have been there

  // The start's, or a write's call.
  bool m_bCallTraced = false;
  bool m_bInStart = true;
  struct Write {
    bool bOpen = false;
    bool bOnDevice = false;
    bool bDrained = false;  // the printer is asked first whether it is ready
    bool bAsked = false;
    bool bRead = false;
    bool bDone = false;  // its data went out, or failed to
    std::int64_t nOffered = 0;
    std::int64_t nRequestRest = 0;
    At at;
  } m_write;
  std::vector<Sent> m_sends;  // of a write whose steps are not shown
  Sent m_pending = {kUnknown, kUnknown, 0, {}};
  bool m_bPendingIsData = false;

  std::int64_t m_nBytes = 0;
  bool m_bBytesUnknown = false;
  At m_bytesAt;
  bool m_bLastFailed = false;
  bool m_bOneFailed = false;  // a transfer of data, of which an unknown part went out
  std::int64_t m_nLastCode = kUnknown;
  std::int64_t m_nLastMissing = 0;
  bool m_bLastUnknown = false;  // no line tells what became of the last write
  At m_lastAt;

  // The end.
  std::int64_t m_nRequestRest = 0;
  bool m_bRead = false;  // the printer's answers are being read
  bool m_bOffline = false;
  At m_askedAt;
  At m_answerAt;
  bool m_bOneByte = false;
  unsigned m_nAsked = 0;
  bool m_bAutoReprint = false;  // it is proved that the queue asks for it
  bool m_bGaveUp = false;
  bool m_bResendImpossible = false;
  std::int64_t m_nResendRest = 0;
  std::int64_t m_nResent = 0;  // whole, by its transfers
  At m_resentAt;               // the first byte that went out again
  At m_clearedAt;              // the device of a deleted job is cleared
  std::string m_strLoss;

  bool m_bCancelled = false;
  bool m_bStatusKnown = false;  // deleted or restarted
  At m_cancelledAt;
  bool m_bRefused = false;
  LocalMs m_llWaitFrom = 0;
  LocalMs m_llResendFrom = 0;
};

}  // namespace lmctl
