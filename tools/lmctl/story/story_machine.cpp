#include "tools/lmctl/story/story_machine.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace lmctl {
namespace {

// The levels are read again this long after the last time, at the earliest: what is off in between is off for as long.
constexpr LocalMs kLevelsStayMs = 15'000;

// A file of the log holds a day or 32 MB: where one is missing, no lines are there for longer than this.
constexpr LocalMs kMissingFileMs = 60'000;

// "<name>, JobId:<n>"
bool NameAndJob(std::string_view body, std::string_view& name, std::int64_t& nJob) {
  const std::size_t nCut = body.rfind(", JobId:");
  if (nCut == std::string_view::npos) return false;
  name = body.substr(0, nCut);
  nJob = NumberAfter(body.substr(nCut), ", JobId:", 0);
  return true;
}

// The port of a line that names it behind "[pszPortName:".
std::string_view PortOf(std::string_view message) {
  const std::string_view body = Between(message, "[pszPortName:", {});
  const std::size_t nCut = std::min(body.rfind(", cbBuf:"), body.rfind(",cbBuf:"));
  return body.substr(0, std::min(nCut, body.size()));
}

}  // namespace

struct StoryMachine::Process {
  std::uint32_t nNumber = 0;
  std::uint32_t nLife = 0;  // numbers of processes come again
  std::vector<std::unique_ptr<Job>> jobs;
  std::unordered_map<std::uint32_t, Thread> threads;
  // A queue's port, as it was opened or as a job of it wrote, and the line that tells so; empty for a queue with several.
  struct Told {
    std::string strPort;
    JobCourse::At at;
  };
  std::unordered_map<std::string, Told> portOfQueue;
  std::unordered_map<std::int64_t, std::string> portOfAddress;

  void PrintsOn(const std::string& strQueue, std::string_view port, const JobCourse::At& at) {
    const auto [it, bNew] = portOfQueue.emplace(strQueue, Told{std::string(port), at});
    if (!bNew && it->second.strPort != port) it->second.strPort.clear();
  }
  Job* pCutOff = nullptr;  // the job of its last line, where that line ends with a number: it may be cut off there
  LocalMs llTraced = 0;    // the last line of level T
  LocalMs llInfo = 0;      // of level I
  LocalMs llLast = 0;      // of any
  bool bDetails = false;   // level D was seen
};

StoryMachine::StoryMachine(Sink sink, bool bEvents) : m_sink(std::move(sink)), m_bEvents(bEvents) {}
StoryMachine::~StoryMachine() = default;

std::size_t StoryMachine::OpenJobs() const {
  std::size_t n = 0;
  for (const auto& [nNumber, pProcess] : m_processes) n += pProcess->jobs.size();
  return n;
}

void StoryMachine::ForEachOpen(const std::function<void(const Story&, bool)>& give) const {
  for (const auto& [nNumber, pProcess] : m_processes)
    for (const auto& pJob : pProcess->jobs)
      give(pJob->course.story(), pJob->course.IsTracedThroughout() || pJob->course.IsOnPortMonitor());
}

StoryMachine::Process& StoryMachine::ProcessOf(std::uint32_t nProcess) {
  if (m_pLastProcess != nullptr && m_nLastProcess == nProcess) return *m_pLastProcess;
  auto& pProcess = m_processes[nProcess];
  if (!pProcess) {
    pProcess = std::make_unique<Process>();
    pProcess->nNumber = nProcess;
    pProcess->nLife = ++m_nLives;
  }
  m_nLastProcess = nProcess;
  m_pLastProcess = pProcess.get();
  return *pProcess;
}

// What a level does not show proves something only while it stays on. That one was off in between can be seen: a job of which it
// shows nothing beside one of which it does; or a pause as long as levels stay as they are, in a process whose levels are known to
// change.
void StoryMachine::LevelSeen(Process& process, const LogLine& line) {
  process.llLast = m_llTime;
  if (line.cLevel == 'D') process.bDetails = true;
  if (line.cLevel != 'T' && line.cLevel != 'I') return;
  const bool bTrace = line.cLevel == 'T';
  LocalMs& llBefore = bTrace ? process.llTraced : process.llInfo;
  const bool bPause = m_llTime - llBefore >= kLevelsStayMs && process.llTraced != 0;
  const auto own = process.threads.find(line.nThread);
  for (const auto& pJob : process.jobs) {
    JobCourse& course = pJob->course;
    const bool bOwn = own != process.threads.end() && own->second.pJob == pJob.get();
    if (bTrace != course.IsTraced()) {
      if (bTrace && !bOwn && !course.IsFresh()) course.LevelsChanged();
    } else if (bPause) {
      course.PauseOfLevels();
    }
  }
  llBefore = m_llTime;
}

void StoryMachine::Enter(Process& process, std::uint32_t nThread, Job* pJob) { process.threads[nThread] = {pJob}; }

StoryMachine::Job& StoryMachine::Begin(Process& process, const LogLine& line, std::string_view queue,
                                       std::int64_t nJob) {
  Thread& thread = process.threads[line.nThread];
  auto pJob = std::make_unique<Job>(
      Job{JobCourse(std::string(queue), nJob, process.nNumber, Here(), m_bEvents), line.nThread, ++m_nSerial});
  if (thread.pJob != nullptr) pJob->nBefore = thread.pJob->nSerial;
  const auto port = process.portOfQueue.find(std::string(queue));
  if (port != process.portOfQueue.end() && !port->second.strPort.empty())
    pJob->course.SetPort(port->second.strPort, port->second.at);
  process.jobs.push_back(std::move(pJob));
  thread = {process.jobs.back().get(), true};
  return *process.jobs.back();
}

void StoryMachine::Finish(Process& process, Job* pJob, bool bOver, LocalMs llEnded) {
  if (process.bDetails) pJob->course.KnowsDetails();
  // What no line shows may have been while levels were off that are known to come and go.
  const bool bTraced = pJob->course.IsTraced();
  if (!bOver && process.llTraced != 0 && (!bTraced || process.llLast - process.llTraced >= kLevelsStayMs))
    pJob->course.LevelsChanged();
  Story story = pJob->course.Conclude(bOver, llEnded);
  story.nLife = process.nLife;
  const bool bNumberCut = pJob->bNumberCut;
  for (auto it = process.threads.begin(); it != process.threads.end();) {
    Thread& thread = it->second;
    if (thread.pJob == pJob) thread = {.nEnded = thread.nEnded};
    it = thread.pJob == nullptr && thread.nEnded == 0 && !thread.bOpening ? process.threads.erase(it) : std::next(it);
  }
  process.jobs.erase(
      std::find_if(process.jobs.begin(), process.jobs.end(), [&](const auto& p) { return p.get() == pJob; }));
  if (process.pCutOff == pJob) process.pCutOff = nullptr;
  if (bNumberCut) {
    ++m_nUnlisted;
  } else {
    m_sink(std::move(story));
  }
}

void StoryMachine::LinesWereLost() {
  // An end may be among them, and the start of another job on the same thread or port: only a line that names a job of now is
  // still taken for its own.
  for (const auto& [nNumber, pProcess] : m_processes) {
    for (const auto& pJob : pProcess->jobs) pJob->course.LinesWereLost();
    pProcess->threads.clear();
  }
}

void StoryMachine::EndOfLines(Process& process) {
  Job* const pJob = std::exchange(process.pCutOff, nullptr);
  if (pJob == nullptr) return;
  pJob->bNumberCut = pJob->course.IsFresh();
  pJob->course.LinesWereLost();
}

void StoryMachine::GoesOn(Process& process, Job& job) {
  const std::uint64_t nBefore = std::exchange(job.nBefore, 0);
  for (std::size_t n = process.jobs.size(); n > 0; --n) {
    if (n > process.jobs.size()) continue;
    Job* pOther = process.jobs[n - 1].get();
    if (pOther == &job) continue;
    const bool bSamePort =
        pOther->bPortKnown && job.bPortKnown && pOther->course.story().strPort == job.course.story().strPort;
    // Level T would have shown the end of the job that the thread worked for before.
    const bool bBefore = pOther->nSerial == nBefore && !pOther->course.IsTraced();
    if (bSamePort || bBefore) Finish(process, pOther, true, 0);
  }
}

// Lines that may be any job's of the port, or of any that level T does not show throughout.
void StoryMachine::Doubt(Process& process, std::string_view port) {
  for (const auto& pJob : process.jobs) {
    const std::string& strPort = pJob->course.story().strPort;
    if (!pJob->course.IsTraced() || (!port.empty() && (strPort == port || strPort.empty())))
      pJob->course.LinesMayBeOthers();
  }
}

// The job in progress on a port: the one that has written to it, or else the only one that began for it.
StoryMachine::Job* StoryMachine::OnPort(Process& process, std::string_view port) const {
  Job* pStarting = nullptr;
  bool bSeveral = false;
  for (const auto& pJob : process.jobs) {
    if (pJob->course.story().strPort != port || pJob->bEnded) continue;
    if (pJob->bPortKnown) return pJob.get();
    bSeveral = pStarting != nullptr;
    pStarting = pJob.get();
  }
  return bSeveral ? nullptr : pStarting;
}

StoryMachine::Job* StoryMachine::ForWrite(Process& process, std::uint32_t nThread, std::string_view port) {
  Job* pOwn = process.threads[nThread].pJob;
  if (pOwn != nullptr && pOwn->bEnded) pOwn = nullptr;
  if (pOwn != nullptr && pOwn->course.story().strPort.empty()) return pOwn;
  Job* pLatest = nullptr;  // of those that began for the port and have not written: the others may have been refused
  std::size_t nBegun = 0;
  bool bOwn = false;
  for (const auto& pJob : process.jobs) {
    if (pJob->course.story().strPort != port || pJob->bEnded) continue;
    // Without level T the end of the job before is not shown: on its own thread the next one has taken its place. Level T shows
    // more of a start only if the port is free. Else that level went off, or the start was refused by a line that is not shown.
    const bool bTakesOver =
        pOwn != nullptr && !pOwn->bPortKnown && pOwn->course.story().strPort == port && pOwn->nSerial > pJob->nSerial;
    if (pJob->bPortKnown && bTakesOver && (pOwn->course.IsTraced() || !pJob->course.IsTraced())) continue;
    if (pJob->bPortKnown && bTakesOver) return nullptr;
    if (pJob->bPortKnown) return pJob->course.story().bLinesLost ? nullptr : pJob.get();
    ++nBegun;
    pLatest = pJob.get();
    bOwn = bOwn || pLatest == pOwn;
  }
  if (nBegun > 1) {
    // A start on a busy port is refused before level T shows more of it. So the latest is the one if it does; or else it is being
    // refused, and the one whose thread this is goes on.
    const bool bOwnGoesOn = bOwn && (process.llTraced != 0 ? pOwn->course.IsTraced() : pOwn == pLatest);
    if (process.llTraced == 0 || !pLatest->course.IsTraced()) pLatest = bOwnGoesOn ? pOwn : nullptr;
    if (pLatest == nullptr) return nullptr;
  }
  return pLatest != nullptr && !pLatest->course.story().bLinesLost ? pLatest : nullptr;
}

StoryMachine::Job* StoryMachine::ById(Process& process, std::int64_t nJob, std::string_view port,
                                      const Thread& thread) const {
  if (thread.pJob != nullptr && thread.pJob->course.story().nJob == nJob &&
      (port.empty() || thread.pJob->course.story().strPort.empty() || thread.pJob->course.story().strPort == port))
    return thread.pJob;
  Job* pFound = nullptr;
  for (const auto& pJob : process.jobs) {
    if (pJob->course.story().nJob != nJob) continue;
    if (!port.empty() && pJob->course.story().strPort != port) continue;
    if (pFound != nullptr) return nullptr;
    pFound = pJob.get();
  }
  return pFound;
}

void StoryMachine::Line(const LogLine& line, LocalMs llTime, const Place& place) {
  m_place = place;
  if (line.kind == LineKind::LostNote || line.bLostBefore) LinesWereLost();
  if (line.kind != LineKind::Call) return;
  const bool bNextFile = std::exchange(m_nFile, place.nFile) != place.nFile && m_llTime != 0;
  if (bNextFile && std::abs(llTime - m_llTime) > kMissingFileMs) LinesWereLost();
  m_llTime = llTime;
  const Step step = StepOf(line);
  if (step == Step::CutOff) return LinesWereLost();
  Process& process = ProcessOf(line.nProcess);
  LevelSeen(process, line);
  if (step == Step::MonitorLoaded) EndOfLines(process);
  process.pCutOff = nullptr;
  switch (step) {
    case Step::Start: return StartLine(process, line);
    case Step::StartTraced: {
      // Of a start whose first line is not shown: what the job goes on to say could be taken for that of another one that began.
      Thread& thread = process.threads[line.nThread];
      const bool bNamed = std::exchange(thread.bOpening, false) ||
                          (thread.bStarting && thread.pJob != nullptr && thread.pJob->course.IsFresh());
      if (bNamed) break;
      for (const auto& pJob : process.jobs)
        if (!pJob->bPortKnown) pJob->course.LinesMayBeOthers();
      thread = {};
      return;
    }
    case Step::Offer:
    case Step::OnDevice:
    case Step::PortTook:
    case Step::PortFailed: return WriteLine(process, step, line);
    case Step::AskedCancel:
    case Step::Inspect: AddressLine(process, line); break;
    case Step::Watch:
    case Step::WatcherSawCancel: return WatchLine(process, step, line);
    case Step::EndOnPort:
    case Step::LastPage: return EndLine(process, step, line);
    case Step::MonitorLoaded:
    case Step::PortOpened:
    case Step::PortMade:
    case Step::PortFreed:
    case Step::PortClosed: return PortLine(process, step, line);
    default: break;
  }
  if (Refusal(process, step, line)) return;
  const auto it = process.threads.find(line.nThread);
  Job* const pJob = it != process.threads.end() ? it->second.pJob : nullptr;
  const bool bMoves = step == Step::SendTook || step == Step::SendShort || step == Step::SendFailed ||
                      step == Step::SawCancel;  // what the job claims
  if (pJob != nullptr && !(pJob->bEnded && bMoves)) {
    pJob->course.Take(step, line, Here());
    if (step == Step::SendTook) process.pCutOff = pJob;
  } else if (bMoves) {
    Doubt(process);  // of a job that is not known, or on a thread of its own
  }
}

void StoryMachine::End() {
  for (const auto& [nNumber, pProcess] : m_processes) {
    if (nNumber != m_nLastProcess) EndOfLines(*pProcess);
    while (!pProcess->jobs.empty()) Finish(*pProcess, pProcess->jobs.front().get(), false, 0);
  }
}

void StoryMachine::StartLine(Process& process, const LogLine& line) {
  std::string_view queue;
  std::int64_t nJob = 0;
  if (!NameAndJob(Between(line.message, "pszPrinterName:", {}), queue, nJob)) return;
  Job& job = Begin(process, line, queue, nJob);
  process.pCutOff = &job;
  job.course.Take(Step::Start, line, Here());
  job.course.Note("The spooler started job " + std::to_string(nJob) + " on the queue " + std::string(queue) + ".",
                  Here());
}

// The lines of a job start that are no start: what refused it.
bool StoryMachine::Refusal(Process& process, Step step, const LogLine& line) {
  if (step < Step::Busy || step > Step::RefusedSync) return false;
  Thread& thread = process.threads[line.nThread];
  std::string_view queue;
  std::int64_t nJob = 0;
  if (step == Step::Busy || step == Step::RefusedByPort) {
    const std::string_view mark = step == Step::Busy ? "[pszPrinterName:" : "[PrinterName:";
    if (!NameAndJob(Between(line.message, mark, {}), queue, nJob)) return true;
    // Where level I is off, this line is all that names the job.
    const bool bOwn = thread.pJob != nullptr && thread.bStarting && thread.pJob->course.story().nJob == nJob &&
                      thread.pJob->course.story().strQueue == queue;
    if (!bOwn) Begin(process, line, queue, nJob);
  }
  Job* pJob = thread.pJob;
  if (pJob == nullptr || !thread.bStarting || !pJob->course.IsFresh()) return true;
  pJob->course.Take(step, line, Here());
  const std::int64_t nError = NumberAfter(line.message, "[err:", kUnknown);
  const std::int64_t nAnswer = NumberAfter(line.message, "[e:", kUnknown);
  std::int64_t nCode = kUnknown;
  std::string strReason;
  switch (step) {
    case Step::Busy:
      nCode = 170;
      strReason = "another job was in progress on the port";
      break;
    case Step::RefusedQueue:
      nCode = nError;
      strReason = "the queue could not be opened";
      break;
    case Step::RefusedByPort: strReason = "the port monitor refused it"; break;
    case Step::RefusedUnknownJob:
      nCode = nError;
      strReason = "the spooler did not tell about the job";
      break;
    case Step::RefusedMemory:
      nCode = 8;
      strReason = "memory was short";
      break;
    case Step::RefusedLibrary: strReason = "the device-access library was gone"; break;
    case Step::RefusedCall:
      nCode = 87;
      strReason = "the spooler's call was not understood";
      break;
    case Step::RefusedLock:
      nCode = 170;
      strReason = "the device could not be locked (the library answered " + std::to_string(nAnswer) +
                  "): another program has it";
      break;
    case Step::RefusedOpen:
      nCode = nAnswer;
      strReason = "the device could not be opened";
      break;
    default: strReason = "the serial line could not be synchronised";
  }
  pJob->course.Refuse(nCode, std::move(strReason), Here());
  Finish(process, pJob, true, m_llTime);
  return true;
}

void StoryMachine::WriteLine(Process& process, Step step, const LogLine& line) {
  const std::string_view port = PortOf(line.message);
  Job* pJob = ForWrite(process, line.nThread, port);
  Job* const pBefore = process.threads[line.nThread].pJob;
  // Threads that serve whichever call comes: unless level T shows each job's end, nobody knows whose call a line is of.
  const bool bElsewhere = pJob != nullptr && pJob != pBefore && pJob->nStarter != line.nThread;
  if (bElsewhere && !pJob->course.IsTracedThroughout() && process.llTraced != 0) pJob = nullptr;
  // A job takes one way: a line of the other is of a job whose start is not shown.
  const Path other = step == Step::OnDevice ? Path::PortMonitor : Path::Device;
  if (pJob != nullptr && step != Step::Offer && pJob->course.story().path == other) pJob = nullptr;
  if (pJob == nullptr) {
    Doubt(process, port);
    Enter(process, line.nThread, nullptr);
    return;
  }
  if (bElsewhere) pJob->course.IsOnSeveralThreads();
  if (pBefore != nullptr && pBefore != pJob) pBefore->course.IsOnSeveralThreads();
  Enter(process, line.nThread, pJob);
  if (!pJob->bPortKnown) {
    pJob->bPortKnown = true;
    pJob->course.SetPort(port, Here());
    process.PrintsOn(pJob->course.story().strQueue, port, Here());
  }
  GoesOn(process, *pJob);
  pJob->course.Take(step, line, Here());
}

// A call names the address of its port: a write's second line, or the first one of a job's end.
void StoryMachine::AddressLine(Process& process, const LogLine& line) {
  const std::int64_t nAddress = NumberAfter(line.message, "pIniPort:", 0);
  Thread& thread = process.threads[line.nThread];
  const auto it = process.portOfAddress.find(nAddress);
  if (it == process.portOfAddress.end()) {
    if (thread.pJob != nullptr && thread.pJob->course.IsWriting())
      process.portOfAddress[nAddress] = thread.pJob->course.story().strPort;
    return;
  }
  const bool bOwn = thread.pJob != nullptr && thread.pJob->course.story().strPort == it->second;
  if (bOwn && thread.pJob->bPortKnown) return;
  Job* pJob = OnPort(process, it->second);
  if (pJob == nullptr && bOwn) return;
  if (pJob == nullptr && thread.pJob != nullptr && thread.pJob->course.story().strPort.empty()) return;
  if (pJob != nullptr && pJob->course.story().bLinesLost) {
    pJob = nullptr;
    Doubt(process, it->second);
  }
  if (pJob != nullptr) GoesOn(process, *pJob);
  Enter(process, line.nThread, pJob);
}

void StoryMachine::WatchLine(Process& process, Step step, const LogLine& line) {
  Thread& thread = process.threads[line.nThread];
  if (step == Step::Watch) {
    // The watcher is made in the call that starts its job.
    const std::int64_t nJob = NumberAfter(line.message, "dwJobId:", 0);
    Job* pWatched = nullptr;
    std::size_t nFound = 0;
    for (const auto& pJob : process.jobs) {
      if (pJob->course.story().nJob != nJob || pJob->bWatched) continue;
      pWatched = pJob.get();
      ++nFound;
    }
    thread = {};
    if (nFound == 1) {
      pWatched->bWatched = true;
      thread = {pWatched, false, true};
      pWatched->course.Take(step, line, Here());
    } else {
      for (const auto& pJob : process.jobs)
        if (pJob->course.story().nJob == nJob) pJob->course.MayBeCancelled();
    }
    return;
  }
  if (thread.pJob != nullptr && thread.bWatcher) return thread.pJob->course.Take(step, line, Here());
  for (const auto& pJob : process.jobs)
    if (!pJob->course.IsOnPortMonitor()) pJob->course.MayBeCancelled();
}

void StoryMachine::EndLine(Process& process, Step step, const LogLine& line) {
  Thread& thread = process.threads[line.nThread];
  std::string_view port;
  std::int64_t nJob = 0;
  if (step == Step::EndOnPort) {
    const bool bNamed = NameAndJob(Between(Between(line.message, "[pszPortName:", {}), "", "]"), port, nJob);
    if (!bNamed) return;
  } else {
    nJob = NumberAfter(line.message, "nValue:", 0);
    const auto it = process.portOfAddress.find(NumberAfter(line.message, "pIniPort:", 0));
    if (it != process.portOfAddress.end()) port = it->second;
  }
  if (nJob <= 0) return;  // whatever is left on a port that is closed
  const bool bEndedBefore = std::exchange(thread.nEnded, step == Step::EndOnPort ? nJob : 0) == nJob;
  Job* pJob = ById(process, nJob, port, thread);
  if (pJob == nullptr && !port.empty()) pJob = ById(process, nJob, {}, thread);
  if (pJob == nullptr) {
    if (!bEndedBefore) ++m_nUnlisted;
    return;
  }
  GoesOn(process, *pJob);
  if (step == Step::EndOnPort) {
    if (!pJob->bPortKnown) pJob->course.SetPort(port, Here());
    pJob->bPortKnown = true;
    pJob->bEnded = true;
    thread = {.pJob = pJob, .nEnded = nJob};
    pJob->course.Take(step, line, Here());
    if (!pJob->course.IsTraced()) Finish(process, pJob, true, EndOf(*pJob));
    return;
  }
  pJob->course.Take(step, line, Here());
  pJob->course.Note("The monitor reported the last page to the spooler and was done with the job.", Here());
  Finish(process, pJob, true, EndOf(*pJob));
}

void StoryMachine::PortLine(Process& process, Step step, const LogLine& line) {
  switch (step) {
    case Step::MonitorLoaded:
      // A process that begins: jobs under its number belong to one that is gone.
      while (!process.jobs.empty()) Finish(process, process.jobs.front().get(), false, 0);
      process.threads.clear();
      process.portOfQueue.clear();
      process.portOfAddress.clear();
      process.llTraced = process.llInfo = 0;
      process.bDetails = false;
      process.nLife = ++m_nLives;
      break;
    case Step::PortOpened: {
      process.threads[line.nThread] = {.bOpening = true};
      const std::string_view body = Between(line.message, "[Port:", {});
      const std::size_t nCut = body.rfind("/Printer:");
      if (nCut == std::string_view::npos || !body.ends_with(']')) return;
      process.PrintsOn(std::string(body.substr(nCut + 9, body.size() - nCut - 10)), body.substr(0, nCut), Here());
      break;
    }
    case Step::PortMade:
      process.portOfAddress[NumberAfter(line.message, "pIniPort:", 0)] =
          Between(line.message, ", pPortName:", ", pPrinterName:");
      break;
    case Step::PortFreed: process.portOfAddress.erase(NumberAfter(line.message, "pIniPort:", 0)); break;
    default: {  // closed: every job of the port is over
      const std::string_view port = Between(line.message, "[pszPortName:", "]");
      if (Job* pJob = OnPort(process, port); pJob != nullptr && pJob->bPortKnown && !pJob->course.IsTraced())
        Finish(process, pJob, true, 0);
      std::erase_if(process.portOfAddress, [&](const auto& known) { return known.second == port; });
    }
  }
}

}  // namespace lmctl
