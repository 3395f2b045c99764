// Jobs that the printer confirms, loses and prints again.
#include "monitor/reprint.h"
#include "tests/support/world_test.h"

using namespace testing_support;
using sim::Fault;
using sim::FaultKind;
using sim::World;

namespace {

struct Protocol {
  const char* pszName;
  const char* pszModel;
  bool bOneByte;
};

class Recovery : public WorldTest, public ::testing::WithParamInterface<Protocol> {
 protected:
  Recovery() {
    world()
        .AddPrinter("Till", "USB001", GetParam().pszModel,
                    {.bOneByteStatus = GetParam().bOneByte, .cbBuffer = 4096, .dwBytesPerSecond = 20'000})
        .data["AutoReprint"] = sim::Spooler::Dword(1);
    m_hPort = Open("USB001");
  }
  sim::Printer& Printer() { return world().PrinterOf("USB001"); }
  sim::PrintResult PrintText(const std::string& strData, const sim::PrintOptions& options = {}) {
    return PrintOn(m_hPort, strData, "TEXT", options);
  }
  // Deletes the job after a time on a thread of its own.
  std::unique_ptr<sim::Spooler::Running> PrintAndDeleteAfter(const std::string& strData, DWORD dwMilliseconds) {
    const DWORD dwJob = world().spooler.NewJob("Till", "TEXT");
    auto pJob = world().spooler.PrintAsync(m_hPort, dwJob, strData);
    Sleep(dwMilliseconds);
    world().spooler.SetStatus(dwJob, JOB_STATUS_DELETING);
    return pJob;
  }
  std::size_t Reprints() { return World::LogCount("ReprintDumpData() done."); }
  HANDLE m_hPort = nullptr;
};

TEST_P(Recovery, ConfirmedJobIsPrintedOnce) {
  EXPECT_TRUE(PrintText(Receipt(9000)).bDelivered);
  EXPECT_TRUE(PrintText(Receipt(700, 'C')).bDelivered);
  EXPECT_EQ(Printer().Strips(), std::vector<std::string>{Receipt(9000) + Receipt(700, 'C')});
  EXPECT_EQ(Reprints(), 0u);
  EXPECT_EQ(World::LogCount("Detected printable status"), 2u);            // once before each job's first byte
  EXPECT_EQ(world().journal.Count("transfer begins timeout=10000"), 4u);  // … and a confirmation of each
}

TEST_P(Recovery, SizesOfTheLastTwoJobsAreRememberedForTheCache) {
  const ReprintMng& cache = static_cast<IniPort*>(m_hPort)->reprintMng;
  EXPECT_TRUE(PrintText(Receipt(1000)).bDelivered);
  EXPECT_TRUE(PrintText(Receipt(3000)).bDelivered);
  EXPECT_EQ(cache.cbJob[0], 1000u);
  EXPECT_EQ(cache.cbJob[1], 3000u);
  EXPECT_EQ(cache.pBuf, nullptr);
  EXPECT_TRUE(PrintOn(m_hPort, Receipt(500), "RAW").bDelivered);  // caches nothing
  EXPECT_EQ(cache.cbJob[0] + cache.cbJob[1], 0u);
  EXPECT_TRUE(PrintText(Receipt(1000)).bDelivered);
  world().services.dwState = SERVICE_STOPPED;
  EXPECT_TRUE(PrintText(Receipt(500)).bDelivered);  // nor does a job on the port monitor
  EXPECT_EQ(cache.cbJob[0] + cache.cbJob[1], 0u);
}

TEST_P(Recovery, SequenceNumbersOfTheRequestsRunTo254AndBeginAgain) {
  bySeqCounter = 253;
  for (const BYTE by : {BYTE{0x8E}, BYTE{0x80}, BYTE{0x81}}) {
    EXPECT_TRUE(PrintText("x").bDelivered);
    EXPECT_EQ(Printer().Responses().byLast, GetParam().bOneByte ? 0xC9 : by);
  }
}

TEST_P(Recovery, RawJobOfAnUnsharedPrinterIsNeitherCheckedNorConfirmed) {
  EXPECT_TRUE(PrintOn(m_hPort, Receipt(900), "raw").bDelivered);
  world().spooler.FindQueue("Till")->strShare = std::string(64, 's');  // longer than a share name may be
  EXPECT_TRUE(PrintOn(m_hPort, Receipt(900), "raw").bDelivered);
  EXPECT_EQ(World::LogCount("WaitExecRespAndStatus"), 0u);
  world().spooler.FindQueue("Till")->strShare = std::string(63, 's');
  EXPECT_TRUE(PrintOn(m_hPort, Receipt(900), "raw").bDelivered);
  EXPECT_GT(World::LogCount("WaitExecRespAndStatus"), 0u);
}

TEST_P(Recovery, PaperEndInTheMiddleEndsInOneWholeReceipt) {
  Printer().Plan({FaultKind::PaperEnd, 3000, 4000});
  EXPECT_TRUE(PrintText(Receipt(6000)).bDelivered);
  EXPECT_EQ(Printer().LastStrip(), Receipt(6000));
  EXPECT_EQ(Reprints(), 1u);
  EXPECT_EQ(World::LogCount("Wait exec resp stopped [status:0x"), 1u);
  EXPECT_EQ(world().journal.Count("sdk SDK_SET_RESET"), 1u);
  EXPECT_TRUE(PrintText(Receipt(100, 'X')).bDelivered);
  EXPECT_EQ(Printer().LastStrip(), Receipt(6000) + Receipt(100, 'X'));
}

TEST_P(Recovery, SecondLossRepeatsTheCycle) {
  Printer().Plan({FaultKind::CoverOpen, 3000, 1500});
  Printer().Plan({FaultKind::PaperEnd, 9000, 1500});  // during the reprint
  EXPECT_TRUE(PrintText(Receipt(6000)).bDelivered);
  EXPECT_EQ(Printer().LastStrip(), Receipt(6000));
  EXPECT_EQ(Reprints(), 2u);
}

TEST_P(Recovery, PowerCycleLosesTheBufferAndTheJobIsPrintedAgain) {
  Printer().Plan({FaultKind::PowerCycle, 4000, 3000});
  EXPECT_TRUE(PrintText(Receipt(4500)).bDelivered);
  EXPECT_EQ(Printer().LastStrip(), Receipt(4500));
  EXPECT_EQ(Reprints(), 1u);
}

TEST_P(Recovery, PrinterThatIsNotReadyGetsNoByte) {
  Printer().Plan({FaultKind::PaperEnd, 0, 2600});
  EXPECT_TRUE(PrintText(Receipt(500)).bDelivered);
  EXPECT_EQ(Printer().Strips(), std::vector<std::string>{Receipt(500)});
  EXPECT_EQ(Reprints(), 0u);
}

TEST_P(Recovery, OffLineLineIsWaitedFor) {
  Printer().Plan({FaultKind::OffLine, 0, 3000});
  EXPECT_TRUE(PrintText(Receipt(500)).bDelivered);
  EXPECT_EQ(Printer().LastStrip(), Receipt(500));
}

TEST_P(Recovery, LineLostAtTheConfirmationEndsInAReprint) {
  EXPECT_TRUE(PrintText(Receipt(500), AtByte(500, [&] { world().library.Answer("send", 1167, 1); })).bDelivered);
  // Once from the request that did not go out, once from the wait for its answer.
  EXPECT_EQ(World::LogCount("Fail to get exec resp. [OFFLINE][Port:USB001]"), 2u);
  EXPECT_EQ(Reprints(), 1u);
  EXPECT_EQ(Printer().LastStrip(), Receipt(500));
}

TEST_P(Recovery, ReprintThatTheLibraryMiscountsOrThatHasNoDataEndsTheJob) {
  Printer().Plan({FaultKind::BlankStatus, 400, 0});
  EXPECT_TRUE(PrintText(Receipt(500), AtByte(500, [&] { world().library.SetSurplus(1); })).bDelivered);
  EXPECT_EQ(World::LogCount("[srv:USB001] MonWritePort pmWrite() overrun!!"), 1u);
  EXPECT_EQ(World::LogCount("ReprintDumpData ERROR_INVALID_PARAMETER [Port:USB001]"), 1u);
  world().library.SetSurplus(0);
  while (!Printer().Idle()) Sleep(100);
  Printer().Plan({FaultKind::BlankStatus, Printer().BytesProcessed() + 400, 0});
  auto& cache = static_cast<IniPort*>(m_hPort)->reprintMng;
  EXPECT_TRUE(PrintText(Receipt(500), AtByte(500, [&] { ManageReprintMng(&cache, 0); })).bDelivered);
  EXPECT_EQ(World::LogCount("ReprintDumpData ERROR_INVALID_PARAMETER [Port:USB001]"), 2u);
  EXPECT_EQ(Reprints(), 0u);
}

TEST_P(Recovery, ReprintGoesOnWhereATimeoutStoppedIt) {
  Printer().Plan({FaultKind::BlankStatus, 400, 0});
  EXPECT_TRUE(PrintText(Receipt(500), AtByte(500, [&] { world().library.SetPartialSends(200); })).bDelivered);
  EXPECT_EQ(World::LogCount("[srv:USB001] MonWritePort pmWrite() [TIMEOUT]"), 2u);
  EXPECT_EQ(World::LogCount("ReprintDumpData() done.[DATALEN:100]"), 1u);
  EXPECT_EQ(Printer().LastStrip(), Receipt(500));
}

#ifndef _WIN32
TEST_P(Recovery, JobThatCannotBeCachedIsRefused) {
  const w32::FaultsOn faults;
  // Some allocation of a write is the cache's; whichever number it has. A free watcher's own may shift it, so it is looked for
  // again.
  sim::PrintResult result;
  unsigned nTry = 0;
  while (nTry < 200 && World::LogCount("CashWriteData [ERR_WORKAREA_NO_MEMORY]") == 0) {
    const auto options = AtByte(0, [&] { w32::FailCalls("HeapAlloc", 1, nTry % 50); });
    result = PrintText(Receipt(500), options);
    w32::ResetFaults();
    ++nTry;
  }
  ASSERT_LT(nTry, 200u);
  EXPECT_FALSE(result.bDelivered);
}

TEST_P(Recovery, JobWithoutItsCancelEventPrintsUnconfirmed) {
  const w32::FaultsOn faults;
  w32::FailCalls("CreateEventW");
  EXPECT_TRUE(PrintText(Receipt(500)).bDelivered);
  while (!Printer().Idle()) Sleep(100);
  EXPECT_EQ(Printer().Strips(), std::vector<std::string>{Receipt(500)});
  EXPECT_EQ(Printer().Responses().nCount, 0u);
}

// Counts by simulated time.
TEST_P(Recovery, OffLinePrinterIsLookedForOnceASecondUntilTheJobIsDeleted) {
  Printer().Plan({FaultKind::OffLine, 0, 3'600'000});
  PrintAndDeleteAfter(Receipt(500), 10'200)->Join();
  EXPECT_NEAR(static_cast<double>(World::LogCount("Wait online <> [OFFLINE][Port:USB001]")), 11.0, 1.0);
  EXPECT_EQ(world().journal.Count("transfer begins timeout=90000"), 0u);
}
#endif

TEST_P(Recovery, StrangeAnswersDoNotDisturb) {
  for (const FaultKind kind : {FaultKind::Garbage, FaultKind::SplitAnswers, FaultKind::Silence, FaultKind::WrongNumber,
                               FaultKind::LateAnswer}) {
    const std::string strJob = Receipt(3000, 'K');
    const std::string strBefore = Printer().LastStrip();
    Printer().Plan({kind, Printer().BytesProcessed() + 1500, 2500});
    EXPECT_TRUE(PrintText(strJob).bDelivered);
    EXPECT_EQ(Printer().LastStrip(), strBefore + strJob) << static_cast<int>(kind);
  }
  EXPECT_EQ(Reprints(), 0u);
}

TEST_P(Recovery, PrinterThatNeverStopsTalkingIsPrintedOn) {
  Printer().Plan({FaultKind::Chatter, 0, 3'600'000});
  EXPECT_TRUE(PrintText(Receipt(500)).bDelivered);
  EXPECT_EQ(Printer().Strips(), std::vector<std::string>{Receipt(500)});
}

TEST_P(Recovery, BlankStatusCountsAsALoss) {
  Printer().Plan({FaultKind::BlankStatus, 2500, 0});
  EXPECT_TRUE(PrintText(Receipt(3000)).bDelivered);
  EXPECT_EQ(World::LogCount("Wait exec resp stopped [status:0xd0d0d0d0d0d0d0c0]"), 1u);
  EXPECT_EQ(Reprints(), 1u);
  EXPECT_EQ(Printer().LastStrip(), Receipt(3000));
}

#ifndef _WIN32  // places its deletions by simulated time
TEST_P(Recovery, DeletedJobSendsNothingMoreAndTheNextOnePrints) {
  const std::string strJob = Receipt(50'000);
  const auto after = [](DWORD dwMilliseconds) { return [=](sim::World&) { Sleep(dwMilliseconds); }; };
  const struct {
    const char* pszMoment;
    Fault fault;  // at a byte of the job
    std::function<void(sim::World&)> waitFor;
    const char* pszSign;  // what the log shows when the moment was met
    bool bAtJobEnd;
  } cases[] = {
      {"before its start", {FaultKind::Garbage, 0, 0}, nullptr, "Cancel job [pszPortName:0xUSB001", false},
      {"before the first byte", {FaultKind::PaperEnd, 0, 4000}, after(1200), "CANCEL,Status:0x", false},
      {"during a blocked send", {FaultKind::PaperEnd, 20'000, 4000}, after(3000), "SDK DIRECTIO [e:995]", false},
      {"while the confirmation is waited for",
       {FaultKind::Silence, 49'000, 6000},
       after(5000),
       "CANCEL,Status:0x",
       true},
      {"while paper is waited for", {FaultKind::PaperEnd, 49'000, 6000}, after(5000), "Wait exec resp stopped", true},
      {"during the resend",
       {FaultKind::PaperEnd, 49'000, 1500},
       [](sim::World& w) {
         while (w.journal.Count("sdk SDK_SET_RESET") == 0) Sleep(20);
         Sleep(1500);
       },
       "[DATALEN: ",
       true},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.pszMoment);
    Fault fault = one.fault;
    fault.ullAtByte += Printer().BytesProcessed();
    Printer().Plan(fault);
    world().journal.Clear();
    const std::size_t nSigns = World::LogCount(one.pszSign);
    const DWORD dwJob = world().spooler.NewJob("Till", "TEXT");
    if (one.waitFor == nullptr) world().spooler.SetStatus(dwJob, JOB_STATUS_DELETING);
    const auto pJob = world().spooler.PrintAsync(m_hPort, dwJob, strJob);
    if (one.waitFor != nullptr) one.waitFor(world());
    const DWORD dwNoticed = GetTickCount() + 600;  // one poll of the watcher, and the transfer that is under way
    if (one.waitFor != nullptr) world().spooler.SetStatus(dwJob, JOB_STATUS_DELETING);
    pJob->Join();

    EXPECT_GT(World::LogCount(one.pszSign), nSigns);
    bool bAtJobEnd = false;
    std::vector<std::string> clearing;
    for (const sim::Journal::Event& event : world().journal.EventsOf("Till")) {
      if (event.strText.starts_with("transfer begins")) {
        EXPECT_LT(event.dwTime, dwNoticed);
      }
      if (event.strText.ends_with("sent-to-printer")) bAtJobEnd = true;
      if (event.strText.starts_with("user changes")) {
        EXPECT_EQ(bAtJobEnd, one.bAtJobEnd);
      }
      if (event.strText.starts_with("sdk SDK_CANCEL") || event.strText.starts_with("sdk SDK_SET_RESET"))
        clearing.push_back(event.strText);
    }
    ASSERT_GE(clearing.size(), 2u);
    EXPECT_EQ(clearing[clearing.size() - 2], "sdk SDK_CANCEL_IO_EX timeout=0");
    EXPECT_EQ(clearing.back(), "sdk SDK_SET_RESET timeout=5000");
    EXPECT_EQ(world().journal.Count("SetJob"), 2u);
    if (one.waitFor == nullptr) {
      EXPECT_EQ(world().journal.Count("transfer begins"), 0u);
    }
    if (one.fault.ullAtByte == 0) {
      EXPECT_EQ(world().journal.Count("transfer begins timeout=90000"), 0u);
    }
    Sleep(6000);
    EXPECT_TRUE(PrintText("next").bDelivered);
    EXPECT_EQ(Printer().LastStrip(), "next");
    Printer().Reset();
  }
}

#endif

TEST_P(Recovery, SilentPrinterIsWaitedForUntilTheJobIsDeleted) {
  Printer().Plan({FaultKind::Silence, 100, 3'600'000});
  auto pJob = PrintAndDeleteAfter(Receipt(500), 3000);
  EXPECT_TRUE(pJob->Join().bDelivered);
  EXPECT_EQ(world().journal.Count("SetJob"), 2u);
}

TEST_P(Recovery, FailedRequestsAndReadsAreRepeated) {
  world().library.Answer("send", 31, 3);
  EXPECT_TRUE(PrintText(Receipt(500)).bDelivered);
  EXPECT_EQ(World::LogCount("Fail to send. [Err:31][Port:USB001]"), 3u);
  world().library.Answer("GET_RAW_DATA_RESP", 31, 2);
  EXPECT_TRUE(PrintText(Receipt(600)).bDelivered);
  EXPECT_EQ(World::LogCount("Fail to get exec resp. [Err:31][Port:USB001]"), 2u);
  EXPECT_EQ(Printer().Strips(), std::vector<std::string>{Receipt(500) + Receipt(600)});
}

TEST_P(Recovery, RefusedCancelAndResetAreTriedAgain) {
  Printer().Plan({FaultKind::PaperEnd, 300, 1500});
  world().library.Answer("SDK_CANCEL_IO_EX", 31, 1);
  world().library.Answer("SDK_SET_RESET", 31, 1);
  EXPECT_TRUE(PrintText(Receipt(900)).bDelivered);
  EXPECT_EQ(Printer().LastStrip(), Receipt(900));
  EXPECT_EQ(Reprints(), 1u);
  EXPECT_EQ(world().journal.Count("sdk SDK_CANCEL_IO_EX"), 3u);
  EXPECT_EQ(world().journal.Count("sdk SDK_SET_RESET"), 2u);
}

TEST_P(Recovery, LineLostDuringTheReprintStartsANewPass) {
  Printer().Plan({FaultKind::PaperEnd, 3000, 1500});
  Printer().Plan({FaultKind::OffLine, 11'000, 1500});  // all 9,000 bytes were printed before the reset
  EXPECT_TRUE(PrintText(Receipt(9000)).bDelivered);
  EXPECT_EQ(World::LogCount("[srv:USB001] MonWritePort pmWrite() [OFFLINE]"), 1u);
  EXPECT_EQ(Printer().LastStrip(), Receipt(9000));
}

TEST_P(Recovery, UnknownModelIsNeverReady) {
  world().spooler.ClosePort(m_hPort);
  world().spooler.FindQueue("Till")->strDriver = kUnknownModel;
  m_hPort = Open("USB001");
  sim::PrintOptions options;
  int nOffers = 0;
  options.onProgress = [&](std::uint64_t) {
    if (++nOffers == 4) world().spooler.SetStatus(LastJob(), JOB_STATUS_DELETING);
  };
  const sim::PrintResult result = PrintText("x", options);
  EXPECT_GE(result.nRefused, 2u);
  EXPECT_EQ(Printer().LastStrip(), "");
}

TEST_P(Recovery, SettingStaysOnWhileThePortIsOpen) {
  EXPECT_TRUE(PrintText("a").bDelivered);
  world().spooler.FindQueue("Till")->data["AutoReprint"] = sim::Spooler::Dword(0);
  EXPECT_TRUE(PrintText("b").bDelivered);
  EXPECT_EQ(World::LogCount("Detected printable status"), 2u);
  world().spooler.ClosePort(m_hPort);
  m_hPort = Open("USB001");
  EXPECT_TRUE(PrintText("c").bDelivered);
  EXPECT_EQ(World::LogCount("Detected printable status"), 2u);
}

INSTANTIATE_TEST_SUITE_P(Protocols, Recovery,
                         ::testing::Values(Protocol{"EightByte", kModel, false},
                                           Protocol{"OneByte", kOneByteModel, true}),
                         [](const auto& instance) { return instance.param.pszName; });

class VirtualCom : public WorldTest {};

TEST_F(VirtualCom, JobEndWaitsForTheResponseAndNeverReprints) {
  World::AddSerialDevice("\\Device\\VCP0", "COM4");
  world().AddPrinter("Till", "COM4", kModel, {.cbBuffer = 4096, .dwBytesPerSecond = 20'000});
  const HANDLE hPort = Open("COM4");
  EXPECT_TRUE(PrintOn(hPort, Receipt(3000), "TEXT").bDelivered);
  EXPECT_EQ(World::LogCount("Finish [WAIT_EXEC_AT_PRINT]"), 0u);
  world().PrinterOf("COM4").Plan({FaultKind::BlankStatus, 4000, 0});
  EXPECT_TRUE(PrintOn(hPort, Receipt(3000), "TEXT").bDelivered);
  EXPECT_EQ(World::LogCount("Finish [WAIT_EXEC_AT_PRINT]"), 1u);
  EXPECT_EQ(World::LogCount("ReprintDumpData"), 0u);
  world().spooler.ClosePort(hPort);
  World::DeleteMachineKey("HARDWARE\\DEVICEMAP\\SERIALCOMM");
}

}  // namespace
