// Many seeds of random jobs, printer faults, cancels, service stops, refused calls and changed settings on several ports at
// once, some with platform calls that fail at random; and what must hold after each.
#include "tools/lmsim/random_jobs.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <map>
#include <random>

#include "posix/control.h"
#include "sim/beside.h"
#include "sim/world.h"
#include "tools/lmsim/story_judge.h"
#include "tools/lmsim/verdict.h"

using sim::Beside;
using sim::Fault;
using sim::FaultKind;

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

  bool IsCancelled() const { return (dwUserChange & kCancelled) != 0; }
};

struct PortPlan {
  std::string strPort;
  std::string strQueue;
  std::string strRoot;  // of its archive; empty when it has none
  HANDLE hPort = nullptr;
  bool bSettingGoesAway = false;  // "AutoReprint" becomes 0 after the first job
  std::vector<RandomJob> jobs;
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
        m_bHostile(Chance(8)),
        m_bLostWatchers(!m_bHostile && Chance(4)),
        m_bLogHeld(Chance(10)),
        m_bLinks(Chance(6)),
        m_bOthers(m_others() % 8 == 0),
        m_bTiny(m_others() % 8 == 0) {
    w32::SetSeed(ullSeed);
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
    std::vector<std::unique_ptr<Beside>> others;
    if (m_bLogHeld) others.push_back(HoldLogMutex(Pick(100'000)));
    if (m_bLinks) others.push_back(MakeLinks());
    if (m_bOthers) others.push_back(MeddleWithFiles());
    std::vector<std::unique_ptr<Beside>> threads;
    for (PortPlan& port : m_ports) threads.push_back(std::make_unique<Beside>([this, &port] { PrintJobs(port); }));
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
    world.portMonitor.Port(port.strPort).nProtocol = 1;
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
      job.result = pRunning->Join();
      job.dwEnded = GetTickCount();
      world.journal.Add(sim::Format("over: job %u", static_cast<unsigned>(job.dwId)), port.strQueue);
      if (port.bSettingGoesAway && job.result.bStarted) {  // the port keeps what its first job found
        sim::Queue* pQueue = world.spooler.FindQueue(port.strQueue);
        const sim::Guard guard(world.spooler.lock);
        pQueue->data["AutoReprint"] = sim::Spooler::Dword(0);
      }
    }
  }

  // Another process that has the log's mutex and does not give it back for a while.
  static std::unique_ptr<Beside> HoldLogMutex(DWORD dwMilliseconds) {
    return std::make_unique<Beside>([dwMilliseconds] {
      const HANDLE hMutex = CreateMutexW(nullptr, FALSE, L"Global\\Kelvane_SDK_LOGS2");
      if (WaitForSingleObject(hMutex, INFINITE) == WAIT_OBJECT_0) {
        Sleep(dwMilliseconds);
        ReleaseMutex(hMutex);
      }
      CloseHandle(hMutex);
    });
  }

  // A user who puts links to a folder outside in the place of log and archive folders, for a while each.
  std::unique_ptr<Beside> MakeLinks() {
    CreateDirectoryW(L"C:\\Outside", nullptr);
    CreateDirectoryW(L"C:\\Outside\\PrinterDriver", nullptr);
    sim::World::WriteWholeFile("C:\\Outside\\PrinterDriver\\20261118.log", "somebody's");
    m_outside = sim::World::ArchivedFiles("C:\\Outside");
    for (const PortPlan& port : m_ports)
      if (!port.strRoot.empty()) m_places.push_back(port.strRoot + "\\20261118");
    for (unsigned n = 0; n < 12; ++n)
      m_linkPlan.push_back({m_places[Pick(static_cast<unsigned>(m_places.size()))], Pick(700)});
    return std::make_unique<Beside>([this] {
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
  std::unique_ptr<Beside> MeddleWithFiles() {
    std::vector<std::string> places = {sim::World::LogFolder() + "\\20261118.log"};
    for (const PortPlan& port : m_ports)
      if (!port.strRoot.empty()) places.push_back(port.strRoot + "\\20261118");
    if (m_others() % 4 == 0) w32::RefuseNormalizedNames(true);
    return std::make_unique<Beside>([this, places] {
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
    Beside driver([&] {
      const sim::ActAsClient client;
      sim::WideString request = sim::Wide("DO_SETTING_SHARE_PRN__Front");
      DWORD cb = 0;
      for (int n = 0; n < 3; ++n)
        world.spooler.pMonitor->pfnGetPrinterDataFromPort(port.hPort, 0, request.data(), nullptr, 0, nullptr, 0, &cb);
    });
    Sleep(static_cast<DWORD>(m_ullSeed % 3) * 300);
    world.spooler.ClosePort(port.hPort);
  }

  bool Happened(const std::string& strText) {
    const auto found = world.journal.Of(strText);
    return std::find(found.begin(), found.end(), strText) != found.end();
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
        verdict.Equal(spooled.nSentToPrinter, job.result.bStarted ? 1u : 0u, "reports of its data");
        verdict.Equal(spooled.nLastPageEjected, job.result.bStarted ? 1u : 0u, "reports of its last page");
      }
      verdict.AtMost(job.result.nMostOffers, kMostOffers, "offers of one buffer");
      verdict.Holds(job.result.bStarted || job.result.dwError != 0, "a refusal has a code");
      const bool bOnPortMonitor =
          Happened(sim::Format("port StartDocPort %s job=%u", port.strPort.c_str(), static_cast<unsigned>(job.dwId)));
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
      for (const RandomJob& job : port.jobs) {
        const auto id = static_cast<unsigned>(job.dwId);
        JobTruth truth;
        truth.nJob = id;
        truth.strQueue = port.strQueue;
        truth.strPort = port.strPort;
        truth.bStarted = job.result.bStarted;
        truth.bDelivered = job.result.bDelivered;
        truth.dwError = job.result.dwError;
        truth.nBytes = static_cast<std::int64_t>(job.result.ullDelivered);
        truth.bOnPortMonitor = Happened(sim::Format("port StartDocPort %s job=%u", port.strPort.c_str(), id));
        truth.bMayBeCancelled = (job.IsCancelled() && !truth.bOnPortMonitor) || job.afterwards == Afterwards::Leaves;
        bool bEnding = false;
        DWORD dwChanged = 0;
        std::uint64_t ullResent = 0;
        unsigned nRestOfQuestion = 0;
        for (const sim::Journal::Event& event : world.journal.EventsOf(port.strQueue)) {
          unsigned nTaken = 0, nOffered = 0, nTimeout = 0;
          if (event.strText == sim::Format("SetJob %u sent-to-printer", id)) bEnding = true;
          if (event.strText == sim::Format("over: job %u", id)) break;
          if (event.strText.starts_with(sim::Format("user changes job %u:", id))) dwChanged = event.dwTime;
          if (!bEnding) continue;
          if (event.strText.starts_with("sdk SDK_SET_RESET")) ullResent = 0;
          if (std::sscanf(event.strText.c_str(), "sdk send %u/%u timeout=%u", &nTaken, &nOffered, &nTimeout) != 3)
            continue;
          // A question goes on where a part of it was taken.
          if (nTimeout != 10'000 || nOffered != nRestOfQuestion)
            truth.bConfirmed = nTimeout == 10'000 && (nOffered == 6 || nOffered == 2);
          nRestOfQuestion = nTimeout == 10'000 ? nOffered - nTaken : 0;
          if (nTimeout != 10'000) ullResent += nTaken;
          if (nTimeout != 10'000 && ullResent == job.result.ullDelivered) ++truth.nReprints;
        }
        truth.bMustBeCancelled = truth.bMayBeCancelled && job.result.bStarted && dwChanged != 0 && !m_bLostWatchers &&
                                 job.afterwards == Afterwards::Stays && dwChanged + 1000 < job.dwEnded;
        truths.push_back(truth);
      }
    }
    const bool bLinesLost = m_bLogHeld || m_bLinks || m_bOthers;
    if (m_dwMask == 0x596) {
      JudgeAtEveryMask(sim::World::LogText(), truths, bLinesLost, static_cast<unsigned>(m_ullSeed), verdict);
    } else {
      JudgeOne(sim::World::LogText(), truths, bLinesLost, verdict);
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
  const bool m_bHostile;     // platform calls fail at random: nothing may crash, hang or leak, and no more is asked for
  DWORD m_dwMask = 0;        // levels that are logged throughout; 0: they change
  const bool m_bLostWatchers;
  const bool m_bLogHeld;
  const bool m_bLinks;
  const bool m_bOthers;
  const bool
      m_bTiny;  // jobs of no bytes to eight, as short as what the printer is asked: only their stories are looked at
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
