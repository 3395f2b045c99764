#include "tools/lmctl/story/job_course.h"

#include <algorithm>

#include "tools/lmctl/log/error_text.h"

namespace lmctl {
namespace {

// Lengths of the requests to the printer: status, and execution response behind it, in the two protocols.
bool IsStatusRequest(std::int64_t cb) { return cb == 3 || cb == 1; }
bool IsExecRequest(std::int64_t cb) { return cb == 6 || cb == 2; }
bool MayBeRequest(std::int64_t cb) { return IsStatusRequest(cb) || IsExecRequest(cb); }

constexpr std::int64_t kStatusRestart = 0x800;  // JOB_STATUS_RESTART
constexpr LocalMs kNoWait = 1000;               // a look at the printer that takes no longer is none

std::string Number(std::int64_t n) { return std::to_string(n); }

}  // namespace

JobCourse::JobCourse(std::string strQueue, std::int64_t nJob, std::uint32_t nProcess, const At& at, bool bEvents)
    : m_bEvents(bEvents) {
  m_story.strQueue = std::move(strQueue);
  m_story.nJob = nJob;
  m_story.nProcess = nProcess;
  m_story.llStarted = m_story.llLast = at.llTime;
  m_story.first = m_story.last = at.place;
}

void JobCourse::Note(std::string strText, const At& at) {
  if (m_bEvents) m_story.events.push_back({at.llTime, at.place, std::move(strText)});
}

void JobCourse::SetPort(std::string_view port, const At& at) {
  m_story.strPort = port;
  Prove(Claim::Port, at);
}

// A job takes one path: a line of the other is of another time that it was started, and the lines between them are lost.
void JobCourse::TakesPath(Path path, const At& at) {
  if (m_story.path == path || m_bOthers) return;  // lines that may be another job's prove nothing
  if (m_story.path != Path::Unknown) {
    m_bOthers = true;
    return;
  }
  m_story.path = path;
  Prove(Claim::Path, at);
}

void JobCourse::Refuse(std::int64_t nError, std::string strReason, const At& at) {
  m_bRefused = true;
  m_story.nError = nError;
  m_story.bErrorNotLogged = nError == kUnknown;
  m_story.strReason = std::move(strReason);
  for (const Claim claim : {Claim::Outcome, Claim::Error, Claim::Bytes, Claim::Writes}) Prove(claim, at);
  Note("The start was refused: " + m_story.strReason + (nError > 0 ? ", " + KnownErrorText(nError) : std::string()) +
           ".",
       at);
}

void JobCourse::PauseOfLevels() {
  if (Has('T') && m_pending.nLength != kUnknown) {
    m_bPaused = true;  // transfers take their time
  } else {
    m_bLevelsChanged = true;
  }
}

void JobCourse::Take(Step step, const LogLine& line, const At& at) {
  const std::string_view message = line.message;
  if (step == Step::EndOnPort) CloseCall();
  if (m_bPaused && step != Step::None && step != Step::Watch && step != Step::WatcherSawCancel) {
    m_bPaused = false;
    if (step != Step::SendTook && step != Step::SendShort && step != Step::SendFailed) m_bLevelsChanged = true;
  }
  m_story.llLast = at.llTime;
  m_story.last = at.place;
  m_levels[static_cast<unsigned char>(line.cLevel) & 127] = true;
  if (line.cLevel == 'T' && step != Step::Watch) m_bCallTraced = true;
  switch (step) {
    case Step::StartOnDevice:
      TakesPath(Path::Device, at);
      Note("It takes the way through the device-access library; the device is being locked for it.", at);
      break;
    case Step::RefusedLibrary:
    case Step::RefusedLock:
    case Step::RefusedOpen:
    case Step::RefusedSync: TakesPath(Path::Device, at); break;
    case Step::RefusedByPort: TakesPath(Path::PortMonitor, at); break;
    case Step::SawCancel:
      if (!m_bOthers) return Cancelled(line, at);
      m_bMayBeCancelled = true;
      break;
    case Step::WatcherSawCancel: return Cancelled(line, at);
    case Step::AskedCancel:  // once in a write, there before its data: the line of level I of the next one is not there
      if (m_story.path == Path::PortMonitor && m_write.bDone) m_bInfoMissing = true;
      break;
    case Step::Offer: BeginWrite(line, at); break;
    case Step::OnDevice:
      if (!m_write.bOpen || m_write.bOnDevice) {  // the line before it, of level I, is not there
        CloseCall();
        m_bInfoMissing = true;
        m_write = {};
        m_write.bOpen = m_bCallTraced = true;
        m_write.nOffered = NumberAfter(message, ", cbBuf:", 0);
        m_write.at = at;
        if (m_state == State::Starting) m_state = State::Data;
      }
      m_write.bOnDevice = true;
      TakesPath(Path::Device, at);
      break;
    case Step::Dropped:
      TakesPath(Path::Device, at);
      m_bInfoMissing = m_bInfoMissing || !m_write.bOpen;
      m_write.bDone = true;
      m_pending.nLength = kUnknown;
      if (!m_bCancelled) m_cancelledAt = at;
      (m_bOthers ? m_bMayBeCancelled : m_bCancelled) = true;
      Note("A buffer was taken and dropped, since the job is deleted.", at);
      break;
    case Step::PortTook:
    case Step::PortFailed: {
      TakesPath(Path::PortMonitor, at);
      m_bInfoMissing = m_bInfoMissing || !m_write.bOpen;
      m_write.bDone = true;
      if (step == Step::PortTook) {
        const std::string_view sizes = Between(message, ",cbBuf:", "]");
        DataSent({NumberAfter(sizes, "/", kUnknown), NumberAfter(message, ",cbBuf:", 0), 0, at});
        break;
      }
      m_bLastFailed = m_bOneFailed = true;
      m_nLastCode = kUnknown;
      m_lastAt = at;
      Note("The port monitor failed to write.", at);
      break;
    }
    case Step::NoMemory:
      m_bLastFailed = true;
      m_nLastCode = 8;
      m_lastAt = at;
      Note("Memory for sending the job again was short; the write failed.", at);
      break;
    case Step::SendBegins:
      TakesPath(Path::Device, at);
      BeginSend(NumberAfter(message, "cbBuf:", 0), at);
      break;
    case Step::SendTook: EndSend(m_pending.nLength, NumberAfter(message, "*pdwWritten:", 0), 0, at); break;
    case Step::SendShort:
      EndSend(NumberAfter(message, "[length:", kUnknown), NumberAfter(message, "[written:", 0), 1460, at);
      break;
    case Step::SendFailed: EndSend(m_pending.nLength, kUnknown, NumberAfter(message, "[e:", 0), at); break;
    case Step::Drain:
      if (m_write.bOpen && !m_write.bDone) m_write.bDrained = m_bAutoReprint = true;
      break;
    case Step::Read: (m_write.bOpen && !m_write.bDone ? m_write.bRead : m_bRead) = true; break;
    case Step::Reset:
      Note("The printer is being reset.", at);
      if (m_state == State::Lost || m_state == State::Cleared || m_state == State::Readied) {
        m_state = State::Cleared;  // the one before may have been refused
      } else {
        m_clearedAt = at;
      }
      break;
    case Step::UnlockFailed:
      Note("The device could not be unlocked (the library answered " + Number(NumberAfter(message, "[e:", 0)) +
               "): a port that is opened with each job stays locked until the spooler restarts.",
           at);
      break;
    case Step::Answer:
      if (m_state == State::Asked) m_answerAt = at;
      break;
    case Step::Ready:
      if (m_write.bOpen && !m_write.bDone) EndWait(Phase::Kind::Wait, m_llWaitFrom, at);
      Note("The printer reported that it can print.", at);
      break;
    case Step::Stopped:
      m_strLoss = "the printer reported status " + std::string(Between(message, "[status:", "]"));
      Note("Instead of the confirmation the printer reported an error, status " +
               std::string(Between(message, "[status:", "]")) + ".",
           at);
      BeginWait(at);
      if (m_state == State::Asked) m_state = State::Lost;
      break;
    case Step::Offline:
      m_bOffline = true;
      if (m_strLoss.empty()) m_strLoss = "the printer was off line";
      Note("The printer is off line.", at);
      BeginWait(at);
      if (m_state == State::Asked) m_state = State::Lost;
      break;
    case Step::NotConnected:
      m_bOffline = true;
      if (m_llWaitFrom == 0) Note("The printer is not connected; the monitor waits.", at);
      BeginWait(at);
      break;
    case Step::SentAgain:
      if (m_resentAt.place.nLine == 0) m_resentAt = at;
      Note("The whole job was sent again.", at);
      break;
    case Step::ResendOffline:
      m_bOffline = true;
      m_strLoss = "the printer was off line";
      Note("The printer went off line while the job was sent again.", at);
      break;
    case Step::ResendImpossible:
      m_bResendImpossible = true;
      m_lastAt = at;
      Note("It could not be sent again.", at);
      break;
    case Step::GaveUp:
      m_bGaveUp = true;
      m_lastAt = at;
      Note("The printer did not confirm it, and the queue does not ask for it to be sent again.", at);
      break;
    case Step::EndOnPort:
      TakesPath(Path::PortMonitor, at);
      Note("The job was ended on the port monitor.", at);
      break;
    default: break;
  }
}

void JobCourse::Cancelled(const LogLine& line, const At& at) {
  TakesPath(Path::Device, at);
  const std::string_view status = Between(line.message, "Status:", {});
  if (status.size() == std::string_view("0x00000000").size()) m_bStatusKnown = true;
  if ((NumberAfter(line.message, "Status:", 0) & kStatusRestart) != 0) m_story.bRestarted = true;
  if (!m_bCancelled) {
    m_cancelledAt = at;
    m_story.phases.push_back({Phase::Kind::Cancel, at.llTime, at.llTime});
    Note("The job was found to be deleted or restarted in the spooler, status " + std::string(status) + ".", at);
  }
  m_bCancelled = true;
}

void JobCourse::CloseCall() {
  if (m_bInStart) m_bLevelsMixed = m_bLevelsMixed || !m_bCallTraced;
  if (m_write.bOpen) {
    if (m_pending.nLength != kUnknown && m_bPendingIsData)
      DataSent({m_pending.nLength, kUnknown, kUnknown, m_pending.at});
    if (!m_bCallTraced) {
      m_bLevelsMixed = true;
      if (!m_write.bDone) UntracedWrite();
    } else if (!m_write.bDone && m_write.bOnDevice) {  // not a byte of it was sent
      m_nLastMissing = m_write.nOffered;
      m_lastAt = m_write.at;
    } else if (!m_write.bDone) {
      m_bBytesUnknown = m_bLastUnknown = true;
    }
  }
  m_bInStart = false;
  m_bCallTraced = false;
  m_write = {};
  m_sends.clear();
  m_pending.nLength = kUnknown;
}

void JobCourse::BeginWrite(const LogLine& line, const At& at) {
  CloseCall();
  const std::string_view body = line.message.substr(line.message.find(':') + 1);
  const std::size_t nCut = std::min(body.rfind(", cbBuf:"), body.size());
  SetPort(body.substr(0, nCut), at);
  if (m_state == State::Starting) Note("Its data began to come, for the port " + m_story.strPort + ".", at);
  // What was taken for the job's end was none of it.
  if (m_state != State::Starting && m_state != State::Data) m_bUnclear = true;
  m_state = State::Data;
  m_story.nWrites = (m_story.nWrites == kUnknown ? 0 : m_story.nWrites) + 1;
  Prove(Claim::Writes, at);
  // A write that failed is mostly a job's last: what failed may have been a question, and the data's own line not be there.
  if (m_bLastFailed && !IsTraced()) m_bBytesUnknown = true;
  m_write.bOpen = true;
  m_write.nOffered = NumberAfter(body.substr(nCut), ", cbBuf:", 0);
  m_write.at = at;
  m_bLastFailed = m_bLastUnknown = false;
  m_nLastMissing = 0;
}

void JobCourse::DataSent(const Sent& sent) {
  m_write.bDone = true;
  m_lastAt = sent.at;
  m_bLastFailed = sent.nTook == kUnknown && sent.nCode != kUnknown;
  m_bOneFailed = m_bOneFailed || m_bLastFailed;
  m_nLastCode = sent.nCode;
  if (sent.nTook == kUnknown && sent.nCode == kUnknown) m_bBytesUnknown = m_bLastUnknown = true;
  if (m_bLastFailed) Note("A buffer could not be sent: " + KnownErrorText(sent.nCode) + ".", sent.at);
  if (sent.nTook == kUnknown) return;
  m_nBytes += sent.nTook;
  m_bytesAt = sent.at;
  m_nLastMissing = m_write.nOffered - sent.nTook;
  if (sent.nCode != 0)
    Note("The printer took " + Number(sent.nTook) + " of " + Number(sent.nLength) + " bytes before the time was up.",
         sent.at);
}

// A write whose steps level T does not show: which of its sends was the data, and what came behind it.
void JobCourse::UntracedWrite() {
  const std::vector<Sent> sends = std::move(m_sends);
  // Once a part of the job is out, the first send of a write is its data; before that, questions may come first. A write
  // whose bytes no line tells is followed by another one, or the job was deleted.
  const auto isData = [&](const Sent& send) {
    return send.nTook == m_write.nOffered || send.nLength == m_write.nOffered;
  };
  const auto failed = [](const Sent& send) { return send.nTook == kUnknown; };
  std::size_t nData = 0;
  if (m_nBytes == 0)
    while (nData < sends.size() && !isData(sends[nData]) && !failed(sends[nData])) ++nData;
  const bool bAmbiguous = m_nBytes == 0 && (MayBeRequest(m_write.nOffered) ||
                                            (nData < sends.size() && failed(sends[nData]) && nData + 1 < sends.size()));
  if (nData == sends.size() || bAmbiguous || !(isData(sends[nData]) || failed(sends[nData]))) {
    m_bBytesUnknown = m_bLastUnknown = true;
    return;
  }
  TakesPath(Path::Device, sends[nData].at);
  DataSent(sends[nData]);
  for (std::size_t n = nData + 1; n < sends.size(); ++n) UntracedEndSend(sends[n]);
}

// A transfer begins, as level T shows it: by the order of the steps alone it is known what it is.
void JobCourse::BeginSend(std::int64_t nLength, const At& at) {
  if (m_pending.nLength != kUnknown)
    EndSend(m_pending.nLength, kUnknown, kUnknown, m_pending.at);  // no line told of it
  m_pending = {nLength, kUnknown, 0, at};
  m_bPendingIsData = false;
  if (m_write.bOpen && !m_write.bDone) {
    const bool bRequestAgain = m_write.bAsked && !m_write.bRead && nLength == m_write.nRequestRest;
    if (!m_write.bDrained || m_write.bRead) {
      m_bPendingIsData = true;
    } else if (!m_write.bAsked || bRequestAgain) {
      m_write.bAsked = true;
      m_write.nRequestRest = nLength;
    } else {
      m_bUnclear = true;
    }
    return;
  }
  const bool bRequestAgain = nLength == m_nRequestRest && !m_bRead && !m_bOffline;
  switch (m_state) {
    case State::Starting:
    case State::Data:
      if (IsExecRequest(nLength)) return BeginRequest(Request::Exec, nLength, at);
      break;
    case State::Asked:
      if (bRequestAgain) return;
      if (IsStatusRequest(nLength)) return BeginRequest(Request::Status, nLength, at);
      break;
    case State::Lost:
    case State::Cleared:
      if (bRequestAgain) return;
      if (IsStatusRequest(nLength)) return BeginRequest(Request::Status, nLength, at);
      break;
    case State::Readied:
      if (bRequestAgain) return;
      if (m_bRead) return Resend(nLength, at);
      break;
    case State::Resending:
      if (m_nResendRest > 0 && nLength == m_nResendRest && !m_bOffline) return;
      if (IsExecRequest(nLength)) return BeginRequest(Request::Exec, nLength, at);
      break;
  }
  m_bUnclear = true;
}

void JobCourse::EndSend(std::int64_t nLength, std::int64_t nTook, std::int64_t nCode, const At& at) {
  const Sent sent = {nLength, nTook, nCode, at};
  const bool bBegun = m_pending.nLength != kUnknown;
  m_pending.nLength = kUnknown;
  TakesPath(Path::Device, at);
  if (!bBegun) {
    m_bLevelsMixed = true;
    if (m_write.bOpen && !m_write.bDone) {
      m_sends.push_back(sent);
    } else {
      UntracedEndSend(sent);
    }
    return;
  }
  const bool bNotTold = nTook == kUnknown && nCode == kUnknown;
  m_bInfoMissing = m_bInfoMissing || bNotTold;
  const std::int64_t nTaken = std::max<std::int64_t>(nTook, 0);
  if (m_write.bOpen && !m_write.bDone) {
    if (m_bPendingIsData) return DataSent(sent);
    m_write.nRequestRest -= nTaken;
  } else if (m_state == State::Resending) {
    if (bNotTold) {
      m_bUnclear = true;  // how much of it went out, and so what comes next
    } else {
      Resent(sent);
    }
  } else {
    m_nRequestRest -= nTaken;
  }
}

// A send behind the job's data, of which only the amount is shown.
void JobCourse::UntracedEndSend(const Sent& sent) {
  const std::int64_t nSize = sent.nLength != kUnknown ? sent.nLength : sent.nTook;
  if (nSize == kUnknown) return;
  const std::int64_t nTaken = std::max<std::int64_t>(sent.nTook, 0);
  if (m_nRequestRest > 0 && nSize == m_nRequestRest) {
    m_nRequestRest -= nTaken;
    return;
  }
  const bool bRestOfResend = m_nResendRest > 0 && nSize == m_nResendRest;
  if (MayBeRequest(nSize)) {
    // A job as short as a request, or a rest of one, cannot be told from it by its amount.
    if (bRestOfResend || (MayBeRequest(m_nBytes) && (m_nAsked > 0 || !IsExecRequest(nSize)))) m_bUnclear = true;
    if (m_nResendRest > 0 && !m_bOffline) m_bUnclear = true;  // what became of the rest is not shown
    m_nResendRest = 0;
    if (IsExecRequest(nSize)) {
      BeginRequest(Request::Exec, nSize, sent.at);
    } else {
      if (m_state == State::Data || m_state == State::Resending) {  // it was asked before, and no line tells of that
        ++m_nAsked;
        m_state = State::Asked;
      }
      BeginRequest(Request::Status, nSize, sent.at);
    }
    m_nRequestRest = nSize - nTaken;
    return;
  }
  if (!bRestOfResend && m_state != State::Resending) {
    Resend(m_bBytesUnknown ? nSize : m_nBytes, sent.at);
  } else if (!bRestOfResend && sent.nLength != kUnknown) {
    m_nResendRest = m_nBytes;  // it begins again
  }
  Resent(sent);
}

void JobCourse::BeginRequest(Request request, std::int64_t nLength, const At& at) {
  m_nRequestRest = nLength;
  m_bRead = m_bOffline = false;
  if (request == Request::Exec) {
    ++m_nAsked;
    m_askedAt = at;
    m_answerAt = {};
    m_bOneByte = nLength == 2;
    EndWait(Phase::Kind::Reprint, m_llResendFrom, at);
    m_state = State::Asked;
    Note("The printer was asked to confirm that it has printed everything before the question.", at);
    return;
  }
  if (m_state == State::Asked) {
    m_state = State::Lost;
    Note("The confirmation failed; the monitor waits until the printer can print.", at);
  } else if (m_state == State::Cleared) {
    m_state = State::Readied;
  }
}

void JobCourse::Resend(std::int64_t nLength, const At& at) {
  Note("The whole job is being sent again.", at);
  m_state = State::Resending;
  m_nResendRest = nLength;
  m_bOffline = false;
  EndWait(Phase::Kind::Wait, m_llWaitFrom, at);
  if (m_llResendFrom == 0) m_llResendFrom = at.llTime;
}

void JobCourse::Resent(const Sent& sent) {
  const std::int64_t nTaken = std::max<std::int64_t>(sent.nTook, 0);
  if (nTaken > 0 && m_resentAt.place.nLine == 0) m_resentAt = sent.at;
  const bool bRest = m_nResendRest > 0;
  m_nResendRest = std::max<std::int64_t>(m_nResendRest - nTaken, 0);
  if (bRest && m_nResendRest == 0) ++m_nResent;
}

void JobCourse::BeginWait(const At& at) {
  if (m_llWaitFrom == 0) m_llWaitFrom = at.llTime;
}

void JobCourse::EndWait(Phase::Kind kind, LocalMs& llFrom, const At& at) {
  if (llFrom != 0 && at.llTime - llFrom > (kind == Phase::Kind::Wait ? kNoWait : -1))
    m_story.phases.push_back({kind, llFrom, at.llTime});
  llFrom = 0;
}

}  // namespace lmctl
