// Which job a line is about, and what the lines of the calls and of the spooler tell.
#include "tools/lmctl/job_story.h"

#include <algorithm>

#include "tools/lmctl/error_text.h"
#include "tools/lmctl/job_record.h"

namespace lmctl {

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

void StoryMachine::Join(Job& job, const LogLine& line) {
  const Key key = KeyOf(line.nProcess, line.nThread);
  job.threads.push_back(key);
  m_threads[key] = &job;  // a thread's number may have been used before
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
  pJob->Saw(line.cLevel);
  const auto& portOfQueue = m_portOfQueue[line.nProcess];
  const auto port = portOfQueue.find(pJob->story.strQueue);
  if (port != portOfQueue.end()) pJob->story.strPort = port->second;
  Join(*pJob, line);
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
    pJob->Saw(line.cLevel);
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
      return Join(*pWatched, line);
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
    auto& portOfQueue = m_portOfQueue[line.nProcess];
    const auto [it, bNew] = portOfQueue.emplace(strQueue, strPort);
    if (!bNew && it->second != strPort) it->second.clear();
    return;
  }
  if (routine == "InitializePrintMonitor2" && line.cLevel == 'I') {
    // A process that begins: jobs under its number belong to one that is gone.
    for (std::size_t n = m_jobs.size(); n > 0; --n)
      if (n <= m_jobs.size() && m_jobs[n - 1]->story.nProcess == line.nProcess) Finish(m_jobs[n - 1].get(), false, 0);
    m_portOfQueue.erase(line.nProcess);
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
  Note(job, "The spooler started job " + std::to_string(job.story.nJob) + " on the queue " + job.story.strQueue + ".");
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
      Join(*pJob, line);
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
    pJob->bDataSent = pJob->bTraced = pJob->bDrained = pJob->bReady = false;
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
      pJob->nLastMissing = pJob->bWriting ? pJob->nOffered - nWritten : 0;
    }
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
