#include "tools/lmctl/job_story.h"

#include <algorithm>

#include "tools/lmctl/error_text.h"

namespace lmctl {
namespace {

// Lengths of the requests to the printer: status, and execution response behind it, in the two protocols.
bool IsStatusRequest(std::int64_t cb) { return cb == 3 || cb == 1; }
bool IsExecRequest(std::int64_t cb) { return cb == 6 || cb == 2; }
bool MayBeRequest(std::int64_t cb) { return IsStatusRequest(cb) || IsExecRequest(cb); }

std::string Number(std::int64_t n) { return std::to_string(n); }

}  // namespace

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

std::vector<std::string> Story::NotLogged() const {
  std::vector<std::string> names;
  const auto add = [&](bool bMissing, const char* pszName) {
    if (bMissing) names.emplace_back(pszName);
  };
  add(strPort.empty(), "port");
  add(bOver && llEnded == 0, "ended");
  add(path == Path::Unknown, "path");
  add(nBytes == kUnknown, "bytes");
  add(nWrites == kUnknown, "writes");
  add(outcome == Outcome::Unknown, "outcome");
  add(bErrorNotLogged, "error");
  add(nReprints == kUnknown, "reprints");
  add(bResponseNotLogged, "response");
  add(maybeTwice == Tri::Unknown, "maybeTwice");
  return names;
}

struct StoryMachine::Job {
  Story story;
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
  bool bDropped = false;
  std::int64_t nOffered = 0;
  struct Send {
    std::int64_t nLength, nWritten, nCode;
  };
  std::vector<Send> sends;  // of a write whose steps are not shown
  bool bLastWriteFailed = false;
  std::int64_t nLastCode = kUnknown;
  std::int64_t nDropped = 0;

  // The job's end on the device path.
  std::int64_t nPendingLength = kUnknown;  // of the send that is under way
  std::int64_t nRequestRest = 0;           // of a request that went out in part
  enum class Exec : std::uint8_t { NotAsked, Asked, Failed } exec = Exec::NotAsked;
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

  bool Has(char cLevel) const { return story.levels[static_cast<unsigned char>(cLevel) & 127]; }
};

struct StoryMachine::Process {
  std::array<bool, 128> levels{};
  std::unordered_map<std::string, std::string> portOfQueue;  // as the ports were opened; empty for a queue with several
};

StoryMachine::StoryMachine(Sink sink, bool bEvents) : m_sink(std::move(sink)), m_bEvents(bEvents) {}
StoryMachine::~StoryMachine() = default;

void StoryMachine::Note(Job& job, std::string strText) const {
  if (m_bEvents) job.story.events.push_back({m_llTime, m_place, std::move(strText)});
}

StoryMachine::Job* StoryMachine::JobOfThread(const LogLine& line) {
  const auto it = m_threads.find(KeyOf(line.nProcess, line.nThread));
  return it != m_threads.end() ? it->second : nullptr;
}

StoryMachine::Job* StoryMachine::JobOfPort(std::uint32_t nProcess, std::string_view port) {
  for (const auto& pJob : m_jobs)
    if (pJob->story.nProcess == nProcess && pJob->story.strPort == port) return pJob.get();
  return nullptr;
}

StoryMachine::Job* StoryMachine::JobOfId(std::uint32_t nProcess, std::int64_t nJob) {
  for (const auto& pJob : m_jobs)
    if (pJob->story.nProcess == nProcess && pJob->story.nJob == nJob) return pJob.get();
  return nullptr;
}

StoryMachine::Job& StoryMachine::Begin(const LogLine& line, std::string_view queue, std::int64_t nJob) {
  // A thread that begins a job has ended the one before.
  if (Job* pBefore = JobOfThread(line)) Finish(pBefore, true, 0);
  auto pJob = std::make_unique<Job>();
  pJob->story.strQueue = queue;
  pJob->story.nJob = nJob;
  pJob->story.nProcess = line.nProcess;
  pJob->story.llStarted = m_llTime;
  pJob->story.llLast = m_llTime;
  pJob->story.first = m_place;
  pJob->story.last = m_place;
  pJob->story.levels[static_cast<unsigned char>(line.cLevel) & 127] = true;
  const Process& process = m_processes[line.nProcess];
  const auto port = process.portOfQueue.find(pJob->story.strQueue);
  if (port != process.portOfQueue.end()) pJob->story.strPort = port->second;
  const Key key = KeyOf(line.nProcess, line.nThread);
  pJob->threads.push_back(key);
  m_threads[key] = pJob.get();
  m_jobs.push_back(std::move(pJob));
  return *m_jobs.back();
}

void StoryMachine::Finish(Job* pJob, bool bOver, LocalMs llEnded) {
  CloseWrite(*pJob);
  pJob->story.bOver = bOver;
  pJob->story.llEnded = llEnded;
  Conclude(*pJob);
  for (const Key key : pJob->threads) {
    const auto it = m_threads.find(key);
    if (it != m_threads.end() && it->second == pJob) m_threads.erase(it);
  }
  const auto at = std::find_if(m_jobs.begin(), m_jobs.end(), [&](const auto& p) { return p.get() == pJob; });
  Story story = std::move(pJob->story);
  m_jobs.erase(at);
  m_sink(std::move(story));
}

// What the lines prove, taken together.
void StoryMachine::Conclude(Job& job) const {
  Story& story = job.story;
  const bool bTraced = job.Has('T');
  const bool bLost = story.bLinesLost;
  story.nBytes = job.bBytesUnknown || bLost ? kUnknown : job.nBytes;
  if (story.nWrites == kUnknown && job.Has('I') && !bLost) story.nWrites = 0;
  if (bLost || !job.Has('I')) story.nWrites = kUnknown;
  if (!job.Has('I')) story.nBytes = kUnknown;

  // Resends: their own lines, or that nothing led to one.
  const bool bNothingLost = job.exec != Job::Exec::Failed && !job.bReset && !job.bResend && job.nDone == 0;
  if (story.path == Path::PortMonitor || job.bRefused) {
    story.nReprints = 0;
    story.maybeTwice = Tri::No;
  } else if (!bLost && bNothingLost && (bTraced || (story.bOver && job.Has('I') && !job.bBytesUnknown))) {
    story.nReprints = 0;
    story.maybeTwice = Tri::No;
  } else if (job.bResend || job.nDone > 0) {
    story.maybeTwice = Tri::Yes;
    if (!bLost && (job.nDone > 0 || job.Has('D'))) story.nReprints = job.nDone;
  } else if (bTraced && !bLost) {
    story.nReprints = job.nDone;
    story.maybeTwice = Tri::No;
  }

  const bool bCancelled = job.bCancelSeen || (bTraced ? job.bCancelNow : job.bCancelEver);
  story.bInPart = bCancelled && (job.nBytes > 0 || job.bBytesUnknown);
  if (job.bRefused) {
    story.outcome = Outcome::Refused;
    story.nBytes = 0;
    story.nWrites = 0;
  } else if (bCancelled) {
    story.outcome = story.bOver || !bTraced ? Outcome::Cancelled : Outcome::Unfinished;
    const LocalParts at = Split(job.llCancelled);
    char szTime[16];
    std::snprintf(szTime, sizeof szTime, "%02d:%02d:%02d", at.nHour % 100, at.nMinute % 100, at.nSecond % 100);
    story.strReason = std::string("deleted or restarted in the spooler, seen at ") + szTime;
  } else if (!story.bOver && !bLost) {
    const bool bEndWouldShow = bTraced || (story.path == Path::PortMonitor && job.Has('I'));
    if (bEndWouldShow) {
      story.outcome = Outcome::Unfinished;
      story.strReason = "the log ends, or the process did";
    } else {
      story.strReason = "level T is off: the end of a job is not logged";
    }
  } else if (bLost) {
    story.strReason = "lines of its time were lost";
  } else if (job.bCannotReprint) {
    story.outcome = Outcome::Failed;
    story.strReason = "the printer lost it and it could not be sent again";
    story.bInPart = true;
  } else if (job.bLastWriteFailed) {
    story.outcome = Outcome::Failed;
    story.nError = job.nLastCode;
    story.bErrorNotLogged = job.nLastCode == kUnknown;
    story.strReason = "the last write failed";
    story.bInPart = job.nBytes > 0;
  } else if (job.nDropped > 0) {
    story.outcome = Outcome::Failed;
    story.strReason = Number(job.nDropped) + " bytes were dropped while the spooler called the job deleted";
    story.bInPart = true;
  } else if (job.exec == Job::Exec::Asked && !job.bGaveUp) {
    // The last request of the job's end was answered, or it would not have been the last; a virtual COM port gives up.
    const bool bMayHaveGivenUp = !bTraced && story.strPort.starts_with("COM");
    if (!bMayHaveGivenUp && (bTraced || !job.bBytesUnknown)) {
      story.outcome = Outcome::Confirmed;
      story.strReason = "the printer answered with its execution response";
      if (job.bOneByte) {
        story.strResponse = "C9";
      } else {
        story.bResponseNotLogged = true;
      }
    } else {
      story.strReason = "level T is off: whether the printer confirmed it is not logged";
      story.bResponseNotLogged = true;
    }
  } else if (job.exec == Job::Exec::Failed && !job.bGaveUp) {
    if (bTraced) {
      story.outcome = Outcome::Failed;
      story.strReason = "the printer did not confirm it";
    } else {
      story.bResponseNotLogged = true;
      story.strReason = "whether it was confirmed in the end is not logged";
    }
  } else if (bTraced || story.path == Path::PortMonitor || job.bGaveUp ||
             (story.path == Path::Device && !job.bBytesUnknown && job.Has('I'))) {
    story.outcome = Outcome::Printed;
    story.strReason = job.bGaveUp ? "sent; the printer did not confirm it and it is not sent again"
                                  : "sent; nobody asked the printer for a confirmation";
  } else {
    story.bResponseNotLogged = true;
    story.strReason = "the levels that are on do not tell";
  }
  if (story.nReprints > 0) {
    story.strReason +=
        ", sent again " + (story.nReprints == 1 ? std::string("once") : Number(story.nReprints) + " times");
    if (!job.strLoss.empty()) story.strReason += ": " + job.strLoss;
  }
}

// ---- lines ------------------------------------------------------------------------------------------------------------

void StoryMachine::Line(const LogLine& line, LocalMs llTime, const Place& place) {
  m_place = place;
  if (line.kind == LineKind::LostNote) {
    for (const auto& pJob : m_jobs) pJob->story.bLinesLost = true;
    return;
  }
  if (line.kind != LineKind::Call) return;
  m_llTime = llTime;
  const std::string_view routine = line.routine;
  if (routine == "MonStartDocPort" && line.message.starts_with("pszPrinterName:")) return StartLine(line);
  Job* pJob = JobOfThread(line);
  if (pJob != nullptr) {
    pJob->story.llLast = llTime;
    pJob->story.last = place;
    pJob->story.levels[static_cast<unsigned char>(line.cLevel) & 127] = true;
  }
  if (routine == "MonWritePort") return WriteLine(line);
  if (routine == "MonStartDocPort") return StartFailure(line);
  if (routine == "SendJobLastPageEjected") {
    const std::int64_t nJob = NumberAfter(line.message, "nValue:", 0);
    Job* pEnded = nJob > 0 ? JobOfId(line.nProcess, nJob) : nullptr;
    if (pEnded == nullptr) return;
    pEnded->story.last = place;
    Note(*pEnded, "The monitor reported the last page to the spooler and was done with the job.");
    return Finish(pEnded, true, llTime);
  }
  if (routine == "ThreadJobCanMon") {
    if (line.message.starts_with("dwJobId:")) {
      Job* pWatched = JobOfId(line.nProcess, NumberAfter(line.message, "dwJobId:", 0));
      if (pWatched == nullptr) return;
      const Key key = KeyOf(line.nProcess, line.nThread);
      m_threads[key] = pWatched;  // a thread's number may have been used before
      pWatched->threads.push_back(key);
      return;
    }
    if (pJob != nullptr && line.message.starts_with("CANCEL,Status:")) CancelLine(*pJob, line, true);
    return;
  }
  if (routine == "MonEndDocPort" && line.message.starts_with("(*pIniPort->fn.pfnEndDocPort)")) {
    const std::int64_t nJob = NumberAfter(line.message, "JobId:", 0);
    Job* pEnded = nJob > 0 ? JobOfId(line.nProcess, nJob) : pJob;
    if (pEnded == nullptr) return;
    pEnded->story.path = Path::PortMonitor;
    const std::string_view port = Between(line.message, "[pszPortName:", ", JobId:");
    if (!port.empty()) pEnded->story.strPort = port;
    Note(*pEnded, "The job was ended on the port monitor.");
    if (!pEnded->Has('T')) Finish(pEnded, true, llTime);
    return;
  }
  if (routine == "MonOpenPortEx" && line.cLevel == 'I') {
    const std::string_view body = Between(line.message, "[Port:", {});
    const std::size_t nCut = body.rfind("/Printer:");
    if (nCut == std::string_view::npos || !body.ends_with(']')) return;
    const std::string strQueue(body.substr(nCut + 9, body.size() - nCut - 10));
    const std::string strPort(body.substr(0, nCut));
    auto& portOfQueue = m_processes[line.nProcess].portOfQueue;
    const auto [it, bNew] = portOfQueue.emplace(strQueue, strPort);
    if (!bNew && it->second != strPort) it->second.clear();
    return;
  }
  if (routine == "InitializePrintMonitor2" && line.cLevel == 'I') {
    // A process that begins: jobs under its number belong to one that is gone.
    for (std::size_t n = m_jobs.size(); n > 0; --n)
      if (n <= m_jobs.size() && m_jobs[n - 1]->story.nProcess == line.nProcess) Finish(m_jobs[n - 1].get(), false, 0);
    m_processes.erase(line.nProcess);
    return;
  }
  if (pJob == nullptr) return;
  if (routine == "IsCancelJob") {
    if (line.cLevel == 'T') pJob->bCancelNow = false;
    if (line.message.starts_with("CANCEL,Status:")) CancelLine(*pJob, line, false);
  } else if (routine.starts_with("CSdk::")) {
    DeviceLine(*pJob, line);
  } else if (routine == "WaitExecRespAndStatus" || routine == "WriteReprintChkData") {
    WaitLine(*pJob, line);
  } else if (routine == "ReprintDumpData" || routine == "ConfirmJobEndAndReprint" || routine == "CashWriteData") {
    ReprintLine(*pJob, line);
  }
}

void StoryMachine::End() {
  while (!m_jobs.empty()) Finish(m_jobs.front().get(), false, 0);
}

void StoryMachine::StartLine(const LogLine& line) {
  const std::string_view body = Between(line.message, "pszPrinterName:", {});
  const std::size_t nCut = body.rfind(", JobId:");
  if (nCut == std::string_view::npos) return;
  Job& job = Begin(line, body.substr(0, nCut), NumberAfter(body.substr(nCut), ", JobId:", 0));
  Note(job, "The spooler started job " + Number(job.story.nJob) + " on the queue " + job.story.strQueue + ".");
}

// The lines of a job start that are no start: what refused it.
void StoryMachine::StartFailure(const LogLine& line) {
  const std::string_view message = line.message;
  if (message.starts_with("ERROR_BUSY [pszPrinterName:")) {
    const std::string_view body = Between(message, "[pszPrinterName:", {});
    const std::size_t nCut = body.rfind(", JobId:");
    if (nCut == std::string_view::npos) return;
    const std::int64_t nJob = NumberAfter(body.substr(nCut), ", JobId:", 0);
    Job* pJob = JobOfThread(line);
    if (pJob == nullptr || pJob->story.nJob != nJob) pJob = &Begin(line, body.substr(0, nCut), nJob);
    return Refuse(*pJob, 170, "another job was in progress on the port");
  }
  Job* pJob = JobOfThread(line);
  if (line.cLevel != 'E') return;
  if (pJob == nullptr) {  // level I is off: two of the lines name queue and job
    const std::string_view body = Between(message, "[PrinterName:", {});
    const std::size_t nCut = body.rfind(", JobId:");
    if (!message.starts_with("(*pIniPort->fn.pfnStartDocPort)") || nCut == std::string_view::npos) return;
    pJob = &Begin(line, body.substr(0, nCut), NumberAfter(body.substr(nCut), ", JobId:", 0));
  }
  if (!pJob->bStarting) return;
  if (message.starts_with("OpenPrinter [err:")) {
    Refuse(*pJob, NumberAfter(message, "[err:", kUnknown), "the queue could not be opened");
  } else if (message.starts_with("(*pIniPort->fn.pfnStartDocPort)")) {
    pJob->story.path = Path::PortMonitor;
    pJob->story.bErrorNotLogged = true;
    Refuse(*pJob, kUnknown, "the port monitor refused it");
  } else if (message.starts_with("GetJob() [err:")) {
    Refuse(*pJob, NumberAfter(message, "[err:", kUnknown), "the spooler did not tell about the job");
  } else if (message.starts_with("GetJob cbNeeded=0")) {
    pJob->story.bErrorNotLogged = true;
    Refuse(*pJob, kUnknown, "the spooler did not tell about the job");
  } else if (message.starts_with("pJob=null") || message.starts_with("Memory Error")) {
    Refuse(*pJob, 8, "memory was short");
  } else if (message.starts_with("pSdkMng is NULL.")) {
    pJob->story.bErrorNotLogged = true;
    Refuse(*pJob, kUnknown, "the device-access library was gone");
  }
}

void StoryMachine::Refuse(Job& job, std::int64_t nError, std::string strReason) {
  job.bRefused = true;
  job.story.nError = nError;
  job.story.strReason = std::move(strReason);
  Note(job,
       "The start was refused: " + job.story.strReason + (nError > 0 ? ", " + ErrorText(nError) : std::string()) + ".");
  Finish(&job, true, m_llTime);
}

void StoryMachine::WriteLine(const LogLine& line) {
  const std::string_view message = line.message;
  Job* pJob = JobOfThread(line);
  if (line.cLevel == 'I' && message.starts_with("[pszPortName:")) {
    const std::string_view body = message.substr(13);
    const std::size_t nCut = body.rfind(", cbBuf:");
    if (nCut == std::string_view::npos) return;
    const std::string_view port = body.substr(0, nCut);
    // Where lines are lost, the end of this job and the start of another one may be among them.
    if (pJob != nullptr && pJob->story.bLinesLost && !pJob->story.strPort.empty() && pJob->story.strPort != port)
      return;
    if (pJob == nullptr) {  // a call of the job on another thread
      pJob = JobOfPort(line.nProcess, port);
      if (pJob == nullptr || pJob->story.bLinesLost) return;
      const Key key = KeyOf(line.nProcess, line.nThread);
      m_threads[key] = pJob;
      pJob->threads.push_back(key);
    }
    // One job a port: another one that was on it is over.
    for (std::size_t n = m_jobs.size(); n > 0; --n) {
      Job* pOther = m_jobs[n - 1].get();
      if (pOther != pJob && !pOther->bStarting && pOther->story.nProcess == line.nProcess &&
          pOther->story.strPort == port)
        Finish(pOther, true, 0);
    }
    CloseWrite(*pJob);
    pJob->story.strPort = port;
    if (pJob->bStarting) Note(*pJob, "Its data began to come, for the port " + std::string(port) + ".");
    pJob->bStarting = false;
    pJob->story.nWrites = (pJob->story.nWrites == kUnknown ? 0 : pJob->story.nWrites) + 1;
    pJob->bWriting = true;
    pJob->bDataSent = pJob->bTraced = pJob->bDrained = pJob->bReady = pJob->bDropped = false;
    pJob->nOffered = NumberAfter(body.substr(nCut), ", cbBuf:", 0);
    pJob->nPendingLength = kUnknown;
    pJob->sends.clear();
    pJob->nRequestRest = 0;
    return;
  }
  if (pJob == nullptr) return;
  const Path path = message.starts_with("on SDK [")                       ? Path::Device
                    : message.starts_with("(*pIniPort->fn.pfnWritePort)") ? Path::PortMonitor
                                                                          : Path::Unknown;
  if (pJob->story.bLinesLost && path != Path::Unknown && pJob->story.path != Path::Unknown && pJob->story.path != path)
    return;
  if (path == Path::Device) {
    pJob->bTraced = true;
    pJob->story.path = path;
  } else if (message.starts_with("Cancel job [")) {
    pJob->bDropped = true;
    pJob->bDataSent = true;
    pJob->nDropped += NumberAfter(message, ", cbBuf:", 0);
    if (pJob->llCancelled == 0) pJob->llCancelled = m_llTime;
    pJob->bCancelEver = true;
    Note(*pJob, "A buffer was taken and dropped, since the job is deleted.");
  } else if (path == Path::PortMonitor) {
    pJob->story.path = path;
    pJob->bDataSent = true;
    const std::int64_t nWritten = NumberAfter(message, ",cbBuf:", 0);
    pJob->bLastWriteFailed = line.cLevel == 'E';
    if (line.cLevel == 'E') {
      pJob->nLastCode = kUnknown;
      Note(*pJob, "The port monitor failed to write.");
    } else {
      pJob->nBytes += nWritten;
    }
  }
}

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
  if (MayBeRequest(nSize)) {
    job.nRequestRest = nSize - std::max<std::int64_t>(nWritten, 0);
    if (IsExecRequest(nSize)) {
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
    job.strLoss = "the printer was off line";
    Note(job, "The printer went off line while the job was sent again.");
  }
}

void StoryMachine::CancelLine(Job& job, const LogLine& line, bool bWatcher) {
  if (job.llCancelled == 0) {
    job.llCancelled = m_llTime;
    job.story.phases.push_back({Phase::Kind::Cancel, m_llTime, m_llTime});
    Note(job, "The job was found to be deleted or restarted in the spooler, status " +
                  std::string(Between(line.message, "Status:", {})) + ".");
  }
  job.bCancelEver = true;
  job.bCancelNow = job.bCancelNow || !bWatcher;
  job.bCancelSeen = job.bCancelSeen || bWatcher;
}

}  // namespace lmctl
