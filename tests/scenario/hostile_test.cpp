// A machine that works against the monitor: watchers that cannot start, cancels that are taken back, requests beside closes,
// clients that cannot be impersonated, a log that somebody holds, a device that refuses everything.
#include <atomic>

#include "monitor/records.h"
#include "tests/support/world_test.h"

using namespace testing_support;
using sim::FaultKind;
using sim::World;

namespace {

class Hostile : public WorldTest {
 protected:
  Hostile() {
    world().AddPrinter("Till", "USB001", kModel, {.cbBuffer = 4096, .dwBytesPerSecond = 20'000}).data["AutoReprint"] =
        sim::Spooler::Dword(1);
    m_hPort = Open("USB001");
  }
  std::unique_ptr<sim::Spooler::Running> Start(const std::string& strData, const std::string& strDatatype = "TEXT") {
    m_dwJob = world().spooler.NewJob("Till", strDatatype);
    return world().spooler.PrintAsync(m_hPort, m_dwJob, strData);
  }
  sim::Printer& Printer() { return world().PrinterOf("USB001"); }
  HANDLE m_hPort = nullptr;
  DWORD m_dwJob = 0;
};

TEST_F(Hostile, CancelThatIsTakenBackNeverStopsTheSpooler) {
  Printer().Plan({FaultKind::PaperEnd, 0, 20'000});
  const auto pJob = Start(Receipt(3000));
  Sleep(1200);  // it waits for paper, nothing is cached
  world().spooler.SetStatus(m_dwJob, JOB_STATUS_RESTART);
  while (world().journal.Count("sdk SDK_CANCEL_IO_EX") == 0) Sleep(1);  // until the watcher has seen it
  world().spooler.ClearStatus(m_dwJob, JOB_STATUS_RESTART);
  EXPECT_TRUE(pJob->Wait(5000));
  EXPECT_TRUE(pJob->Join().bDelivered);  // taken and dropped
  EXPECT_EQ(pJob->result.nMostOffers, 0u);
  EXPECT_EQ(World::LogCount("Cancel job [pszPortName:0xUSB001"), 1u);
  EXPECT_EQ(Printer().LastStrip(), "");
  EXPECT_EQ(world().journal.Count("sdk SDK_SET_RESET"), 1u);  // what was seen once holds
  EXPECT_TRUE(PrintOn(m_hPort, Receipt(500, 'N'), "TEXT").bDelivered);
  EXPECT_EQ(Printer().LastStrip(), Receipt(500, 'N'));
}

TEST_F(Hostile, WriteThatSawAPassingCancelIsRemembered) {
  sim::PrintOptions options;
  options.cbChunk = 1000;
  options.onProgress = [&](std::uint64_t ullDone) {
    if (ullDone == 1000) world().spooler.SetStatus(LastJob(), JOB_STATUS_RESTART);
    if (ullDone == 2000) world().spooler.ClearStatus(LastJob(), JOB_STATUS_RESTART);
  };
  EXPECT_TRUE(PrintOn(m_hPort, Receipt(3000), "TEXT", options).bDelivered);
  EXPECT_EQ(Printer().Responses().nCount, 0u);                // a job that has a hole is not confirmed …
  EXPECT_EQ(world().journal.Count("sdk SDK_SET_RESET"), 1u);  // … and the device is cleared behind it
}

TEST_F(Hostile, JobThatIsDeletedAtItsEndIsNotConfirmed) {
  const auto options = AtByte(900, [&] { world().spooler.SetStatus(LastJob(), JOB_STATUS_DELETING); });
  EXPECT_TRUE(PrintOn(m_hPort, Receipt(900), "TEXT", options).bDelivered);
  EXPECT_EQ(world().journal.Count("transfer begins timeout=10000"), 1u);  // that before the first byte
  EXPECT_EQ(world().journal.Count("sdk SDK_SET_RESET"), 1u);
}

TEST_F(Hostile, RequestBesideACloseIsServedToItsEndAndALaterOneRefused) {
  BOOL bForwarded = FALSE;
  SideThread driver([&] {
    const sim::ActAsClient client;
    sim::WideString request = sim::Wide("DO_SETTING_SHARE_PRN__Front");
    DWORD cb = 0;
    bForwarded =
        world().spooler.pMonitor->pfnGetPrinterDataFromPort(m_hPort, 0, request.data(), nullptr, 0, nullptr, 0, &cb);
  });
  Sleep(100);  // it pauses between its two steps
  EXPECT_TRUE(world().spooler.ClosePort(m_hPort));
  EXPECT_TRUE(driver.Ends(0));
  EXPECT_TRUE(bForwarded);
  EXPECT_EQ(world().spooler.FindQueue("Till")->strShare, "Front");
  EXPECT_FALSE(
      world().spooler.pMonitor->pfnGetPrinterDataFromPort(m_hPort, 1, nullptr, nullptr, 0, nullptr, 0, nullptr));
  EXPECT_EQ(GetLastError(), 87u);
  EXPECT_FALSE(world().spooler.ClosePort(m_hPort));  // nor is a port closed twice
  m_hPort = nullptr;
}

TEST_F(Hostile, LogThatAnotherProcessHoldsCostsAMinuteAndALine) {
  const HANDLE hMutex = CreateMutexW(nullptr, FALSE, L"Global\\Kelvane_SDK_LOGS2");
  std::atomic<bool> bStop{false};
  SideThread holder([&] {
    WaitForSingleObject(hMutex, INFINITE);
    while (!bStop) Sleep(100);
    EXPECT_TRUE(ReleaseMutex(hMutex));
  });
  Sleep(50);
  DWORD dwStart = GetTickCount();
  EXPECT_TRUE(PrintOn(m_hPort, Receipt(500), "TEXT").bDelivered);
  EXPECT_LT(GetTickCount() - dwStart, 130'000u);  // the first lines of the job's thread and of its watcher wait
  dwStart = GetTickCount();
  EXPECT_TRUE(PrintOn(m_hPort, Receipt(500, 'B'), "TEXT").bDelivered);
  EXPECT_LT(GetTickCount() - dwStart, 5'000u);
  EXPECT_EQ(Printer().LastStrip(), Receipt(500) + Receipt(500, 'B'));
  bStop = true;
  holder.Join();
  EXPECT_TRUE(PrintOn(m_hPort, Receipt(500, 'C'), "TEXT").bDelivered);
  EXPECT_EQ(World::LogCount("<=== Log output here failed"), 1u);
  EXPECT_GT(World::LogCount("JobId:3"), 0u);
  CloseHandle(hMutex);
}

#ifndef _WIN32
std::string g_strAsserts;

TEST_F(Hostile, AssertsNameTheRoutineThatTheSpoolerCalled) {
  w32::SetDebugSink([](const std::string& strText) { g_strAsserts += strText; });
  BYTE byData = 0;
  DWORD cbWritten = 0;
  EXPECT_FALSE(world().spooler.pMonitor->pfnWritePort(m_hPort, &byData, 1, &cbWritten));  // no job is under way
  w32::SetDebugSink(nullptr);
  EXPECT_NE(g_strAsserts.find("/ MonWritePort\r\n"), std::string::npos);
  EXPECT_EQ(g_strAsserts.find("IsSharedPrinter"), std::string::npos);
}

TEST_F(Hostile, DeletedJobWithoutAWatcherEndsAtOnceWhereverItIs) {
  const struct {
    const char* pszWhat;
    const char* pszApi;  // what fails
    unsigned nSkip;
    std::uint64_t ullCoverOpensAt;
  } cases[] = {
      // The first CreateThread is that of the job itself; GetJobW is asked for sizes and contents, by whom is told there.
      {"never started, before the first byte", "CreateThread", 1, 0},
      {"never started, at the job end", "CreateThread", 1, 2500},
      {"ended on an error", "GetJobW", 7, 2500},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.pszWhat);
    Printer().Plan({FaultKind::CoverOpen, Printer().BytesProcessed() + one.ullCoverOpensAt, 3'600'000});
    std::unique_ptr<sim::Spooler::Running> pJob;
    {
      const w32::FaultsOn faults;
      w32::FailCalls(one.pszApi, one.pszApi[0] == 'C' ? 1 : 40, one.nSkip);
      pJob = Start(Receipt(3000));
    }
    Sleep(20'000);
    w32::ResetFaults();
    EXPECT_FALSE(pJob->Wait(0));
    world().spooler.SetStatus(m_dwJob, JOB_STATUS_DELETING);
    EXPECT_TRUE(pJob->Wait(1000));
    world().spooler.SetStatus(m_dwJob, JOB_STATUS_DELETED);
    Printer().Plan({FaultKind::PowerCycle, 0, 10});
    Sleep(3'600'000);
    pJob->Join();
  }
}

TEST_F(Hostile, WatcherFollowsADocumentWhoseNameGrows) {
  Printer().Plan({FaultKind::CoverOpen, 0, 3'600'000});
  const auto pJob = Start(Receipt(3000));
  Sleep(2000);
  {
    sim::Job* pSpooled = world().spooler.FindJob(m_dwJob);
    const sim::Guard guard(world().spooler.lock);
    pSpooled->strDocument = std::string(200, 'n');
  }
  Sleep(2000);
  world().spooler.SetStatus(m_dwJob, JOB_STATUS_DELETING);
  EXPECT_TRUE(pJob->Wait(1100));
  EXPECT_EQ(World::LogCount("ThreadJobCanMon"), 2u);  // its start and the cancel
  EXPECT_EQ(World::LogCount("GetJob [err:"), 0u);
}

// Whatever cannot be done in the client's name is left out; what the printer took counts.
TEST_F(Hostile, ClientThatCannotBeImpersonatedAgainLosesTheArchiveAndNothingElse) {
  sim::Queue& queue = *world().spooler.FindQueue("Till");
  queue.data["JobFilePath"] = sim::Spooler::Text("C:\\Jobs");
  queue.data["JobSettingFlags"] = sim::Spooler::Dword(1);
  CreateDirectoryW(L"C:\\Jobs", nullptr);
  CreateDirectoryW(L"C:\\Jobs\\Old", nullptr);
  w32::AdvanceClock(72 * 3'600'000);
  // From the job's start on, from its first write on, and at its end alone.
  for (const unsigned nSucceed : {0u, 1u, 2u}) {
    std::unique_ptr<sim::Spooler::Running> pJob;
    {
      const w32::FaultsOn faults;
      w32::FailCalls("ImpersonatePrinterClient", 100, nSucceed);
      pJob = Start(Receipt(500));
    }
    EXPECT_TRUE(pJob->Join().bDelivered);
    w32::ResetFaults();
    EXPECT_EQ(World::ListFolder("C:\\Jobs").size(), nSucceed == 0 ? 1u : 2u);  // a job's start makes the day's folder
    EXPECT_EQ(World::ArchivedFiles("C:\\Jobs").size(), nSucceed == 2 ? 1u : 0u);
    EXPECT_TRUE(Exists("C:\\Jobs\\Old"));
  }
  EXPECT_EQ(Printer().Strips(), std::vector<std::string>{Receipt(500) + Receipt(500) + Receipt(500)});
  EXPECT_GE(World::LogCount("ImpersonatePrinterClient [err:5]"), 6u);
  EXPECT_TRUE(PrintOn(m_hPort, "in the client's name again").bDelivered);
  EXPECT_FALSE(Exists("C:\\Jobs\\Old"));
  World::DeleteTree("C:\\Jobs");

  // A request, a start on the port monitor and a port's open would happen in the wrong name: they fail.
  {
    const sim::ActAsClient client;
    const w32::FaultsOn faults;
    w32::FailCalls("ImpersonatePrinterClient", 1);
    sim::WideString request = sim::Wide("DO_SETTING_SHARE_PRN__Front");
    EXPECT_FALSE(world().spooler.pMonitor->pfnGetPrinterDataFromPort(m_hPort, 0, request.data(), nullptr, 0, nullptr, 0,
                                                                     nullptr));
    EXPECT_EQ(GetLastError(), 5u);
    EXPECT_EQ(world().journal.Count("port GetPrinterDataFromPort"), 0u);
  }
  world().services.dwState = SERVICE_STOPPED;
  const w32::FaultsOn faults;
  w32::FailCalls("ImpersonatePrinterClient", 1);
  const sim::PrintResult refused = PrintOn(m_hPort, "x");
  EXPECT_FALSE(refused.bStarted);
  EXPECT_EQ(refused.dwError, 5u);
  EXPECT_EQ(world().journal.Count("port StartDocPort"), 0u);
  w32::FailCalls("ImpersonatePrinterClient", 1);
  EXPECT_EQ(Open("COM9"), nullptr);
  EXPECT_EQ(GetLastError(), 5u);
}

TEST_F(Hostile, DeviceThatRefusesEverythingIsAskedTwiceASecond) {
  const std::string strJob = Receipt(3000);
  const auto options = AtByte(strJob.size(), [&] { world().library.Answer("send", ERROR_GEN_FAILURE, 1'000'000); });
  m_dwJob = world().spooler.NewJob("Till", "TEXT");
  const auto pJob = world().spooler.PrintAsync(m_hPort, m_dwJob, strJob, options);
  EXPECT_FALSE(pJob->Wait(900'000));  // a quarter of an hour
  EXPECT_LT(World::LogText().size(), 1'000'000u);
  const std::size_t nRefused = World::LogCount("SDK DIRECTIO [e:31]");
  EXPECT_GT(nRefused, 1700u);
  EXPECT_LT(nRefused, 1830u);
  world().spooler.SetStatus(m_dwJob, JOB_STATUS_DELETING);
  EXPECT_TRUE(pJob->Wait(1000));
  world().library.Answer("send", 0, 0);
}

// Sends that succeed or time out at once, and take nothing; and a confirmation whose waits return at once, since nothing is
// known of the model.
TEST_F(Hostile, LoopThatGetsNowhereIsGoneThroughTwiceASecond) {
  world().library.SetSendsThatTakeNothing(1'000'000);
  auto pJob = Start(Receipt(300));
  Sleep(60'000);
  EXPECT_LT(world().journal.Count("send is called"), 140u);
  EXPECT_GT(world().journal.Count("send is called"), 100u);
  world().spooler.SetStatus(m_dwJob, JOB_STATUS_DELETING);
  EXPECT_TRUE(pJob->Wait(1200));
  pJob->Join();
  world().library.SetSendsThatTakeNothing(0);

  world().spooler.ClosePort(m_hPort);
  world().spooler.FindQueue("Till")->strDriver = kUnknownModel;
  m_hPort = Open("USB001");
  for (const char* pszRequest : {"SDK_CANCEL_IO_EX", "SDK_SET_RESET"}) {
    world().journal.Clear();
    world().library.Answer(pszRequest, ERROR_GEN_FAILURE, 1'000'000);
    pJob = Start("");
    Sleep(60'000);
    EXPECT_LT(world().journal.Count("sdk SDK_CANCEL_IO_EX"), 140u);
    EXPECT_GT(world().journal.Count("sdk SDK_CANCEL_IO_EX"), 100u);
    world().spooler.SetStatus(m_dwJob, JOB_STATUS_DELETING);
    EXPECT_TRUE(pJob->Wait(1200));
    pJob->Join();
    world().library.Answer(pszRequest, 0, 0);
  }
}
#endif

}  // namespace
