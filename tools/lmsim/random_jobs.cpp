// Many seeds of random jobs, printer faults, cancels, service stops, refused calls and changed settings on several ports at
// once, some with platform calls that fail at random; and what must hold after each.
//
// How to read it: BuildPort draws a port with its jobs and their faults (random_world.h); PrintJobs takes a port's jobs through
// the monitor, each port on a thread of its own, while others get in the way (mishaps.h); Run puts it together, and then asks
// what came of it: of the paper and the device (random_checks.h), of the stories that the log tells (story_judge.h). Everything
// random that the jobs depend on is drawn before a thread starts, and what is new draws from a generator of its own: so a seed
// stays the world that it was.
#include "tools/lmsim/random_jobs.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <map>
#include <random>

#include "posix/control.h"
#include "sim/world.h"
#include "tools/lmsim/mishaps.h"
#include "tools/lmsim/random_checks.h"
#include "tools/lmsim/story_judge.h"

using sim::Fault;
using sim::FaultKind;
using sim::SideThread;

namespace {

constexpr char kModel[] = "Kelvane HM-520";  // eight-byte statuses
constexpr char kOneByteModel[] = "Kelvane Tagline 62";

// No job takes longer than its faults and its data need, by far.
constexpr DWORD kLongestRunMs = 3'600'000;
// So long somebody looks on before a job that cannot be confirmed is deleted.
constexpr DWORD kPatienceMs = 600'000;

class Simulation {
 public:
  explicit Simulation(std::uint64_t ullSeed)
      : m_ullSeed(ullSeed),
        m_random(ullSeed),
        m_others(ullSeed ^ 0xF11E5u),
        m_more(ullSeed ^ 0xC10C4u),
        m_kind(DrawKind()) {
    w32::SetSeed(ullSeed);
    // Midnight comes soon. (A clock that is set back over it leaves a log whose lines stand in no order.)
    if (!m_kind.bClockSet && m_more() % 8 == 0) MoveClock(15 * 3600 - 5);
    // Half of the seeds log everything and have the tool's stories judged; a quarter some levels; the rest changes them.
    constexpr DWORD kMasks[] = {0x012, 0x016, 0x096, 0x112, 0x116, 0x006};
    m_dwMask = ullSeed % 2 == 0 ? 0x596 : ullSeed % 4 == 1 ? kMasks[Pick(6)] : 0;
    world.SetLogLevel(m_dwMask != 0 ? m_dwMask : Chance(4) ? 0x596 : 0x002);
    world.Attach();
  }

  void Run() {
    const bool bSharedDevice = Chance(3);  // a fourth queue prints on the first one's printer
    for (unsigned n = 0; n < (bSharedDevice ? 4u : 3u); ++n) BuildPort(n);
    if (Chance(3)) world.library.SetPartialSends(200 + Pick(900));
    if (Chance(3)) {  // calls that the library refuses, whichever port they meet
      constexpr const char* kRequests[] = {"send", "SDK_SET_LOCK", "GET_RAW_DATA_RESP", "GET_RAW_DATA_CLR"};
      world.library.Answer(kRequests[Pick(4)], Chance(2) ? ERROR_GEN_FAILURE : ERROR_TIMEOUT,
                           Chance(4) ? 20 + Pick(60) : 1 + Pick(3));
    }
    w32::ResetFaults();
    if (m_kind.bHostile) w32::FailRandomly(1 + Pick(4));
    if (m_kind.bLostWatchers) {  // watchers that cannot start, or that end early
      w32::FailCalls("CreateThread", 1 + Pick(2), Pick(6));
      if (Chance(2)) w32::FailCalls("GetJobW", 1 + Pick(2), 3 + Pick(40));
    }
    std::vector<std::unique_ptr<SideThread>> others;
    if (m_kind.bLogHeld) others.push_back(HoldLogMutex(Pick(100'000)));
    if (m_kind.bLinks) others.push_back(DrawLinks());
    if (m_kind.bOthers) others.push_back(DrawMeddling());
    if (m_kind.bClockSet) {
      const auto dwWait = static_cast<DWORD>(m_more() % 8000);
      others.push_back(std::make_unique<SideThread>([dwWait] {
        Sleep(dwWait);
        MoveClock(-3600);
      }));
    }
    std::vector<std::unique_ptr<SideThread>> threads;
    for (PortPlan& port : m_ports) threads.push_back(std::make_unique<SideThread>([this, &port] { PrintJobs(port); }));
    if (!bSharedDevice && Chance(3)) {  // the service goes and comes between the jobs
      Sleep(Pick(4000));
      world.services.dwState = SERVICE_STOPPED;
      Sleep(Pick(4000));
      world.services.dwState = SERVICE_RUNNING;
    }
    for (unsigned n = Pick(4); n > 0; --n) {  // an administrator changes the settings
      Sleep(Pick(5000));
      world.SetMachineDword("SOFTWARE\\Kelvane\\PrinterDriver", "OpenWithStartDoc", Pick(2));
      const DWORD dwMask = Chance(2) ? 0x596 : 0x002;
      if (m_dwMask == 0) world.SetLogLevel(dwMask);
    }
    for (const auto& pThread : threads)
      if (!pThread->Ends(kLongestRunMs)) Hang();
    w32::ResetFaults();
    m_bStop = true;
    threads.clear();
    others.clear();
    EndMeddling();
    Sleep(60'000);  // the paper comes out
    for (PortPlan& port : m_ports)
      if (!m_kind.bHostile) CheckPort(world, m_kind, port, verdict);
    if (!m_kind.bHostile && m_dwMask != 0) JudgeStories();
    verdict.About("the world");
    for (PortPlan& port : m_ports) CloseBesideRequests(port);
    if (m_kind.bLinks) {
      verdict.Holds(sim::World::ArchivedFiles(kOutside) == m_outside, "what lies behind the links is untouched");
      sim::World::DeleteTree(kOutside);
    }
    if (!m_kind.bHostile) {
      verdict.Equal(world.library.HeldLocks(), 0u, "locks that are held");
      verdict.Equal(world.library.OpenSessions(), 0u, "open sessions");
      for (const std::string& strText : world.journal.Of("violation")) verdict.Holds(false, strText);
    }
    for (PortPlan& port : m_ports)
      if (!port.strRoot.empty()) sim::World::DeleteTree(port.strRoot);
  }

  void Show() {
    for (const std::string& strEntry : world.journal.Entries()) std::printf("%s\n", strEntry.c_str());
    for (PortPlan& port : m_ports)
      std::printf("%s: %s\n", port.strPort.c_str(), world.PrinterOf(port.strPort).State().c_str());
    std::printf("%s\n", sim::World::LogText().c_str());
  }

  sim::World world;
  Verdict verdict;

 private:
  unsigned Pick(unsigned nBelow) { return static_cast<unsigned>(m_random() % nBelow); }
  bool Chance(unsigned nOneIn) { return Pick(nOneIn) == 0; }

  WorldKind DrawKind() {
    WorldKind kind;
    kind.bHostile = Chance(8);
    kind.bLostWatchers = !kind.bHostile && Chance(4);
    kind.bLogHeld = Chance(10);
    kind.bLinks = Chance(6);
    kind.bOthers = m_others() % 8 == 0;
    kind.bTiny = m_others() % 8 == 0;
    kind.bRestarts = m_more() % 2 == 0;
    kind.bIntruders = m_more() % 4 == 0;
    kind.bParts = m_more() % 4 == 0;
    kind.bClockSet = !kind.bRestarts && m_more() % 4 == 0;
    return kind;
  }

  // Everything random is drawn before the threads start, so that it depends on the seed alone.
  void BuildPort(unsigned n) {
    constexpr const char* kNames[] = {"USB001", "COM2", "IP_3", "USB004"};
    PortPlan port;
    port.strPort = kNames[n];
    port.strQueue = sim::Format("Till %u", n);
    const bool bOneByte = Chance(3);
    if (n == 0) m_strFirstModel = bOneByte ? kOneByteModel : kModel;
    const bool bPrinterOneByte = n == 3 ? m_strFirstModel == kOneByteModel : bOneByte;
    sim::Queue& queue =
        n == 3
            ? world.AddQueueOn(world.PrinterOf("USB001"), port.strQueue, port.strPort, m_strFirstModel)
            : world.AddPrinter(
                  port.strQueue, port.strPort, bOneByte ? kOneByteModel : kModel,
                  {.bOneByteStatus = bOneByte, .cbBuffer = 512 + Pick(8000), .dwBytesPerSecond = 2000 + Pick(30'000)});
    sim::MonitorPort& monitorPort = world.portMonitor.Port(port.strPort);
    monitorPort.nProtocol = 1;
    if (m_kind.bParts) {
      monitorPort.cbMostPerWrite = static_cast<DWORD>(1 + m_more() % 2000);
      monitorPort.nZeroWrites = static_cast<unsigned>(m_more() % 4);
      monitorPort.nRefuseWrites = m_more() % 4 == 0 ? 1 : 0;
    }
    queue.data["AutoReprint"] = sim::Spooler::Dword(1);
    port.bSettingGoesAway = Chance(4);
    if (Chance(2)) {
      port.strRoot = sim::Format("C:\\Archive%u", n);
      queue.data["JobFilePath"] = sim::Spooler::Text(port.strRoot);
      queue.data["JobSettingFlags"] = sim::Spooler::Dword(1);
    }
    std::uint64_t ullAt = 0;
    const unsigned nJobs = 1 + Pick(3);
    for (unsigned nJob = 0; nJob < nJobs; ++nJob) {
      RandomJob job;
      job.strData =
          sim::Format("<%u.%u>", n, nJob) + sim::Receipt(1 + Pick(12'000), static_cast<char>('A' + Pick(26))) + "</>";
      if (m_kind.bTiny) job.strData.assign(m_others() % 9, 'x');
      job.dwId = world.spooler.NewJob(port.strQueue, Chance(5) ? "RAW" : "TEXT");
      if (Chance(4)) {
        constexpr DWORD kChanges[] = {JOB_STATUS_DELETING, JOB_STATUS_DELETING | JOB_STATUS_DELETED, JOB_STATUS_RESTART,
                                      JOB_STATUS_PAUSED};
        job.dwUserChange = kChanges[Pick(4)];
        job.dwChangeAfter = Pick(Chance(2) ? 1000 : 9000);
        if (Chance(4)) {
          job.afterwards = Chance(2) ? Afterwards::TakenBack : Afterwards::Leaves;
          job.dwAfterwards = Pick(1500);
        }
      }
      if (Chance(2)) {
        constexpr FaultKind kKinds[] = {FaultKind::PaperEnd,     FaultKind::CoverOpen,   FaultKind::OffLine,
                                        FaultKind::PowerCycle,   FaultKind::BlankStatus, FaultKind::Garbage,
                                        FaultKind::SplitAnswers, FaultKind::Silence,     FaultKind::WrongNumber,
                                        FaultKind::LateAnswer,   FaultKind::Chatter,     FaultKind::LostBytes};
        FaultKind kind = kKinds[Pick(12)];
        // Execution responses of one byte carry no number: an early one cannot be told from the right one.
        if (kind == FaultKind::LateAnswer && bPrinterOneByte) kind = FaultKind::Garbage;
        world.PrinterOf(port.strPort)
            .Plan({kind, ullAt + Pick(static_cast<unsigned>(std::max<std::size_t>(job.strData.size(), 1))),
                   200 + Pick(6000)});
      }
      if (m_kind.bIntruders && !m_kind.bHostile) {
        job.dwIntruder = world.spooler.NewJob(port.strQueue, "RAW");
        job.dwIntrudesAfter = static_cast<DWORD>(m_more() % 3000);
      }
      ullAt += job.strData.size();
      port.jobs.push_back(job);
    }
    port.hPort = world.spooler.OpenPort(port.strPort, port.strQueue);
    m_ports.push_back(port);
  }

  void PrintJobs(PortPlan& port) {
    const auto nPort = static_cast<std::size_t>(&port - m_ports.data());
    for (RandomJob& job : port.jobs) {
      sim::PrintOptions options;
      options.cbChunk = 1000 + static_cast<DWORD>(nPort) * 700;
      std::unique_ptr<SideThread> pIntruder;
      if (job.dwIntruder != 0)
        pIntruder = std::make_unique<SideThread>([&] {
          Sleep(job.dwIntrudesAfter);
          job.intrusion = Intrude(port, job.dwIntruder);
        });
      Attempt attempt = BeginAttempt(port, job.dwId, 0);
      std::unique_ptr<sim::Spooler::Running> pRunning;
      {
        const w32::FaultsOn faults(m_kind.bHostile || m_kind.bLostWatchers);  // for the job's thread and its watcher
        do {
          pRunning = world.spooler.PrintAsync(port.hPort, job.dwId, job.strData, options);
        } while (!m_kind.bHostile && !pRunning->Started());
      }
      if (job.dwUserChange != 0 && !pRunning->Wait(job.dwChangeAfter)) {
        world.spooler.SetStatus(job.dwId, job.dwUserChange);
        if (job.afterwards != Afterwards::Stays && !pRunning->Wait(job.dwAfterwards)) {
          if (job.afterwards == Afterwards::TakenBack) {
            world.spooler.ClearStatus(job.dwId, job.dwUserChange);
          } else {
            world.spooler.RemoveJob(job.dwId);
          }
        }
      }
      // Where the look at the service failed, a job went to the shared printer past its lock; its bytes may have cut in two
      // what another job asked the printer, which never answers then.
      if (m_kind.bHostile && m_ports.size() == 4 && !pRunning->Wait(kPatienceMs))
        world.spooler.SetStatus(job.dwId, JOB_STATUS_DELETING);
      attempt.result = pRunning->Join();
      EndAttempt(port, attempt);
      job.attempts.push_back(attempt);
      if (m_kind.bRestarts && !m_kind.bHostile && job.dwUserChange == JOB_STATUS_RESTART &&
          job.afterwards == Afterwards::Stays && (world.spooler.StatusOf(job.dwId) & JOB_STATUS_RESTART) != 0) {
        world.spooler.ClearStatus(job.dwId, JOB_STATUS_RESTART);
        Sleep(2);
        Attempt again = BeginAttempt(port, job.dwId, 1);
        again.result = world.spooler.Print(port.hPort, job.dwId, job.strData, options);
        EndAttempt(port, again);
        job.attempts.push_back(again);
      }
      if (port.bSettingGoesAway && attempt.result.bStarted) {  // the port keeps what its first job found
        sim::Queue* pQueue = world.spooler.FindQueue(port.strQueue);
        const sim::Guard guard(world.spooler.lock);
        pQueue->data["AutoReprint"] = sim::Spooler::Dword(0);
      }
    }
  }

  Attempt BeginAttempt(const PortPlan& port, DWORD dwId, unsigned nOfJob) {
    Attempt attempt;
    attempt.dwId = dwId;
    attempt.nOfJob = nOfJob;
    attempt.bOnPortMonitor = OnPortMonitor(port, dwId) != 0;  // before it
    attempt.llFirst = m_kind.bClockSet ? 0 : LocalNow();
    NoteBegin(world.journal, port.strQueue, dwId);
    return attempt;
  }

  void EndAttempt(const PortPlan& port, Attempt& attempt) {
    attempt.dwEnded = GetTickCount();
    attempt.llLast = m_kind.bClockSet ? 0 : LocalNow();
    NoteEnd(world.journal, port.strQueue, attempt.dwId);
    attempt.bOnPortMonitor = OnPortMonitor(port, attempt.dwId) > (attempt.bOnPortMonitor ? 1u : 0u);
  }

  // How often it went to the port monitor.
  std::size_t OnPortMonitor(const PortPlan& port, DWORD dwId) {
    const std::string strStart =
        sim::Format("port StartDocPort %s job=%u", port.strPort.c_str(), static_cast<unsigned>(dwId));
    const auto found = world.journal.Of(strStart);
    return static_cast<std::size_t>(std::count(found.begin(), found.end(), strStart));
  }

  // Another job begins on the port: refused while one is in progress, or else over at once.
  Attempt Intrude(const PortPlan& port, DWORD dwId) {
    Attempt attempt = BeginAttempt(port, dwId, 0);
    attempt.result.bStarted = world.spooler.StartDoc(port.hPort, dwId);
    attempt.result.dwError = attempt.result.bStarted ? 0 : GetLastError();
    if (attempt.result.bStarted) world.spooler.EndDoc(port.hPort);
    attempt.result.bDelivered = attempt.result.bStarted;
    EndAttempt(port, attempt);
    return attempt;
  }

  std::unique_ptr<SideThread> DrawLinks() {
    MakeOutside();
    m_outside = sim::World::ArchivedFiles(kOutside);
    std::vector<std::string> places = {sim::World::LogFolder(), "C:\\ProgramData\\Kelvane\\Logs"};
    for (const PortPlan& port : m_ports)
      if (!port.strRoot.empty()) places.push_back(port.strRoot + "\\20261118");
    std::vector<LinkPlan> plan;
    for (unsigned n = 0; n < 12; ++n) plan.push_back({places[Pick(static_cast<unsigned>(places.size()))], Pick(700)});
    return MakeLinks(std::move(plan), m_bStop);
  }

  std::unique_ptr<SideThread> DrawMeddling() {
    std::vector<std::string> places = {sim::World::LogFolder() + "\\20261118.log"};
    for (const PortPlan& port : m_ports)
      if (!port.strRoot.empty()) places.push_back(port.strRoot + "\\20261118");
    return MeddleWithFiles(std::move(places), m_others, m_bStop);
  }

  // The driver asks while the spooler closes the port.
  void CloseBesideRequests(PortPlan& port) {
    SideThread driver([&] {
      const sim::ActAsClient client;
      sim::WideString request = sim::Wide("DO_SETTING_SHARE_PRN__Front");
      DWORD cb = 0;
      for (int n = 0; n < 3; ++n)
        world.spooler.pMonitor->pfnGetPrinterDataFromPort(port.hPort, 0, request.data(), nullptr, 0, nullptr, 0, &cb);
    });
    Sleep(static_cast<DWORD>(m_ullSeed % 3) * 300);
    world.spooler.ClosePort(port.hPort);
  }

  // What the tool reads out of the log beside what the world knows.
  void JudgeStories() {
    std::vector<JobTruth> truths;
    for (const PortPlan& port : m_ports) {
      const std::vector<sim::Journal::Event> events = world.journal.EventsOf(port.strQueue);
      const auto truthOf = [&](const Attempt& attempt) {
        return TruthOf(attempt, port.strQueue, port.strPort, events);
      };
      for (const RandomJob& job : port.jobs) {
        if (job.dwIntruder != 0) truths.push_back(truthOf(job.intrusion));
        JobTruth first = truthOf(job.attempts[0]);
        first.bMayBeCancelled = (job.IsCancelled() && !first.bOnPortMonitor) || job.afterwards == Afterwards::Leaves;
        first.bMustBeCancelled = first.bMayBeCancelled && first.bStarted && first.dwChanged != 0 &&
                                 !m_kind.bLostWatchers && job.afterwards == Afterwards::Stays &&
                                 first.dwChanged + 1000 < job.attempts[0].dwEnded;
        if (job.attempts.size() > 1) {
          JobTruth again = truthOf(job.attempts[1]);
          first.bCameAgain = again.bCameAgain = first.ullSent != 0 && again.ullSent != 0;
          truths.push_back(again);
        }
        truths.push_back(first);
      }
    }
    const JudgedLog log = {sim::World::LogText(), m_kind.LinesMayBeLost(), m_kind.bClockSet};
    if (m_dwMask == 0x596) {
      JudgeAtEveryMask(log, truths, static_cast<unsigned>(m_ullSeed), verdict);
    } else {
      JudgeOne(log, truths, verdict);
    }
  }

  // Threads that never end cannot be left behind: the process ends with the story so far.
  [[noreturn]] void Hang() {
    Show();
    std::printf("a job never ends\n");
    std::fflush(stdout);
    std::abort();
  }

  const std::uint64_t m_ullSeed;
  std::mt19937_64 m_random;
  std::mt19937_64 m_others;  // of its own, so that a new mishap leaves the other worlds as they were
  std::mt19937_64 m_more;    // and another one
  const WorldKind m_kind;
  DWORD m_dwMask = 0;  // levels that are logged throughout; 0: they change
  std::vector<PortPlan> m_ports;
  std::string m_strFirstModel;
  std::map<std::string, std::string> m_outside;
  std::atomic<bool> m_bStop{false};
};

}  // namespace

bool RunSeed(std::uint64_t ullSeed, bool bShow) {
  sim::World::CleanMachine();
  const w32::Balance before = w32::CurrentBalance();
  bool bAllWell = false;
  {
    Simulation simulation(ullSeed);
    simulation.Run();
    if (bShow) simulation.Show();
    bAllWell = simulation.verdict.AllWell();
  }
  const std::string strLeaks = w32::Leaks(before);
  if (!strLeaks.empty()) std::printf("left open:\n%s", strLeaks.c_str());
  return bAllWell && strLeaks.empty();
}
