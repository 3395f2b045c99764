// Many seeds of random jobs, printer faults, cancels, service stops, refused calls and changed settings on several ports at
// once, some with platform calls that fail at random; and what must hold after each.
#include "tools/lmsim/random_jobs.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <map>
#include <random>

#include "posix/control.h"
#include "sim/side_thread.h"
#include "sim/world.h"
#include "tools/lmsim/job_truth.h"
#include "tools/lmsim/story_judge.h"
#include "tools/lmsim/verdict.h"

using sim::Fault;
using sim::FaultKind;
using sim::SideThread;

namespace {

constexpr char kModel[] = "Kelvane HM-520";  // eight-byte statuses
constexpr char kOneByteModel[] = "Kelvane Tagline 62";
constexpr DWORD kCancelled = JOB_STATUS_DELETING | JOB_STATUS_DELETED | JOB_STATUS_RESTART;
// A deletion is noticed within one poll of the job's watcher; the rest is for the transfer that is under way.
constexpr DWORD kNoticedMs = 600;

// No job takes longer than its faults and its data need, by far.
constexpr DWORD kLongestRunMs = 3'600'000;
// So long somebody looks on before a job that cannot be confirmed is deleted.
constexpr DWORD kPatienceMs = 600'000;

// A deleted job is over within a second, and what the call takes that it is in: a transfer that nobody can cancel, a log
// that somebody holds.
constexpr DWORD kEndsMs = 1500;
constexpr DWORD kLockMs = 3000;  // that the device's lock is waited for
constexpr DWORD kLongestTransferMs = 90'000;
constexpr DWORD kLongestLogWaitMs = 62'000;

// Offers of one buffer that take nothing; a printer that is not ready makes the write wait instead.
constexpr unsigned kMostOffers = 40;

enum class Afterwards { Stays, TakenBack, Leaves };

struct RandomJob {
  DWORD dwId = 0;
  std::string strData;
  DWORD dwUserChange = 0;  // what the user does to it: status bits
  DWORD dwChangeAfter = 0;
  Afterwards afterwards = Afterwards::Stays;  // what becomes of the bits
  DWORD dwAfterwards = 0;
  DWORD dwEnded = 0;
  sim::PrintResult result;
  sim::PrintResult again;  // after the spooler restarted it
  DWORD dwIntruder = 0;    // a job that is started on the port, which may be busy, so long after this one
  DWORD dwIntrudesAfter = 0;

  bool IsCancelled() const { return (dwUserChange & kCancelled) != 0; }
};

struct PortPlan {
  std::string strPort;
  std::string strQueue;
  std::string strRoot;  // of its archive; empty when it has none
  HANDLE hPort = nullptr;
  bool bSettingGoesAway = false;  // "AutoReprint" becomes 0 after the first job
  std::vector<RandomJob> jobs;
  std::vector<Attempt> attempts;
  std::vector<Attempt> intrusions;  // by threads of their own
};

std::size_t CountIn(const std::string& strText, const std::string& strPart) {
  std::size_t n = 0;
  for (std::size_t nAt = strText.find(strPart); nAt != std::string::npos; nAt = strText.find(strPart, nAt + 1)) ++n;
  return n;
}

class Simulation {
 public:
  explicit Simulation(std::uint64_t ullSeed)
      : m_ullSeed(ullSeed),
        m_random(ullSeed),
        m_others(ullSeed ^ 0xF11E5u),
        m_more(ullSeed ^ 0xC10C4u),
        m_bHostile(Chance(8)),
        m_bLostWatchers(!m_bHostile && Chance(4)),
        m_bLogHeld(Chance(10)),
        m_bLinks(Chance(6)),
        m_bOthers(m_others() % 8 == 0),
        m_bTiny(m_others() % 8 == 0),
        m_bRestarts(m_more() % 2 == 0),
        m_bIntruders(m_more() % 4 == 0),
        m_bParts(m_more() % 4 == 0),
        m_bClockSet(!m_bRestarts && m_more() % 4 == 0) {
    w32::SetSeed(ullSeed);
    // Midnight comes soon. (A clock that is set back over it leaves a log whose lines stand in no order.)
    if (!m_bClockSet && m_more() % 8 == 0) MoveClock(15 * 3600 - 5);
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
    if (m_bHostile) w32::FailRandomly(1 + Pick(4));
    if (m_bLostWatchers) {  // watchers that cannot start, or that end early
      w32::FailCalls("CreateThread", 1 + Pick(2), Pick(6));
      if (Chance(2)) w32::FailCalls("GetJobW", 1 + Pick(2), 3 + Pick(40));
    }
    std::vector<std::unique_ptr<SideThread>> others;
    if (m_bLogHeld) others.push_back(HoldLogMutex(Pick(100'000)));
    if (m_bLinks) others.push_back(MakeLinks());
    if (m_bOthers) others.push_back(MeddleWithFiles());
    if (m_bClockSet) {
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
    m_bStopLinks = true;
    threads.clear();
    others.clear();
    w32::DropOplocks();
    w32::RefuseNormalizedNames(false);
    for (unsigned n = 1; n <= 3; ++n) w32::RefuseHive(n, false);
    sim::SetClient(1);
    Sleep(60'000);  // the paper comes out
    for (PortPlan& port : m_ports)
      if (!m_bHostile) Check(port);
    if (!m_bHostile && m_dwMask != 0) JudgeStories();
    verdict.About("the world");
    for (PortPlan& port : m_ports) CloseBesideRequests(port);
    if (m_bLinks) {
      verdict.Holds(sim::World::ArchivedFiles("C:\\Outside") == m_outside, "what lies behind the links is untouched");
      sim::World::DeleteTree("C:\\Outside");
    }
    if (!m_bHostile) {
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

  static void MoveClock(int nSeconds) {
    FILETIME ft;
    SYSTEMTIME st;
    GetLocalTime(&st);
    SystemTimeToFileTime(&st, &ft);
    const std::uint64_t ull = (static_cast<std::uint64_t>(ft.dwHighDateTime) << 32 | ft.dwLowDateTime) +
                              static_cast<std::uint64_t>(nSeconds * 10'000'000LL);
    ft = {static_cast<DWORD>(ull), static_cast<DWORD>(ull >> 32)};
    FileTimeToSystemTime(&ft, &st);
    w32::SetClock(st);
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
    if (m_bParts) {
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
      if (m_bTiny) job.strData.assign(m_others() % 9, 'x');
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
      if (m_bIntruders && !m_bHostile) {
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
          Intrude(port, job.dwIntruder);
        });
      Attempt attempt = BeginAttempt(port, job.dwId, 0);
      std::unique_ptr<sim::Spooler::Running> pRunning;
      {
        const w32::FaultsOn faults(m_bHostile || m_bLostWatchers);  // for the job's thread and its watcher
        do {
          pRunning = world.spooler.PrintAsync(port.hPort, job.dwId, job.strData, options);
        } while (!m_bHostile && !pRunning->Started());
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
      if (m_bHostile && m_ports.size() == 4 && !pRunning->Wait(kPatienceMs))
        world.spooler.SetStatus(job.dwId, JOB_STATUS_DELETING);
      attempt.result = pRunning->Join();
      EndAttempt(port, attempt, port.attempts);
      job.result = attempt.result;
      job.dwEnded = attempt.dwEnded;
      if (m_bRestarts && !m_bHostile && job.dwUserChange == JOB_STATUS_RESTART && job.afterwards == Afterwards::Stays &&
          (world.spooler.StatusOf(job.dwId) & JOB_STATUS_RESTART) != 0) {
        world.spooler.ClearStatus(job.dwId, JOB_STATUS_RESTART);
        Sleep(2);
        Attempt again = BeginAttempt(port, job.dwId, 1);
        job.again = again.result = world.spooler.Print(port.hPort, job.dwId, job.strData, options);
        EndAttempt(port, again, port.attempts);
      }
      if (port.bSettingGoesAway && job.result.bStarted) {  // the port keeps what its first job found
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
    attempt.llFirst = m_bClockSet ? 0 : LocalNow();
    NoteBegin(world.journal, port.strQueue, dwId);
    return attempt;
  }

  void EndAttempt(const PortPlan& port, Attempt& attempt, std::vector<Attempt>& attempts) {
    attempt.dwEnded = GetTickCount();
    attempt.llLast = m_bClockSet ? 0 : LocalNow();
    NoteEnd(world.journal, port.strQueue, attempt.dwId);
    attempt.bOnPortMonitor = OnPortMonitor(port, attempt.dwId) > (attempt.bOnPortMonitor ? 1u : 0u);
    attempts.push_back(attempt);
  }

  // How often it went to the port monitor.
  std::size_t OnPortMonitor(const PortPlan& port, DWORD dwId) {
    const std::string strStart =
        sim::Format("port StartDocPort %s job=%u", port.strPort.c_str(), static_cast<unsigned>(dwId));
    const auto found = world.journal.Of(strStart);
    return static_cast<std::size_t>(std::count(found.begin(), found.end(), strStart));
  }

  // Another job begins on the port: refused while one is in progress, or else over at once.
  void Intrude(PortPlan& port, DWORD dwId) {
    Attempt attempt = BeginAttempt(port, dwId, 0);
    attempt.result.bStarted = world.spooler.StartDoc(port.hPort, dwId);
    attempt.result.dwError = attempt.result.bStarted ? 0 : GetLastError();
    if (attempt.result.bStarted) world.spooler.EndDoc(port.hPort);
    attempt.result.bDelivered = attempt.result.bStarted;
    EndAttempt(port, attempt, port.intrusions);
  }

  // Another process that has the log's mutex and does not give it back for a while.
  static std::unique_ptr<SideThread> HoldLogMutex(DWORD dwMilliseconds) {
    return std::make_unique<SideThread>([dwMilliseconds] {
      const HANDLE hMutex = CreateMutexW(nullptr, FALSE, L"Global\\Kelvane_SDK_LOGS2");
      if (WaitForSingleObject(hMutex, INFINITE) == WAIT_OBJECT_0) {
        Sleep(dwMilliseconds);
        ReleaseMutex(hMutex);
      }
      CloseHandle(hMutex);
    });
  }

  // A user who puts links to a folder outside in the place of log and archive folders, for a while each.
  std::unique_ptr<SideThread> MakeLinks() {
    CreateDirectoryW(L"C:\\Outside", nullptr);
    CreateDirectoryW(L"C:\\Outside\\PrinterDriver", nullptr);
    sim::World::WriteWholeFile("C:\\Outside\\PrinterDriver\\20261118.log", "somebody's");
    m_outside = sim::World::ArchivedFiles("C:\\Outside");
    for (const PortPlan& port : m_ports)
      if (!port.strRoot.empty()) m_places.push_back(port.strRoot + "\\20261118");
    for (unsigned n = 0; n < 12; ++n)
      m_linkPlan.push_back({m_places[Pick(static_cast<unsigned>(m_places.size()))], Pick(700)});
    return std::make_unique<SideThread>([this] {
      for (const auto& [strPlace, dwWait] : m_linkPlan) {
        if (m_bStopLinks) break;
        Sleep(dwWait);
        const sim::WideString place = sim::Wide(strPlace);
        const sim::WideString aside = sim::Wide(strPlace + ".aside");
        if (w32::TurnIntoLink(place.c_str(), L"C:\\Outside\\PrinterDriver")) {  // an empty one, where it stands
          Sleep(dwWait);
          w32::TurnIntoFolder(place.c_str());
          continue;
        }
        MoveFileW(place.c_str(), aside.c_str());
        if (!CreateSymbolicLinkW(place.c_str(), L"C:\\Outside\\PrinterDriver", SYMBOLIC_LINK_FLAG_DIRECTORY)) continue;
        Sleep(dwWait);
        RemoveDirectoryW(place.c_str());
        MoveFileW(aside.c_str(), place.c_str());
      }
    });
  }

  // Programs and users that have to do with the files: scanners, locks that are not given up for a while, placeholders, clients
  // whose hives refuse, a volume that tells only some names.
  std::unique_ptr<SideThread> MeddleWithFiles() {
    std::vector<std::string> places = {sim::World::LogFolder() + "\\20261118.log"};
    for (const PortPlan& port : m_ports)
      if (!port.strRoot.empty()) places.push_back(port.strRoot + "\\20261118");
    if (m_others() % 4 == 0) w32::RefuseNormalizedNames(true);
    return std::make_unique<SideThread>([this, places] {
      for (int n = 0; n < 40 && !m_bStopLinks; ++n) {
        Sleep(static_cast<DWORD>(m_others() % 300));
        const sim::WideString place = sim::Wide(places[m_others() % places.size()]);
        const bool bThere = GetFileAttributesW(place.c_str()) != INVALID_FILE_ATTRIBUTES;
        switch (m_others() % 5) {
          case 0:
            if (bThere) w32::RefuseSharing(place.c_str(), static_cast<DWORD>(m_others() % 60));
            break;
          case 1:
            if (bThere) w32::HoldOplock(place.c_str());
            Sleep(static_cast<DWORD>(m_others() % 400));
            w32::DropOplocks();
            break;
          case 2:
            if (bThere) w32::SetReparseTag(place.c_str(), 0x9000001A);
            break;
          case 3: sim::SetClient(static_cast<unsigned>(1 + m_others() % 3)); break;
          default: w32::RefuseHive(static_cast<unsigned>(1 + m_others() % 3), m_others() % 2 == 0);
        }
      }
    });
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

  void Check(const PortPlan& port) {
    std::string strArchive;
    for (const auto& [strName, strBytes] : sim::World::ArchivedFiles(port.strRoot)) strArchive += strBytes;
    const std::vector<std::string> strips = world.PrinterOf(port.strPort).Strips();
    std::pair<std::size_t, std::size_t> before;  // strip and position of the job before
    for (const RandomJob& job : port.jobs) {
      verdict.About(sim::Format("job %u on %s", static_cast<unsigned>(job.dwId), port.strPort.c_str()));
      const sim::Job& spooled = *world.spooler.FindJob(job.dwId);
      if (!spooled.bGone) {
        const unsigned nStarted = (job.result.bStarted ? 1u : 0u) + (job.again.bStarted ? 1u : 0u);
        verdict.Equal(spooled.nSentToPrinter, nStarted, "reports of its data");
        verdict.Equal(spooled.nLastPageEjected, nStarted, "reports of its last page");
      }
      verdict.AtMost(job.result.nMostOffers, kMostOffers, "offers of one buffer");
      verdict.Holds(job.result.bStarted || job.result.dwError != 0, "a refusal has a code");
      const bool bOnPortMonitor = OnPortMonitor(port, job.dwId) != 0;
      if (job.IsCancelled() && job.result.bStarted && !bOnPortMonitor) CheckCancelled(port, job);
      if (job.IsCancelled() || !job.result.bDelivered) continue;
      if (!strArchive.empty() && !m_bLinks && !m_bOthers && !m_bTiny) {
        verdict.Equal(CountIn(strArchive, job.strData), 1u, "whole in the archive");
      }
      if (spooled.strDatatype == "RAW" || bOnPortMonitor || m_bTiny)
        continue;  // nobody asks the printer to confirm these
      // Whole exactly once on the last strip that has any of it, behind the job before.
      std::size_t nLast = strips.size();
      for (std::size_t n = 0; n < strips.size(); ++n)
        if (CountIn(strips[n], job.strData.substr(0, 5)) != 0) nLast = n;
      verdict.Holds(nLast < strips.size(), "it is on paper");
      if (nLast == strips.size()) return;
      verdict.Equal(CountIn(strips[nLast], job.strData), 1u, "whole on the last strip that has any of it");
      const std::pair<std::size_t, std::size_t> here(nLast, strips[nLast].find(job.strData));
      verdict.Holds(here >= before, "it stands behind the job before");
      before = here;
    }
  }

  // What the tool reads out of the log beside what the world knows.
  void JudgeStories() {
    std::vector<JobTruth> truths;
    for (const PortPlan& port : m_ports) {
      const std::vector<sim::Journal::Event> events = world.journal.EventsOf(port.strQueue);
      for (const Attempt& attempt : port.intrusions)
        truths.push_back(TruthOf(attempt, port.strQueue, port.strPort, events));
      for (const Attempt& attempt : port.attempts) {
        JobTruth truth = TruthOf(attempt, port.strQueue, port.strPort, events);
        const auto it = std::find_if(port.jobs.begin(), port.jobs.end(),
                                     [&](const RandomJob& job) { return job.dwId == attempt.dwId; });
        if (attempt.nOfJob == 0) {
          truth.bMayBeCancelled = (it->IsCancelled() && !truth.bOnPortMonitor) || it->afterwards == Afterwards::Leaves;
          truth.bMustBeCancelled = truth.bMayBeCancelled && truth.bStarted && truth.dwChanged != 0 &&
                                   !m_bLostWatchers && it->afterwards == Afterwards::Stays &&
                                   truth.dwChanged + 1000 < attempt.dwEnded;
        } else if (truth.ullSent != 0 && truths.back().ullSent != 0) {
          truth.bCameAgain = truths.back().bCameAgain = true;
        }
        truths.push_back(truth);
      }
    }
    const JudgedLog log = {sim::World::LogText(), m_bLogHeld || m_bLinks || m_bOthers, m_bClockSet};
    if (m_dwMask == 0x596) {
      JudgeAtEveryMask(log, truths, static_cast<unsigned>(m_ullSeed), verdict);
    } else {
      JudgeOne(log, truths, verdict);
    }
  }

  // From the moment on when a deletion was noticed nothing is sent, and the device is cleared behind the job.
  void CheckCancelled(const PortPlan& port, const RandomJob& job) {
    const auto id = static_cast<unsigned>(job.dwId);
    const std::string strEnd = sim::Format("over: job %u", id);
    const std::string strSent = sim::Format("SetJob %u sent-to-printer", id);
    const std::string strChange = sim::Format("user changes job %u:", id);
    // What was there for less than a poll may have been seen by nobody; the watch begins behind the wait for
    // the device's lock, before the first transfer.
    if (job.afterwards != Afterwards::Stays) {
      if (m_bLostWatchers || m_bLogHeld) return;
      DWORD dwBegun = 0;
      DWORD dwGone = 0;
      bool bLocking = false;
      for (const sim::Journal::Event& event : world.journal.EventsOf(port.strQueue)) {
        if (event.strText == strEnd) break;
        if (event.strText.starts_with("sdk SDK_SET_LOCK")) bLocking = true;
        if (bLocking && event.strText.starts_with("transfer begins")) {
          dwBegun = std::max(dwBegun, event.dwTime);
          bLocking = false;
        }
        if (event.strText.starts_with(strChange)) {
          dwBegun = std::max(dwBegun, event.dwTime);
          dwGone = event.dwTime + job.dwAfterwards;
        }
      }
      if (dwGone <= dwBegun + kNoticedMs) return;
    }
    DWORD dwLocked = 0;
    DWORD dwNoticed = 0;
    DWORD dwChanged = 0;
    bool bEnding = false;
    bool bMustClear = false;
    std::string strLast;  // of the requests that clear the device
    std::string strBeforeLast;
    for (const sim::Journal::Event& event : world.journal.EventsOf(port.strQueue)) {
      if (event.strText == strEnd) break;
      if (event.strText == strSent) bEnding = true;
      if (event.strText.starts_with("sdk SDK_SET_LOCK")) dwLocked = event.dwTime;
      if (event.strText.starts_with(strChange)) {
        dwChanged = event.dwTime;
        dwNoticed = event.dwTime + kNoticedMs;
        bMustClear = !bEnding && !m_bLostWatchers;  // a query that fails tells nothing
      }
      if (event.strText.starts_with("sdk SDK_CANCEL_IO_EX") || event.strText.starts_with("sdk SDK_SET_RESET")) {
        strBeforeLast = strLast;
        strLast = event.strText;
      }
      if (dwNoticed != 0 && event.strText.starts_with("transfer begins")) {
        verdict.AtMost(event.dwTime, std::max(dwNoticed, dwLocked + kNoticedMs),
                       "time of a transfer after its deletion");
      }
    }
    if (dwChanged != 0) {
      const DWORD dwCall = (m_bLostWatchers ? kLongestTransferMs : 0) + (m_bLogHeld ? kLongestLogWaitMs : 0);
      verdict.AtMost(job.dwEnded, std::max(dwChanged, dwLocked + kLockMs) + kEndsMs + dwCall, "end after its deletion");
    }
    if (!bMustClear) return;
    verdict.Equal(strBeforeLast, "sdk SDK_CANCEL_IO_EX timeout=0", "last but one of the clearing requests");
    verdict.Equal(strLast, "sdk SDK_SET_RESET timeout=5000", "last of the clearing requests");
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
  const bool m_bHostile;     // platform calls fail at random: nothing may crash, hang or leak, and no more is asked for
  DWORD m_dwMask = 0;        // levels that are logged throughout; 0: they change
  const bool m_bLostWatchers;
  const bool m_bLogHeld;
  const bool m_bLinks;
  const bool m_bOthers;
  const bool
      m_bTiny;  // jobs of no bytes to eight, as short as what the printer is asked: only their stories are looked at
  const bool m_bRestarts;   // the spooler prints again what the user restarts
  const bool m_bIntruders;  // jobs are started on ports that are busy
  const bool m_bParts;      // the port monitor takes writes in part, or not at all
  const bool m_bClockSet;   // back, by an hour
  std::vector<PortPlan> m_ports;
  std::string m_strFirstModel;
  std::vector<std::string> m_places = {sim::World::LogFolder(), "C:\\ProgramData\\Kelvane\\Logs"};
  std::vector<std::pair<std::string, DWORD>> m_linkPlan;
  std::map<std::string, std::string> m_outside;
  std::atomic<bool> m_bStopLinks{false};
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
