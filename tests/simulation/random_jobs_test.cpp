// Many seeds of random jobs, printer faults, cancels, service stops and refused calls on several ports at once, and what
// must hold after each. A failing seed prints the command that replays it.
#include <cstdlib>
#include <random>

#include "tests/support/world_test.h"

using namespace testing_support;
using sim::Fault;
using sim::FaultKind;

namespace {

constexpr int kPorts = 3;

struct RandomJob {
  DWORD dwId = 0;
  std::string strData;
  bool bDeleted = false;
  sim::PrintResult result;
};

struct PortPlan {
  std::string strPort;
  std::string strQueue;
  HANDLE hPort = nullptr;
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
  explicit Simulation(std::uint64_t ullSeed) : m_random(ullSeed) {
    w32::SetSeed(ullSeed);
    world.Attach();
    world.SetLogLevel(Chance(4) ? 0x596 : 0x002);
  }

  void Run() {
    for (int n = 0; n < kPorts; ++n) BuildPort(n);
    if (Chance(3)) world.library.SetPartialSends(200 + Pick(900));
    if (Chance(3)) {  // calls that the library refuses, whichever port they meet
      constexpr const char* kRequests[] = {"send", "SDK_SET_LOCK", "GET_RAW_DATA_RESP", "GET_RAW_DATA_CLR"};
      world.library.Answer(kRequests[Pick(4)], Chance(2) ? ERROR_GEN_FAILURE : ERROR_TIMEOUT, 1 + Pick(3));
    }
    struct Start {
      Simulation* pSimulation;
      PortPlan* pPort;
    };
    std::vector<Start> starts;
    std::vector<HANDLE> threads;
    for (PortPlan& port : m_ports) starts.push_back({this, &port});
    for (Start& start : starts) {
      threads.push_back(CreateThread(nullptr, 0, [](LPVOID p) -> DWORD {
        auto& s = *static_cast<Start*>(p);
        s.pSimulation->PrintJobs(*s.pPort);
        return 0;
      }, &start, 0, nullptr));
    }
    if (Chance(3)) {  // the service goes and comes between the jobs
      Sleep(Pick(4000));
      world.services.dwState = SERVICE_STOPPED;
      Sleep(Pick(4000));
      world.services.dwState = SERVICE_RUNNING;
    }
    for (const HANDLE hThread : threads) {
      WaitForSingleObject(hThread, INFINITE);
      CloseHandle(hThread);
    }
    Sleep(60'000);  // the paper comes out
    for (PortPlan& port : m_ports) Check(port);
    for (PortPlan& port : m_ports) world.spooler.ClosePort(port.hPort);
    EXPECT_EQ(world.library.HeldLocks(), 0u);
    EXPECT_EQ(world.library.OpenSessions(), 0u);
    EXPECT_EQ(world.journal.Count("violation: sent"), 0u);
    for (int n = 0; n < kPorts; ++n) sim::World::DeleteTree(sim::Format("C:\\Archive%d", n));
  }

  sim::World world;

 private:
  unsigned Pick(unsigned nBelow) { return static_cast<unsigned>(m_random() % nBelow); }
  bool Chance(unsigned nOneIn) { return Pick(nOneIn) == 0; }

  // Everything random is drawn before the threads start, so that it depends on the seed alone.
  void BuildPort(int n) {
    PortPlan port;
    port.strPort = sim::Format(n == 0 ? "USB00%d" : n == 1 ? "COM%d" : "IP_%d", n + 1);
    port.strQueue = sim::Format("Till %d", n);
    const bool bOneByte = Chance(3);
    sim::Queue& queue = world.AddPrinter(port.strQueue, port.strPort, bOneByte ? kOneByteModel : kModel,
                                         {.bOneByteStatus = bOneByte, .cbBuffer = 512 + Pick(8000), .dwBytesPerSecond = 2000 + Pick(30'000)});
    world.portMonitor.Port(port.strPort).nProtocol = 1;
    queue.data["AutoReprint"] = sim::Spooler::Dword(1);
    if (Chance(2)) {
      queue.data["JobFilePath"] = sim::Spooler::Text(sim::Format("C:\\Archive%d", n));
      queue.data["JobSettingFlags"] = sim::Spooler::Dword(1);
    }
    std::uint64_t ullAt = 0;
    const unsigned nJobs = 1 + Pick(3);
    for (unsigned nJob = 0; nJob < nJobs; ++nJob) {
      RandomJob job;
      job.strData = sim::Format("<%d.%u>", n, nJob) + Receipt(1 + Pick(12'000), static_cast<char>('A' + Pick(26))) + "</>";
      job.dwId = world.spooler.NewJob(port.strQueue, Chance(5) ? "RAW" : "TEXT");
      job.bDeleted = Chance(5);
      if (Chance(2)) {
        constexpr FaultKind kKinds[] = {FaultKind::PaperEnd,    FaultKind::CoverOpen, FaultKind::OffLine,
                                        FaultKind::PowerCycle,  FaultKind::BlankStatus, FaultKind::Garbage,
                                        FaultKind::SplitAnswers, FaultKind::Silence,  FaultKind::WrongNumber,
                                        FaultKind::LateAnswer};
        world.PrinterOf(port.strPort).Plan({kKinds[Pick(10)], ullAt + Pick(static_cast<unsigned>(job.strData.size())), 200 + Pick(6000)});
      }
      ullAt += job.strData.size();
      port.jobs.push_back(job);
    }
    m_deleteAfter.push_back(Pick(3000));
    port.hPort = world.spooler.OpenPort(port.strPort, port.strQueue);
    m_ports.push_back(port);
  }

  void PrintJobs(PortPlan& port) {
    const auto nPort = static_cast<std::size_t>(&port - m_ports.data());
    for (RandomJob& job : port.jobs) {
      sim::PrintOptions options;
      options.cbChunk = 1000 + static_cast<DWORD>(nPort) * 700;
      auto pRunning = world.spooler.PrintAsync(port.hPort, job.dwId, job.strData, options);
      if (job.bDeleted) {
        Sleep(m_deleteAfter[nPort]);
        world.spooler.SetStatus(job.dwId, JOB_STATUS_DELETING);
      }
      job.result = pRunning->Join();
    }
  }

  // All that the port's archive holds, in the order of the jobs.
  std::string ArchiveOf(const PortPlan& port) {
    const std::string strRoot = sim::Format("C:\\Archive%d", static_cast<int>(&port - m_ports.data()));
    std::string strAll;
    for (const std::string& strDay : sim::World::ListFolder(strRoot))
      for (const std::string& strName : sim::World::ListFolder(strRoot + "\\" + strDay)) {
        std::string strBytes;
        sim::World::ReadWholeFile(strRoot + "\\" + strDay + "\\" + strName, strBytes);
        strAll += strBytes;
      }
    return strAll;
  }

  void Check(const PortPlan& port) {
    const std::string strArchive = ArchiveOf(port);
    const std::vector<std::string> strips = world.PrinterOf(port.strPort).Strips();
    for (const RandomJob& job : port.jobs) {
      const sim::Job& spooled = *world.spooler.FindJob(job.dwId);
      if (job.result.bStarted) {
        EXPECT_EQ(spooled.nSentToPrinter, 1u) << "job " << job.dwId;
        EXPECT_EQ(spooled.nLastPageEjected, 1u) << "job " << job.dwId;
      }
      if (!strArchive.empty() && job.result.bDelivered && !job.bDeleted) {
        EXPECT_EQ(CountIn(strArchive, job.strData), 1u) << "job " << job.dwId << " in the archive";
      }
      const bool bUnconfirmed = spooled.strDatatype == "RAW" || world.journal.Count("port StartDocPort") != 0;
      if (job.bDeleted || !job.result.bDelivered || bUnconfirmed) continue;
      // Whole exactly once on the last strip that has any of it.
      std::size_t nLast = strips.size();
      for (std::size_t n = 0; n < strips.size(); ++n)
        if (CountIn(strips[n], job.strData.substr(0, 5)) != 0) nLast = n;
      ASSERT_LT(nLast, strips.size()) << "job " << job.dwId << " is not on paper";
      EXPECT_EQ(CountIn(strips[nLast], job.strData), 1u) << "job " << job.dwId << " on " << port.strPort;
    }
  }

  std::mt19937_64 m_random;
  std::vector<PortPlan> m_ports;
  std::vector<DWORD> m_deleteAfter;
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

// Four shares of the seeds, so that the test runner can use every core.
class Seeds : public ::testing::TestWithParam<int> {};

TEST_P(Seeds, RandomJobs) {
  constexpr std::uint64_t kShares = 4;
  const std::uint64_t ullFirst = FromEnvironment("LM_FIRST_SEED", 1);
  const std::uint64_t ullEnd = ullFirst + FromEnvironment("LM_SEEDS", 2000);
  for (std::uint64_t ullSeed = ullFirst + static_cast<std::uint64_t>(GetParam()); ullSeed < ullEnd; ullSeed += kShares) {
    RunSeed(ullSeed);
    ASSERT_FALSE(HasFailure()) << "replay: ./run simulate --seeds 1 --first " << ullSeed;
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
        jobs.push_back(world.spooler.PrintAsync(ports[static_cast<std::size_t>(n)], world.spooler.NewJob(sim::Format("Till %d", n), "TEXT"),
                                                Receipt(3000, static_cast<char>('A' + n)), options));
      for (auto& pJob : jobs) ASSERT_TRUE(pJob->Join().bDelivered);
      for (int n = 0; n < 4; ++n) {
        EXPECT_EQ(world.portMonitor.Port(sim::Format("COM%d", n)).strDelivered, Receipt(3000, static_cast<char>('A' + n)));
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
