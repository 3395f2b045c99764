// Many seeds of random jobs, printer faults, cancels, service stops, refused calls and changed settings on several ports at
// once, some with platform calls that fail at random; and what must hold after each. A failing seed prints how to replay it.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <random>

#include "tests/support/world_test.h"

using namespace testing_support;
using sim::Fault;
using sim::FaultKind;

namespace {

constexpr DWORD kCancelled = JOB_STATUS_DELETING | JOB_STATUS_DELETED | JOB_STATUS_RESTART;
// A deletion is noticed within one poll of the job's watcher; the rest is for the transfer that is under way.
constexpr DWORD kNoticedMs = 600;

// No job takes longer than its faults and its data need, by far.
constexpr DWORD kLongestRunMs = 3'600'000;

struct RandomJob {
  DWORD dwId = 0;
  std::string strData;
  DWORD dwUserChange = 0;  // what the user does to it: status bits
  DWORD dwChangeAfter = 0;
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

std::uint64_t FromEnvironment(const char* pszName, std::uint64_t ullDefault) {
  const char* psz = std::getenv(pszName);
  return psz != nullptr ? std::strtoull(psz, nullptr, 10) : ullDefault;
}

std::size_t CountIn(const std::string& strText, const std::string& strPart) {
  std::size_t n = 0;
  for (std::size_t nAt = strText.find(strPart); nAt != std::string::npos; nAt = strText.find(strPart, nAt + 1)) ++n;
  return n;
}

class Simulation {
 public:
  explicit Simulation(std::uint64_t ullSeed) : m_random(ullSeed), m_ullSeed(ullSeed), m_bHostile(Chance(8)) {
    w32::SetSeed(ullSeed);
    world.Attach();
    world.SetLogLevel(Chance(4) ? 0x596 : 0x002);
  }

  void Run() {
    const bool bSharedDevice = Chance(3);  // a fourth queue prints on the first one's printer
    for (unsigned n = 0; n < (bSharedDevice ? 4u : 3u); ++n) BuildPort(n);
    if (Chance(3)) world.library.SetPartialSends(200 + Pick(900));
    if (Chance(3)) {  // calls that the library refuses, whichever port they meet
      constexpr const char* kRequests[] = {"send", "SDK_SET_LOCK", "GET_RAW_DATA_RESP", "GET_RAW_DATA_CLR"};
      world.library.Answer(kRequests[Pick(4)], Chance(2) ? ERROR_GEN_FAILURE : ERROR_TIMEOUT, 1 + Pick(3));
    }
    w32::ResetFaults();
    if (m_bHostile) w32::FailRandomly(1 + Pick(4));
    struct Start {
      Simulation* pSimulation;
      PortPlan* pPort;
    };
    std::vector<Start> starts;
    std::vector<HANDLE> threads;
    for (PortPlan& port : m_ports) starts.push_back({this, &port});
    for (Start& start : starts) {
      threads.push_back(CreateThread(
          nullptr, 0,
          [](LPVOID p) -> DWORD {
            auto& s = *static_cast<Start*>(p);
            s.pSimulation->PrintJobs(*s.pPort);
            return 0;
          },
          &start, 0, nullptr));
    }
    if (!bSharedDevice && Chance(3)) {  // the service goes and comes between the jobs
      Sleep(Pick(4000));
      world.services.dwState = SERVICE_STOPPED;
      Sleep(Pick(4000));
      world.services.dwState = SERVICE_RUNNING;
    }
    for (unsigned n = Pick(4); n > 0; --n) {  // an administrator changes the settings
      Sleep(Pick(5000));
      world.SetMachineDword("SOFTWARE\\Kelvane\\PrinterDriver", "OpenWithStartDoc", Pick(2));
      world.SetLogLevel(Chance(2) ? 0x596 : 0x002);
    }
    for (const HANDLE hThread : threads) {
      if (WaitForSingleObject(hThread, kLongestRunMs) != WAIT_OBJECT_0) Hang();
      CloseHandle(hThread);
    }
    w32::ResetFaults();
    Sleep(60'000);  // the paper comes out
    for (PortPlan& port : m_ports)
      if (!m_bHostile) Check(port);
    for (PortPlan& port : m_ports) world.spooler.ClosePort(port.hPort);
    if (!m_bHostile) {
      EXPECT_EQ(world.library.HeldLocks(), 0u);
      EXPECT_EQ(world.library.OpenSessions(), 0u);
      EXPECT_EQ(world.journal.Of("violation"), std::vector<std::string>());
    }
    for (PortPlan& port : m_ports)
      if (!port.strRoot.empty()) sim::World::DeleteTree(port.strRoot);
  }

  sim::World world;

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
          sim::Format("<%u.%u>", n, nJob) + Receipt(1 + Pick(12'000), static_cast<char>('A' + Pick(26))) + "</>";
      job.dwId = world.spooler.NewJob(port.strQueue, Chance(5) ? "RAW" : "TEXT");
      if (Chance(4)) {
        constexpr DWORD kChanges[] = {JOB_STATUS_DELETING, JOB_STATUS_DELETING | JOB_STATUS_DELETED, JOB_STATUS_RESTART,
                                      JOB_STATUS_PAUSED};
        job.dwUserChange = kChanges[Pick(4)];
        job.dwChangeAfter = Pick(Chance(2) ? 1000 : 9000);
      }
      if (Chance(2)) {
        constexpr FaultKind kKinds[] = {FaultKind::PaperEnd,     FaultKind::CoverOpen,   FaultKind::OffLine,
                                        FaultKind::PowerCycle,   FaultKind::BlankStatus, FaultKind::Garbage,
                                        FaultKind::SplitAnswers, FaultKind::Silence,     FaultKind::WrongNumber,
                                        FaultKind::LateAnswer,   FaultKind::Chatter};
        FaultKind kind = kKinds[Pick(11)];
        // Execution responses of one byte carry no number: an early one cannot be told from the right one.
        if (kind == FaultKind::LateAnswer && bPrinterOneByte) kind = FaultKind::Garbage;
        world.PrinterOf(port.strPort)
            .Plan({kind, ullAt + Pick(static_cast<unsigned>(job.strData.size())), 200 + Pick(6000)});
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
        const w32::FaultsOn faults(m_bHostile);  // for the job's thread and its watcher
        pRunning = world.spooler.PrintAsync(port.hPort, job.dwId, job.strData, options);
      }
      if (job.dwUserChange != 0 && !pRunning->Wait(job.dwChangeAfter))
        world.spooler.SetStatus(job.dwId, job.dwUserChange);
      job.result = pRunning->Join();
      if (port.bSettingGoesAway && job.result.bStarted) {  // the port keeps what its first job found
        sim::Queue* pQueue = world.spooler.FindQueue(port.strQueue);
        const sim::Guard guard(world.spooler.lock);
        pQueue->data["AutoReprint"] = sim::Spooler::Dword(0);
      }
    }
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
      const sim::Job& spooled = *world.spooler.FindJob(job.dwId);
      EXPECT_EQ(spooled.nSentToPrinter, job.result.bStarted ? 1u : 0u) << "job " << job.dwId;
      EXPECT_EQ(spooled.nLastPageEjected, job.result.bStarted ? 1u : 0u) << "job " << job.dwId;
      EXPECT_TRUE(job.result.bStarted || job.result.dwError != 0) << "job " << job.dwId;
      const bool bOnPortMonitor =
          Happened(sim::Format("port StartDocPort %s job=%u", port.strPort.c_str(), static_cast<unsigned>(job.dwId)));
      if (job.IsCancelled() && job.result.bStarted && !bOnPortMonitor) CheckCancelled(port, job);
      if (job.IsCancelled() || !job.result.bDelivered) continue;
      if (!strArchive.empty()) {
        EXPECT_EQ(CountIn(strArchive, job.strData), 1u) << "job " << job.dwId << " in the archive";
      }
      if (spooled.strDatatype == "RAW" || bOnPortMonitor) continue;  // nobody asks the printer to confirm these
      // Whole exactly once on the last strip that has any of it, behind the job before.
      std::size_t nLast = strips.size();
      for (std::size_t n = 0; n < strips.size(); ++n)
        if (CountIn(strips[n], job.strData.substr(0, 5)) != 0) nLast = n;
      ASSERT_LT(nLast, strips.size()) << "job " << job.dwId << " is not on paper";
      EXPECT_EQ(CountIn(strips[nLast], job.strData), 1u) << "job " << job.dwId << " on " << port.strPort;
      const std::pair<std::size_t, std::size_t> here(nLast, strips[nLast].find(job.strData));
      EXPECT_GE(here, before) << "job " << job.dwId << " on " << port.strPort;
      before = here;
    }
  }

  // From the moment on when a deletion was noticed nothing is sent, and the device is cleared behind the job.
  void CheckCancelled(const PortPlan& port, const RandomJob& job) {
    const auto id = static_cast<unsigned>(job.dwId);
    const std::string strEnd = sim::Format("SetJob %u last-page-ejected", id);
    const std::string strSent = sim::Format("SetJob %u sent-to-printer", id);
    const std::string strChange = sim::Format("user changes job %u:", id);
    DWORD dwLocked = 0;
    DWORD dwNoticed = 0;
    bool bEnding = false;
    bool bMustClear = false;
    std::string strLast;  // of the requests that clear the device
    std::string strBeforeLast;
    for (const sim::Journal::Event& event : world.journal.EventsOf(port.strQueue)) {
      if (event.strText == strEnd) break;
      if (event.strText == strSent) bEnding = true;
      if (event.strText.starts_with("sdk SDK_SET_LOCK")) dwLocked = event.dwTime;
      if (event.strText.starts_with(strChange)) {
        dwNoticed = event.dwTime + kNoticedMs;
        bMustClear = !bEnding;
      }
      if (event.strText.starts_with("sdk SDK_CANCEL_IO_EX") || event.strText.starts_with("sdk SDK_SET_RESET")) {
        strBeforeLast = strLast;
        strLast = event.strText;
      }
      if (dwNoticed != 0 && event.strText.starts_with("transfer begins")) {
        EXPECT_LE(event.dwTime, std::max(dwNoticed, dwLocked + kNoticedMs)) << "deleted job " << job.dwId;
      }
    }
    if (!bMustClear) return;
    EXPECT_EQ(strBeforeLast, "sdk SDK_CANCEL_IO_EX timeout=0") << "deleted job " << job.dwId;
    EXPECT_EQ(strLast, "sdk SDK_SET_RESET timeout=5000") << "deleted job " << job.dwId;
  }

  // Threads that never end cannot be left behind: the process ends with the story so far.
  [[noreturn]] void Hang() {
    for (const std::string& strEntry : world.journal.Entries()) std::printf("%s\n", strEntry.c_str());
    for (PortPlan& port : m_ports)
      std::printf("%s: %s\n", port.strPort.c_str(), world.PrinterOf(port.strPort).State().c_str());
    if (std::getenv("LM_SHOW") != nullptr) std::printf("%s\n", sim::World::LogText().c_str());
    std::printf("a job never ends; replay: ./run simulate --seeds 1 --first %llu\n",
                static_cast<unsigned long long>(m_ullSeed));
    std::fflush(stdout);
    std::abort();
  }

  std::mt19937_64 m_random;
  const std::uint64_t m_ullSeed;
  const bool m_bHostile;  // platform calls fail at random: nothing may crash, hang or leak, and no more is asked for
  std::vector<PortPlan> m_ports;
  std::string m_strFirstModel;
};

void RunSeed(std::uint64_t ullSeed) {
  CleanMachine();
  const w32::Balance before = w32::CurrentBalance();
  {
    Simulation simulation(ullSeed);
    simulation.Run();
    if (::testing::Test::HasFailure() && std::getenv("LM_SHOW") != nullptr) {
      for (const std::string& strEntry : simulation.world.journal.Entries()) std::printf("%s\n", strEntry.c_str());
      std::printf("%s\n", sim::World::LogText().c_str());
    }
  }
  EXPECT_EQ(Leaks(before), "");
}

// Runs a seed in a process of its own, so that it begins like every other and a crash names its seed.
bool SeedPasses(std::uint64_t ullSeed) {
  std::fflush(stdout);
  const pid_t nChild = fork();
  if (nChild == 0) {
    RunSeed(ullSeed);
    std::fflush(stdout);
    _exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  int nStatus = -1;
  return nChild > 0 && waitpid(nChild, &nStatus, 0) == nChild && nStatus == 0;
}

// Four shares of the seeds, so that the test runner can use every core.
class Seeds : public ::testing::TestWithParam<int> {};

TEST_P(Seeds, RandomJobs) {
  w32::SandboxRoot();  // the children share it
  constexpr std::uint64_t kShares = 4;
  const std::uint64_t ullFirst = FromEnvironment("LM_FIRST_SEED", 1);
  const std::uint64_t ullEnd = ullFirst + FromEnvironment("LM_SEEDS", 2000);
  for (std::uint64_t ullSeed = ullFirst + static_cast<std::uint64_t>(GetParam()); ullSeed < ullEnd;
       ullSeed += kShares) {
    ASSERT_TRUE(SeedPasses(ullSeed)) << "replay: ./run simulate --seeds 1 --first " << ullSeed;
  }
}
INSTANTIATE_TEST_SUITE_P(Simulation, Seeds, ::testing::Range(0, 4));

// The scheduler's seed alone: the same four jobs, in a thousand orders of events, always end the same way.
TEST(Simulation, FourPortsPrintAtOnceUnderManySeeds) {
  for (std::uint64_t ullSeed = 1; ullSeed <= 1000; ++ullSeed) {
    CleanMachine();
    w32::SetSeed(ullSeed);
    const w32::Balance before = w32::CurrentBalance();
    {
      sim::World world;
      world.Attach();
      world.services.dwState = SERVICE_STOPPED;
      std::vector<HANDLE> ports;
      std::vector<std::unique_ptr<sim::Spooler::Running>> jobs;
      for (int n = 0; n < 4; ++n) {
        world.AddPrinter(sim::Format("Till %d", n), sim::Format("COM%d", n), kModel);
        ports.push_back(world.spooler.OpenPort(sim::Format("COM%d", n), sim::Format("Till %d", n)));
      }
      sim::PrintOptions options;
      options.cbChunk = 1000;
      for (int n = 0; n < 4; ++n)
        jobs.push_back(world.spooler.PrintAsync(ports[static_cast<std::size_t>(n)],
                                                world.spooler.NewJob(sim::Format("Till %d", n), "TEXT"),
                                                Receipt(3000, static_cast<char>('A' + n)), options));
      for (auto& pJob : jobs) ASSERT_TRUE(pJob->Join().bDelivered);
      for (int n = 0; n < 4; ++n) {
        EXPECT_EQ(world.portMonitor.Port(sim::Format("COM%d", n)).strDelivered,
                  Receipt(3000, static_cast<char>('A' + n)));
        EXPECT_EQ(world.spooler.FindJob(static_cast<DWORD>(n + 1))->nLastPageEjected, 1u);
        world.spooler.ClosePort(ports[static_cast<std::size_t>(n)]);
      }
      EXPECT_EQ(world.journal.Count("violation"), 0u);
    }
    EXPECT_EQ(Leaks(before), "");
    ASSERT_FALSE(HasFailure()) << "seed " << ullSeed;
  }
}

}  // namespace
