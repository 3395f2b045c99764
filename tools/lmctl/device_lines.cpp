// What the lines of the way through the device-access library tell: what was sent and taken, the waits, the confirmation and
// the job sent again.
#include <algorithm>

#include "tools/lmctl/error_text.h"
#include "tools/lmctl/job_record.h"

namespace lmctl {
namespace {

// Lengths of the requests to the printer: status, and execution response behind it, in the two protocols.
bool IsStatusRequest(std::int64_t cb) { return cb == 3 || cb == 1; }
bool IsExecRequest(std::int64_t cb) { return cb == 6 || cb == 2; }
bool MayBeRequest(std::int64_t cb) { return IsStatusRequest(cb) || IsExecRequest(cb); }

std::string Number(std::int64_t n) { return std::to_string(n); }

}  // namespace

void StoryMachine::DeviceLine(Job& job, const LogLine& line) {
  const std::string_view method = line.routine.substr(6);
  const std::string_view message = line.message;
  if (method == "Send") {
    job.story.path = Path::Device;
    if (line.cLevel == 'T') {
      job.nPendingLength = NumberAfter(message, "cbBuf:", kUnknown);
    } else if (line.cLevel == 'I') {
      SendResult(job, job.nPendingLength, NumberAfter(message, "*pdwWritten:", 0), 0);
    } else if (line.cLevel == 'W') {
      SendResult(job, NumberAfter(message, "[length:", kUnknown), NumberAfter(message, "[written:", 0), 1460);
    } else {
      SendResult(job, job.nPendingLength, kUnknown, NumberAfter(message, "[e:", kUnknown));
    }
  } else if (method == "Read") {
    if (job.bWriting && !job.bDataSent && message.starts_with("dwFlags:0x20")) job.bDrained = true;
  } else if (method == "OpenAndLock") {
    job.story.path = Path::Device;
    if (line.cLevel == 'E') {
      Refuse(job, 170,
             "the device could not be locked (the library answered " + Number(NumberAfter(message, "[e:", 0)) +
                 "): another program has it");
    } else {
      Note(job, "It takes the way through the device-access library; the device is being locked for it.");
    }
  } else if (method == "Open" && line.cLevel == 'E' && job.bStarting) {
    Refuse(job, NumberAfter(message, "[e:", kUnknown), "the device could not be opened");
  } else if (method == "SetSyncComm" && line.cLevel == 'E' && job.bStarting) {
    job.story.bErrorNotLogged = true;
    Refuse(job, kUnknown, "the serial line could not be synchronised");
  } else if (method == "Reset" && !job.bWriting && line.cLevel == 'T') {
    job.bReset = job.bReset || !(job.bCancelNow || job.bCancelSeen);
    Note(job, "The printer is being reset.");
  } else if (method.starts_with("Unlock") && line.message.starts_with("SDK_CLR_LOCK [e:")) {
    Note(job, "The device could not be unlocked (the library answered " + Number(NumberAfter(message, "[e:", 0)) +
                  "): a port that is opened with each job stays locked until the spooler restarts.");
  }
}

void StoryMachine::SendResult(Job& job, std::int64_t nLength, std::int64_t nWritten, std::int64_t nCode) {
  job.nPendingLength = kUnknown;
  if (!job.bWriting || job.bDataSent) return EndSend(job, nLength, nWritten);
  if (!job.bTraced) {
    job.sends.push_back({nLength, nWritten, nCode});
    return;
  }
  if (job.bDrained && !job.bReady) return;  // the question whether it is ready
  job.bDataSent = true;
  job.bWriting = false;
  job.bLastWriteFailed = nWritten == kUnknown;
  job.nLastCode = nCode;
  job.nLastMissing = nLength != kUnknown && nWritten != kUnknown ? nLength - nWritten : 0;
  if (nWritten == kUnknown) {
    Note(job, "A buffer could not be sent: " + ErrorText(nCode) + ".");
    return;
  }
  job.nBytes += nWritten;
  if (nCode != 0)
    Note(job, "The printer took " + Number(nWritten) + " of " + Number(nLength) + " bytes before the time was up.");
}

// A write whose steps level T does not show: which of its sends was the data, and what came behind it.
void StoryMachine::CloseWrite(Job& job) {
  if (!job.bWriting) return;
  job.bWriting = false;
  if (job.bTraced || job.bDataSent) {
    // Its data was on its way and no line tells how much of it was taken.
    if (!job.bDataSent && job.nPendingLength != kUnknown && (!job.bDrained || job.bReady)) job.bBytesUnknown = true;
    job.bDataSent = true;
    job.sends.clear();
    return;
  }
  const std::vector<Job::Send> sends = std::move(job.sends);
  job.sends.clear();
  job.bDataSent = true;
  // Once a part of the job is out, the first send of a write is its data; before that, questions may come first. A write
  // whose bytes no line tells is followed by another one, or the job was deleted.
  const auto isData = [&](const Job::Send& send) {
    return send.nWritten == job.nOffered || send.nLength == job.nOffered;
  };
  const auto failed = [](const Job::Send& send) { return send.nWritten == kUnknown; };
  std::size_t nData = 0;
  if (job.nBytes == 0)
    while (nData < sends.size() && !isData(sends[nData]) && !failed(sends[nData])) ++nData;
  const bool bAmbiguous =
      job.nBytes == 0 && ((MayBeRequest(job.nOffered) && sends.size() < 3) ||
                          (nData < sends.size() && failed(sends[nData]) && nData + 1 < sends.size()));
  if (nData == sends.size() || bAmbiguous || !(isData(sends[nData]) || failed(sends[nData]))) {
    job.bBytesUnknown = true;
    return;
  }
  job.story.path = Path::Device;
  job.bLastWriteFailed = sends[nData].nWritten == kUnknown;
  job.nLastCode = sends[nData].nCode;
  if (!job.bLastWriteFailed) job.nBytes += sends[nData].nWritten;
  job.nLastMissing =
      !job.bLastWriteFailed && sends[nData].nLength != kUnknown ? sends[nData].nLength - sends[nData].nWritten : 0;
  for (std::size_t n = nData + 1; n < sends.size(); ++n) EndSend(job, sends[n].nLength, sends[n].nWritten);
}

// A send behind the job's data: a request, or the job again.
void StoryMachine::EndSend(Job& job, std::int64_t nLength, std::int64_t nWritten) {
  const std::int64_t nSize = nLength != kUnknown ? nLength : nWritten;
  if (nSize == kUnknown) return;
  if (job.nRequestRest > 0 && nSize == job.nRequestRest) {
    job.nRequestRest -= std::max<std::int64_t>(nWritten, 0);
    return;
  }
  job.nRequestRest = 0;
  // The last bytes of a job that is sent again in pieces may be as few as a question has.
  const bool bRestOfResend = job.nResendRest > 0 && nSize == job.nResendRest;
  job.nResendRest = 0;
  if (MayBeRequest(nSize) && !bRestOfResend) {
    job.nRequestRest = nSize - std::max<std::int64_t>(nWritten, 0);
    if (IsExecRequest(nSize)) {
      job.bAskedAgain = job.bAskedAgain || job.exec != Job::Exec::NotAsked;
      job.exec = Job::Exec::Asked;
      job.bOneByte = nSize == 2;
      if (job.llResendFrom != 0) {
        job.story.phases.push_back({Phase::Kind::Reprint, job.llResendFrom, m_llTime});
        job.llResendFrom = 0;
      }
      Note(job, "The printer was asked to confirm that it has printed everything before the question.");
    } else if (job.exec == Job::Exec::Asked) {
      job.exec = Job::Exec::Failed;
      Note(job, "The confirmation failed; the monitor waits until the printer can print.");
    }
    return;
  }
  job.nResendRest = std::max<std::int64_t>(nSize - std::max<std::int64_t>(nWritten, 0), 0);
  if (!job.bResend) Note(job, "The whole job is being sent again.");
  job.bResend = true;
  if (job.llWaitFrom != 0) {
    job.story.phases.push_back({Phase::Kind::Wait, job.llWaitFrom, m_llTime});
    job.llWaitFrom = 0;
  }
  if (job.llResendFrom == 0) job.llResendFrom = m_llTime;
}

void StoryMachine::WaitLine(Job& job, const LogLine& line) {
  const std::string_view message = line.message;
  if (message.find("]Detected printable status") != std::string_view::npos) {
    if (job.bWriting && !job.bDataSent) {
      job.bReady = true;
      if (job.llWaitFrom != 0 && m_llTime - job.llWaitFrom > 1000)
        job.story.phases.push_back({Phase::Kind::Wait, job.llWaitFrom, m_llTime});
      job.llWaitFrom = 0;
    }
    Note(job, "The printer reported that it can print.");
  } else if (message.find("]Wait exec resp stopped [status:") != std::string_view::npos) {
    job.exec = Job::Exec::Failed;
    job.strLoss = "the printer reported status " + std::string(Between(message, "[status:", "]"));
    if (job.llWaitFrom == 0) job.llWaitFrom = m_llTime;
    Note(job, "Instead of the confirmation the printer reported an error, status " +
                  std::string(Between(message, "[status:", "]")) + ".");
  } else if (message.starts_with("Fail to get exec resp. [OFFLINE]")) {
    if (job.exec == Job::Exec::Asked || (!job.bWriting && job.bDataSent)) job.exec = Job::Exec::Failed;
    if (job.strLoss.empty()) job.strLoss = "the printer was off line";
    if (job.llWaitFrom == 0) job.llWaitFrom = m_llTime;
    Note(job, "The printer is off line.");
  } else if (message.starts_with("Wait online")) {
    if (job.llWaitFrom == 0) {
      job.llWaitFrom = m_llTime;
      Note(job, "The printer is not connected; the monitor waits.");
    }
  } else if (job.bWriting && job.llWaitFrom == 0) {
    job.llWaitFrom = m_llTime;
  }
}

void StoryMachine::ReprintLine(Job& job, const LogLine& line) {
  const std::string_view message = line.message;
  if (message.find("ReprintDumpData() done.") != std::string_view::npos) {
    ++job.nDone;
    Note(job, "The whole job was sent again.");
  } else if (message.starts_with("ReprintDumpData ERROR_INVALID_PARAMETER")) {
    job.bCannotReprint = true;
    Note(job, "It could not be sent again.");
  } else if (message.starts_with("Finish [WAIT_EXEC_AT_PRINT]")) {
    job.bGaveUp = true;
    Note(job, "The printer did not confirm it, and the queue does not ask for it to be sent again.");
  } else if (message.starts_with("CashWriteData")) {
    job.bLastWriteFailed = true;
    job.nLastCode = 122;
    Note(job, "Memory for sending the job again was short; the write failed.");
  } else if (message.find("[OFFLINE]") != std::string_view::npos) {
    job.nResendRest = 0;
    job.strLoss = "the printer was off line";
    Note(job, "The printer went off line while the job was sent again.");
  }
}

}  // namespace lmctl
