// What a job's story claims: what its lines prove, taken together, and what they do not tell.
//
// Two kinds of jobs can be judged. One that is traced throughout shows every step, and what it does not show did not happen. One
// that is never traced shows amounts alone; it is taken that level I stayed on and that the calls of a job come on one thread,
// unless the log shows otherwise.
#include <cstdio>

#include "tools/lmctl/story/job_course.h"

namespace lmctl {

const char* OutcomeName(Outcome outcome) {
  switch (outcome) {
    case Outcome::Confirmed: return "confirmed";
    case Outcome::Printed: return "printed";
    case Outcome::Cancelled: return "cancelled";
    case Outcome::Refused: return "refused";
    case Outcome::Failed: return "failed";
    case Outcome::Unfinished: return "unfinished";
    case Outcome::Unknown: break;
  }
  return "";
}

const char* ClaimName(Claim claim) {
  static constexpr const char* kNames[kClaims] = {"port",    "ended", "path",     "bytes",    "writes",
                                                  "outcome", "error", "reprints", "response", "maybeTwice"};
  return kNames[static_cast<std::size_t>(claim)];
}

bool Story::IsTold(Claim claim) const {
  switch (claim) {
    case Claim::Port: return !strPort.empty();
    case Claim::Ended: return !bOver || llEnded != 0;
    case Claim::Path: return path != Path::Unknown || outcome == Outcome::Refused;  // which may have none
    case Claim::Bytes: return nBytes != kUnknown;
    case Claim::Writes: return nWrites != kUnknown;
    case Claim::Outcome: return outcome != Outcome::Unknown;
    case Claim::Error: return !bErrorNotLogged;
    case Claim::Reprints: return nReprints != kUnknown;
    case Claim::Response: return !bResponseNotLogged;
    case Claim::MaybeTwice: return maybeTwice != Tri::Unknown;
  }
  return false;
}

std::vector<std::string> Story::NotLogged() const {
  std::vector<std::string> names;
  for (std::size_t n = 0; n < kClaims; ++n)
    if (!IsTold(static_cast<Claim>(n))) names.emplace_back(ClaimName(static_cast<Claim>(n)));
  return names;
}

Story JobCourse::Conclude(bool bOver, LocalMs llEnded) {
  CloseCall();
  m_story.bOver = bOver;
  m_story.llEnded = llEnded;
  if (llEnded != 0) Prove(Claim::Ended, {0, m_story.last});
  ConcludeNumbers();
  ConcludeTwice();
  ConcludeOutcome();
  if (m_story.nReprints > 0) {
    m_story.strReason +=
        ", sent again " + (m_story.nReprints == 1 ? std::string("once") : std::to_string(m_story.nReprints) + " times");
    if (!m_strLoss.empty()) m_story.strReason += ": " + m_strLoss;
  }
  return std::move(m_story);
}

void JobCourse::Claims(Outcome outcome, std::string strReason, const At& at) {
  m_story.outcome = outcome;
  m_story.strReason = std::move(strReason);
  m_story.proofs[static_cast<std::size_t>(Claim::Outcome)] = at.place.nLine != 0 ? at.place : m_story.last;
}

// Without level T, lines of the device's way name no port: on threads that serve several jobs they are anybody's.
bool JobCourse::MayBeOthers() const {
  return m_bOthers || (m_bSeveralThreads && !Has('T') && m_story.path != Path::PortMonitor);
}

// Every transfer of the job's shows how much was taken.
bool JobCourse::ShowsAmounts() const {
  return Has('I') && !m_bInfoMissing && !m_story.bLinesLost && !MayBeOthers() &&
         (IsTracedThroughout() || IsNeverTraced());
}

// A virtual COM port without AutoReprint lets an unconfirmed job be; a line of level D says so.
bool JobCourse::MayHaveGivenUp() const {
  return m_story.strPort.starts_with("COM") && !m_bAutoReprint && !(IsTracedThroughout() && m_bDetails);
}

void JobCourse::ConcludeNumbers() {
  if (m_bRefused) {
    m_story.nBytes = m_story.nWrites = 0;
    return;
  }
  const At last = {0, m_story.last};
  if (!ShowsAmounts()) {
    m_story.nBytes = m_story.nWrites = kUnknown;
    return;
  }
  if (m_story.nWrites == kUnknown) {
    m_story.nWrites = 0;
    Prove(Claim::Writes, last);
  }
  m_story.nBytes = m_bBytesUnknown ? kUnknown : m_nBytes;
  if (!m_bBytesUnknown) Prove(Claim::Bytes, m_bytesAt.place.nLine != 0 ? m_bytesAt : last);
}

// Data of it may have gone out.
bool JobCourse::MayBeOut() const { return m_nBytes > 0 || m_bBytesUnknown || m_bOneFailed || !ShowsAmounts(); }

// Its lines show that the monitor sent nothing of it again.
bool JobCourse::WasSentOnce() const {
  if (m_bRefused || m_story.path == Path::PortMonitor) return true;
  if (m_resentAt.place.nLine != 0 || m_bUnclear || MayBeOthers() || m_story.bLinesLost) return false;
  if (IsTracedThroughout()) return m_state != State::Resending || ShowsAmounts();
  const bool bNothingLost =
      (m_state == State::Starting || m_state == State::Data || m_state == State::Asked) && m_nAsked <= 1;
  return ShowsAmounts() && m_story.bOver && !m_bBytesUnknown && bNothingLost;
}

void JobCourse::ConcludeTwice() {
  const At last = {0, m_story.last};
  if (WasSentOnce()) {
    m_story.nReprints = 0;
    m_story.maybeTwice = Tri::No;
    Prove(Claim::Reprints, last);
    Prove(Claim::MaybeTwice, last);
  } else if (m_resentAt.place.nLine != 0 && !MayBeOthers()) {
    m_story.maybeTwice = Tri::Yes;
    m_story.byTwice |= kTwiceSentAgain;
    Prove(Claim::MaybeTwice, m_resentAt);
    if (!m_bUnclear && !m_story.bLinesLost && ShowsAmounts() && !m_bBytesUnknown) {
      m_story.nReprints = m_nResent;
      Prove(Claim::Reprints, m_resentAt);
    }
  }
  // What goes on may be sent again yet; if its process ended, the spooler prints it again.
  if (!m_story.bOver && m_story.maybeTwice == Tri::No) m_story.maybeTwice = Tri::Unknown;
  if (m_bRefused || !MayBeOut()) return;
  // What was restarted it prints again too.
  const bool bCancelled = m_bCancelled || m_clearedAt.place.nLine != 0 || m_bMayBeCancelled;
  if (m_story.bRestarted) {
    m_story.maybeTwice = Tri::Yes;
    m_story.byTwice |= kTwiceRestarted;
    Prove(Claim::MaybeTwice, m_cancelledAt);
  } else if (bCancelled && !m_bStatusKnown && m_story.maybeTwice == Tri::No) {
    m_story.maybeTwice = Tri::Unknown;
  }
}

void JobCourse::ConcludeOutcome() {
  if (m_bRefused) {
    m_story.outcome = Outcome::Refused;
    return;
  }
  m_story.bInPart = m_bCancelled && MayBeOut();
  const bool bTraced = IsTracedThroughout();
  if (m_bCancelled) {
    const LocalParts at = Split(m_cancelledAt.llTime);
    char szTime[16];
    std::snprintf(szTime, sizeof szTime, "%02d:%02d:%02d", at.nHour % 100, at.nMinute % 100, at.nSecond % 100);
    return Claims(Outcome::Cancelled, std::string("deleted or restarted in the spooler, seen at ") + szTime,
                  m_cancelledAt);
  }
  if (m_story.bLinesLost) return NotTold("lines of its time were lost");
  if (MayBeOthers()) return NotTold("the log does not tell which of the lines are its own");
  if (!bTraced && !IsNeverTraced()) return NotTold("the levels that are on changed while it ran");
  if (m_clearedAt.place.nLine != 0 && !m_bUnclear && bTraced)
    return Claims(Outcome::Cancelled, "deleted or restarted in the spooler: its device was cleared at the end",
                  m_clearedAt);
  if (m_bMayBeCancelled) return NotTold("a job was deleted at that time, and the log does not tell which");
  if (!m_story.bOver) {
    if (m_state == State::Starting) return NotTold("no line tells whether the port took it");
    const bool bEndWouldShow = bTraced || (m_story.path == Path::PortMonitor && Has('I'));
    if (bEndWouldShow) return Claims(Outcome::Unfinished, "the log ends, or the process did", {0, m_story.last});
    return NotTold("level T is off: the end of a job is not logged");
  }
  const bool bNoData = ShowsAmounts() && m_nBytes == 0 && !m_bBytesUnknown && !m_bLastFailed && m_nLastMissing == 0;
  if (m_bResendImpossible && bNoData)
    return Claims(Outcome::Printed, "it had no data, and the printer did not confirm that", m_lastAt);
  if (m_bResendImpossible && m_nBytes > 0) {
    m_story.bInPart = true;
    return Claims(Outcome::Failed, "the printer lost it and it could not be sent again", m_lastAt);
  }
  if (m_bLastUnknown || !ShowsAmounts()) {
    m_story.bResponseNotLogged = true;
    return NotTold(m_bLastUnknown ? "what became of its last buffer is not logged"
                                  : "the levels that are on do not tell");
  }
  if (m_bLastFailed) {
    m_story.bInPart = MayBeOut();
    m_story.nError = m_nLastCode;
    m_story.bErrorNotLogged = m_nLastCode == kUnknown;
    Prove(Claim::Error, m_lastAt);
    return Claims(Outcome::Failed, "the last write failed", m_lastAt);
  }
  if (m_nLastMissing > 0) {
    m_story.bInPart = true;
    return Claims(Outcome::Failed, "of the last write " + std::to_string(m_nLastMissing) + " bytes were not taken",
                  m_lastAt);
  }
  if (m_bUnclear) {
    m_story.bResponseNotLogged = true;
    return NotTold("the amounts that are logged do not tell what they were");
  }
  ConcludeConfirmation();
}

// All of it went out; whether the printer confirmed it.
void JobCourse::ConcludeConfirmation() {
  const bool bTraced = IsTracedThroughout();
  if (m_bGaveUp)
    return Claims(Outcome::Printed, "sent; the printer did not confirm it and it is not sent again", m_lastAt);
  switch (m_state) {
    case State::Starting:
    case State::Data:
      if (bTraced || m_story.path == Path::PortMonitor || (m_story.path == Path::Device && !m_bBytesUnknown))
        return Claims(Outcome::Printed,
                      m_nBytes == 0 ? "it had no data" : "sent; nobody asked the printer for a confirmation",
                      m_bytesAt);
      m_story.bResponseNotLogged = true;
      return NotTold("the levels that are on do not tell");
    case State::Asked: {
      const bool bAnswered = bTraced ? m_answerAt.place.nLine != 0 : m_nRequestRest <= 0;
      if (!bAnswered || MayHaveGivenUp() || m_bBytesUnknown) {
        m_story.bResponseNotLogged = true;
        return NotTold("whether the printer confirmed it is not logged");
      }
      // Without the answer's own line: the last question of a job's end was answered, or it would not have been the last.
      const At& proof = bTraced ? m_answerAt : m_askedAt;
      Claims(Outcome::Confirmed, "the printer answered with its execution response", proof);
      if (m_bOneByte) {
        m_story.strResponse = "C9";
        Prove(Claim::Response, proof);
      } else {
        m_story.bResponseNotLogged = true;
      }
      return;
    }
    default:
      if (bTraced && m_nBytes == 0)
        return Claims(Outcome::Printed, "it had no data, and the printer did not confirm that", m_askedAt);
      if (bTraced && !MayHaveGivenUp() && m_state != State::Cleared)
        return Claims(Outcome::Failed, "the printer did not confirm it", m_askedAt);
      m_story.bResponseNotLogged = true;
      return NotTold("whether it was confirmed in the end is not logged");
  }
}

}  // namespace lmctl
