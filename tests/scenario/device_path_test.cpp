// Jobs that go through the device-access library: which ports take that path, sessions, locks and failures.
#include "common/serial_port.h"
#include "tests/support/world_test.h"

using namespace testing_support;
using sim::PrintResult;
using sim::World;

namespace {

class DevicePath : public WorldTest {
 protected:
  DevicePath() { world().AddPrinter("Till", "USB001", kModel); }
  std::vector<std::string> Sdk() { return world().journal.Of("sdk"); }
  std::string Paper(const std::string& strPort = "USB001") { return world().PrinterOf(strPort).LastStrip(); }
};

TEST_F(DevicePath, OpenAlwaysPortKeepsItsSessionAndLocksForEachJob) {
  const HANDLE hPort = Open("USB001");
  EXPECT_EQ(Sdk(), std::vector<std::string>{"sdk OpenW Till options=0x0"});
  EXPECT_TRUE(PrintOn(hPort, Receipt(20'000)).bDelivered);
  EXPECT_TRUE(PrintOn(hPort, Receipt(10)).bDelivered);
  EXPECT_EQ(Sdk(), (std::vector<std::string>{
                       "sdk OpenW Till options=0x0", "sdk SDK_SET_LOCK timeout=3000 value=0x100000",
                       "sdk send 16384/16384 timeout=90000 code=0", "sdk send 3616/3616 timeout=90000 code=0",
                       "sdk SDK_CLR_LOCK timeout=0", "sdk SDK_SET_LOCK timeout=3000 value=0x100000",
                       "sdk send 10/10 timeout=90000 code=0", "sdk SDK_CLR_LOCK timeout=0"}));
  EXPECT_EQ(world().journal.Count("port StartDocPort"), 0u);
  EXPECT_EQ(Paper(), Receipt(20'000) + Receipt(10));
  world().spooler.ClosePort(hPort);
  EXPECT_EQ(Sdk().back(), "sdk Close");
  EXPECT_EQ(world().library.OpenSessions(), 0u);
}

TEST_F(DevicePath, SwitchedOffOpenAlwaysOpensTheDeviceWithEachJob) {
  World::SetMachineDword("SOFTWARE\\Wow6432Node\\Kelvane\\PrinterDriver", "OpenWithStartDoc", 3);
  const HANDLE hPort = Open("USB001");
  EXPECT_TRUE(Sdk().empty());
  for (int n = 0; n < 2; ++n) {
    world().journal.Clear();
    EXPECT_TRUE(PrintOn(hPort, "x").bDelivered);
    EXPECT_EQ(Sdk(), (std::vector<std::string>{
                         "sdk OpenW Till options=0x0", "sdk SDK_SET_LOCK timeout=3000 value=0x100000",
                         "sdk send 1/1 timeout=90000 code=0", "sdk SDK_CLR_LOCK timeout=0", "sdk Close"}));
    EXPECT_EQ(world().library.OpenSessions(), 0u);
  }
}

TEST_F(DevicePath, SwitchThatIsTurnedWhileThePortIsOpenCountsAtTheJobsEnd) {
  const HANDLE hPort = Open("USB001");
  World::SetMachineDword("SOFTWARE\\Kelvane\\PrinterDriver", "OpenWithStartDoc", 1);
  EXPECT_TRUE(PrintOn(hPort, "x").bDelivered);
  EXPECT_EQ(world().library.OpenSessions(), 0u);
  World::SetMachineDword("SOFTWARE\\Kelvane\\PrinterDriver", "OpenWithStartDoc", 0);
  EXPECT_TRUE(PrintOn(hPort, "y").bDelivered);
  EXPECT_EQ(world().library.OpenSessions(), 1u);
  EXPECT_EQ(Paper(), "xy");
  EXPECT_EQ(World::LogCount("WaitForSingleObject dwJobId"), 0u);  // the watchers were told to end
}

TEST_F(DevicePath, OnlyBitZeroOfTheSwitchCounts) {
  World::SetMachineDword("SOFTWARE\\Kelvane\\PrinterDriver", "OpenWithStartDoc", 2);
  Open("USB001");
  EXPECT_EQ(Sdk().size(), 1u);
}

TEST_F(DevicePath, ServiceThatStopsAndStartsIsNoticedAtTheNextJob) {
  world().services.dwState = SERVICE_START_PENDING;
  const HANDLE hPort = Open("USB001");
  EXPECT_TRUE(PrintOn(hPort, "a").bDelivered);
  EXPECT_EQ(World::LogCount("pSdkMng is invalid"), 0u);
  world().services.dwState = SERVICE_RUNNING;
  EXPECT_TRUE(PrintOn(hPort, "b").bDelivered);
  world().services.dwState = SERVICE_STOP_PENDING;
  EXPECT_TRUE(PrintOn(hPort, "c").bDelivered);
  EXPECT_EQ(world().portMonitor.Port("USB001").strDelivered, "ac");
  EXPECT_EQ(Paper(), "abc");
  EXPECT_EQ(World::LogCount("pSdkMng is invalid.[Printer:Till]"), 1u);
  // A job on the other path closes a session that is still open.
  EXPECT_EQ(world().journal.Count("sdk Close as the client"), 1u);
  EXPECT_EQ(world().library.OpenSessions(), 0u);
  world().services.dwState = SERVICE_RUNNING;
  EXPECT_TRUE(PrintOn(hPort, "d").bDelivered);
  EXPECT_EQ(world().journal.Count("port StartDocPort"), 2u);
}

TEST_F(DevicePath, MissingServiceAndLibraryLeaveThePortMonitorPath) {
  world().services.bInstalled = false;
  HANDLE hPort = Open("USB001");
  EXPECT_TRUE(PrintOn(hPort, "a").bDelivered);
  EXPECT_GT(World::LogCount("OpenService [err:1060, name:Norvex_Srv]"), 0u);
  world().spooler.ClosePort(hPort);

  world().services.bInstalled = true;
  world().InstallLibrary(false);
  hPort = Open("USB001");
  EXPECT_TRUE(PrintOn(hPort, "b").bDelivered);
  EXPECT_TRUE(PrintOn(hPort, "c").bDelivered);
  EXPECT_EQ(World::LogCount("sdk.dll is not exist [.\\Norvex_SDK.dll]"), 1u);  // one attempt an object
  world().spooler.ClosePort(hPort);
  EXPECT_EQ(world().portMonitor.Port("USB001").strDelivered, "abc");
}

#ifndef _WIN32
TEST_F(DevicePath, RefusedServiceQueriesReadInDecimalAndAbove16BitsInHexadecimal) {
  const w32::FaultsOn faults;
  const std::pair<const char*, const char*> apis[] = {{"OpenSCManagerW", "OpenSCManager"},
                                                      {"QueryServiceStatus", "QueryServiceStatus"}};
  for (const auto& [pszApi, pszName] : apis) {
    for (const auto& [dwError, pszCode] : {std::pair(0xFFFFu, ":65535)"), std::pair(0x10000u, ":0x00010000)")}) {
      w32::FailCalls(pszApi, 1, 0, dwError);
      world().spooler.ClosePort(Open("USB001"));
      EXPECT_EQ(World::LogCount(std::string(pszName) + " (system error" + pszCode), 1u);
    }
  }
}

TEST_F(DevicePath, LibraryWithoutAnOrdinalIsNotUsed) {
  world().InstallLibrary(true, 2);
  const HANDLE hPort = Open("USB001");
  EXPECT_TRUE(PrintOn(hPort, "a").bDelivered);
  EXPECT_EQ(World::LogCount("Invalid function [pOpenW:"), 1u);
}
#endif

TEST_F(DevicePath, RefusedLockIsBusyAndTheNextJobPrints) {
  const HANDLE hPort = Open("USB001");
  world().library.Answer("SDK_SET_LOCK", ERROR_ACCESS_DENIED);
  EXPECT_EQ(PrintOn(hPort, "x").dwError, ERROR_BUSY);
  EXPECT_EQ(World::LogCount("SDK_SET_LOCK [e:5]"), 1u);
  EXPECT_TRUE(PrintOn(hPort, "y").bDelivered);
  EXPECT_EQ(Paper(), "y");
}

TEST_F(DevicePath, FailedOpenReadsAsNoSession) {
  world().spooler.FindQueue("Till")->strDriver = kOneByteModel;  // its open option must not pass for a session
  world().library.Answer("OpenW", ERROR_FILE_NOT_FOUND, 2);
  const HANDLE hPort = Open("USB001");
  const PrintResult result = PrintOn(hPort, "x");
  EXPECT_FALSE(result.bStarted);
  EXPECT_EQ(result.dwError, ERROR_FILE_NOT_FOUND);
  EXPECT_TRUE(PrintOn(hPort, "y").bDelivered);
  world().spooler.ClosePort(hPort);
  EXPECT_EQ(world().library.OpenSessions(), 0u);
}

TEST_F(DevicePath, PortMonitorThatRefusesTheOpenLeavesNoSessionAndItsOwnError) {
  world().portMonitor.Port("USB001").dwRefuseOpen = ERROR_ACCESS_DENIED;
  EXPECT_EQ(Open("USB001"), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  EXPECT_EQ(world().library.OpenSessions(), 0u);
  world().library.Answer("SDK_CLR_LOCK", ERROR_GEN_FAILURE);  // a device that cannot be closed does not hide the error
  EXPECT_EQ(Open("USB001"), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  world().portMonitor.Port("USB001").dwRefuseOpen = 0;
  const HANDLE hPort = Open("USB001");
  EXPECT_TRUE(PrintOn(hPort, "x").bDelivered);
}

#ifndef _WIN32
TEST_F(DevicePath, JobWhoseInformationCannotBeReadIsRefusedAndItsWatcherEnds) {
  const HANDLE hPort = Open("USB001");
  {
    const w32::FaultsOn faults;
    w32::FailCalls("GetJobW", 2);  // the watcher's and the start's
    EXPECT_FALSE(PrintOn(hPort, "x").bStarted);
  }
  EXPECT_EQ(World::LogCount("GetJob cbNeeded=0 [hPrinter:0x"), 1u);
  EXPECT_TRUE(PrintOn(hPort, "y").bDelivered);
}
#endif

TEST_F(DevicePath, FailedSendRefusesTheJobWithTheLibrarysCode) {
  const HANDLE hPort = Open("USB001");
  world().library.Answer("send", ERROR_DEVICE_NOT_CONNECTED);
  EXPECT_EQ(PrintOn(hPort, "x").dwError, ERROR_DEVICE_NOT_CONNECTED);
  EXPECT_TRUE(PrintOn(hPort, "y").bDelivered);
}

TEST_F(DevicePath, PartialSendsAreReportedAndTheRestIsOfferedAgain) {
  world().library.SetPartialSends(1000);
  const HANDLE hPort = Open("USB001");
  EXPECT_TRUE(PrintOn(hPort, Receipt(4500), "TEXT").bDelivered);
  EXPECT_EQ(Paper(), Receipt(4500));
  EXPECT_EQ(World::LogCount("SDK DIRECTIO time out(1460) [length:4500][written:1000]"), 1u);
}

TEST_F(DevicePath, LibraryThatClaimsMoreThanItWasGivenDoesNoHarm) {
  world().spooler.FindQueue("Till")->data["AutoReprint"] = sim::Spooler::Dword(1);
  world().library.SetSurplus(1'000'000);
  const HANDLE hPort = Open("USB001");
  EXPECT_TRUE(PrintOn(hPort, Receipt(500), "TEXT").bDelivered);
  EXPECT_EQ(Paper(), Receipt(500));
}

TEST_F(DevicePath, ModelsOpenOptionsReachTheLibrary) {
  world().AddPrinter("Label", "USB002", "kelvane dt-2");
  world().AddPrinter("Tag", "USB003", kOneByteModel, {.bOneByteStatus = true});
  Open("USB002", "Label");
  Open("USB003", "Tag");
  EXPECT_EQ(Sdk(), (std::vector<std::string>{"sdk OpenW Label options=0x200", "sdk OpenW Tag options=0x1000000"}));
}

TEST_F(DevicePath, SerialSynchronisationIsRepeatedUntilItSucceeds) {
  world().AddPrinter("Tag", "COM7", kOneByteModel, {.bOneByteStatus = true});
  world().library.Answer("SDK_SYNC_COM", 31, 2);
  const HANDLE hPort = Open("COM7", "Tag");
  EXPECT_EQ(world().journal.Of("sdk SDK_SYNC_COM"),
            std::vector<std::string>{"sdk SDK_SYNC_COM timeout=5000 setting=115200,38400,19200,9600 length=48"});
  EXPECT_EQ(World::LogCount("Fail to SetCommSync [Port:COM7][Err:31]"), 1u);
  EXPECT_FALSE(PrintOn(hPort, "x", "RAW", {}, "Tag").bStarted);
  EXPECT_TRUE(PrintOn(hPort, "y", "RAW", {}, "Tag").bDelivered);
  EXPECT_TRUE(PrintOn(hPort, "z", "RAW", {}, "Tag").bDelivered);
  EXPECT_EQ(world().journal.Count("sdk SDK_SYNC_COM"), 3u);
}

TEST_F(DevicePath, OtherModelsOnComPortsAreNotSynchronised) {
  world().AddPrinter("Desk", "COM8", kModel);
  const HANDLE hPort = Open("COM8", "Desk");
  EXPECT_TRUE(PrintOn(hPort, "x", "RAW", {}, "Desk").bDelivered);
  EXPECT_EQ(world().journal.Count("sdk SDK_SYNC_COM"), 0u);
}

struct PortCase {
  const char* pszPort;
  int nProtocol;     // of a TCP/IP port
  bool bDevicePath;  // a job goes through the library
  bool bOpenAtOnce;  // the session is opened with the port
};

class PortKinds : public DevicePath, public ::testing::WithParamInterface<PortCase> {};

TEST_P(PortKinds, PathAndSessionFollowThePortName) {
  const PortCase& port = GetParam();
  World::AddSerialDevice("\\Device\\Serial0", "COM1");
  World::AddSerialDevice("\\Device\\VCP0", "COM4");
  World::AddSerialDevice("\\Device\\VCP1", "COM5");
  world().AddPrinter("Any", port.pszPort, kModel);
  world().portMonitor.Port(port.pszPort).nProtocol = port.nProtocol;
  const HANDLE hPort = Open(port.pszPort, "Any");
  ASSERT_NE(hPort, nullptr);
  EXPECT_EQ(world().library.OpenSessions(), port.bOpenAtOnce ? 1u : 0u);
  EXPECT_TRUE(PrintOn(hPort, "job", "RAW", {}, "Any").bDelivered);
  EXPECT_EQ(world().journal.Count("sdk send"), port.bDevicePath ? 1u : 0u);
  EXPECT_EQ(Paper(port.pszPort), "job");
  world().spooler.ClosePort(hPort);
  World::DeleteMachineKey("HARDWARE\\DEVICEMAP\\SERIALCOMM");
}

INSTANTIATE_TEST_SUITE_P(All, PortKinds,
                         ::testing::Values(PortCase{"USB001", 0, true, true}, PortCase{"usb002", 0, true, true},
                                           PortCase{"COM1", 0, true, true}, PortCase{"COM1:", 0, true, true},
                                           PortCase{"COM9", 0, true, true},   // not in the device map: not virtual
                                           PortCase{"com4", 0, true, false},  // virtual: opened with each job
                                           PortCase{"COM5", 1, true, true},   // virtual and a network port as well
                                           PortCase{"IP_10.0.0.5", 1, true, true},
                                           PortCase{"IP_10.0.0.6", 2, true, true},
                                           PortCase{"IP_10.0.0.7", 0, false, false}, PortCase{"FILE:", 0, false, false},
                                           PortCase{"\\\\server\\till", 1, false, false},
                                           PortCase{"XPSPort:", 1, false, false}, PortCase{"SHRFAX:", 1, false, false},
                                           PortCase{"FILE7", 1, false, false}, PortCase{"LPT1:", 0, false, false}));

TEST_F(DevicePath, PortWithoutANameIsNoVirtualComPort) {
  EXPECT_FALSE(IsVirtualComPort(nullptr));
  EXPECT_FALSE(IsVirtualComPort(L""));
}

#ifndef _WIN32  // a device map of one's own, which the order of its values belongs to
TEST_F(DevicePath, DeviceMapIsReadUpToAHundredValues) {
  const auto opensAtOnce = [&] {
    const HANDLE hPort = Open("COM4", "Any");
    const bool bOpen = world().library.OpenSessions() != 0;
    world().spooler.ClosePort(hPort);
    return bOpen;
  };
  world().AddPrinter("Any", "COM4", kModel);
  World::DeleteMachineKey("HARDWARE\\DEVICEMAP\\SERIALCOMM");
  for (int n = 0; n < 100; ++n)
    World::AddSerialDevice(sim::Format("\\Device\\VCP%d", n), sim::Format("COM%d", 100 + n));
  World::AddSerialDevice("\\Device\\VCP100", "COM4");  // the 101st
  EXPECT_TRUE(opensAtOnce());
  World::DeleteMachineKey("HARDWARE\\DEVICEMAP\\SERIALCOMM");
  World::AddSerialDevice("\\Device\\" + std::string(300, 'n'), "COM77");  // unreadable: any COM port may be it
  EXPECT_FALSE(opensAtOnce());
  World::DeleteMachineKey("HARDWARE\\DEVICEMAP\\SERIALCOMM");
  World::AddSerialDevice("\\Device\\VCP0", std::string(127, 'C'));  // fills its 256 bytes
  EXPECT_TRUE(opensAtOnce());
  World::AddSerialDevice("\\Device\\VCP0", std::string(200, 'C'));
  EXPECT_FALSE(opensAtOnce());
  EXPECT_EQ(World::LogCount("RegEnumValue [err:234]"), 2u);
  World::DeleteMachineKey("HARDWARE\\DEVICEMAP\\SERIALCOMM");
}
#endif

TEST_F(DevicePath, FileAndFaxPortsCauseNoQuery) {
  for (const char* pszPort : {"FILE:", "XPSPort:", "SHRFAX:"}) {
    world().AddPrinter("Any", pszPort, kModel);
    const HANDLE hPort = Open(pszPort, "Any");
    world().spooler.ClosePort(hPort);
  }
  EXPECT_EQ(world().journal.Count("OpenPrinter ,XcvPort"), 0u);
}

TEST_F(DevicePath, PortsWithNamesOfAnyLengthPrint) {
  for (const std::size_t cch : {1u, 259u, 260u, 5000u}) {
    const std::string strPort(cch, 'P');
    world().AddPrinter(sim::Format("Queue %zu", cch), strPort, kModel);
    world().portMonitor.Port(strPort).nProtocol = 1;
    const HANDLE hPort = Open(strPort, sim::Format("Queue %zu", cch));
    ASSERT_NE(hPort, nullptr);
    EXPECT_TRUE(PrintOn(hPort, "job", "RAW", {}, sim::Format("Queue %zu", cch)).bDelivered);
  }
}

TEST_F(DevicePath, TwoPortsPrintWhileAThirdOpensSlowly) {
  world().AddPrinter("Second", "USB002", kModel);
  world().AddPrinter("Third", "USB003", kModel);
  const HANDLE hFirst = Open("USB001");
  const HANDLE hSecond = Open("USB002", "Second");
  world().library.SetOpenDelay(1500);
  auto pFirst = world().spooler.PrintAsync(hFirst, world().spooler.NewJob("Till", "RAW"), Receipt(50'000));
  auto pSecond = world().spooler.PrintAsync(hSecond, world().spooler.NewJob("Second", "RAW"), Receipt(50'000, 'C'));
  Open("USB003", "Third");
  EXPECT_TRUE(pFirst->Join().bDelivered);
  EXPECT_TRUE(pSecond->Join().bDelivered);
  EXPECT_EQ(Paper("USB001"), Receipt(50'000));
  EXPECT_EQ(Paper("USB002"), Receipt(50'000, 'C'));
}

TEST_F(DevicePath, CancelOvertakesABlockedSend) {
  world().AddPrinter("Slow", "USB002", kModel, {.cbBuffer = 1000, .dwBytesPerSecond = 1});
  const HANDLE hPort = Open("USB002", "Slow");
  const DWORD dwJob = world().spooler.NewJob("Slow", "RAW");
  const DWORD dwStart = GetTickCount();
  sim::PrintOptions options;
  options.cbChunk = 5000;
  auto pJob = world().spooler.PrintAsync(hPort, dwJob, Receipt(20'000), options);
  while (world().journal.Count("transfer begins") == 0) Sleep(20);
  world().spooler.SetStatus(dwJob, JOB_STATUS_DELETING);
  pJob->Join();
  EXPECT_LT(GetTickCount() - dwStart, 60'000u);      // not the 90 seconds of the send
  EXPECT_EQ(world().journal.Count("sdk send"), 1u);  // nothing is sent after the cancel
  const auto entries = Sdk();
  ASSERT_GE(entries.size(), 3u);
  EXPECT_EQ(entries[entries.size() - 3], "sdk SDK_CANCEL_IO_EX timeout=0");
  EXPECT_EQ(entries[entries.size() - 2], "sdk SDK_SET_RESET timeout=5000");
  EXPECT_EQ(entries[entries.size() - 1], "sdk SDK_CLR_LOCK timeout=0");
  EXPECT_EQ(World::LogCount("ThreadJobCanMon"), 2u);
  EXPECT_TRUE(PrintOn(hPort, "next", "RAW", {}, "Slow").bDelivered);
}

TEST_F(DevicePath, RestartedJobCountsAsCancelledAPausedOneDoesNot) {
  const HANDLE hPort = Open("USB001");
  sim::PrintOptions options;
  options.cbChunk = 100;
  options.onProgress = [&](std::uint64_t ullDone) {
    if (ullDone == 100) world().spooler.SetStatus(LastJob(), JOB_STATUS_PAUSED);
    if (ullDone != 300) return;
    world().spooler.SetStatus(LastJob(), JOB_STATUS_RESTART);
    Sleep(3000);  // nothing is being sent: the library is told once
  };
  EXPECT_TRUE(PrintOn(hPort, Receipt(1000), "RAW", options).bDelivered);  // as far as the spooler can tell
  EXPECT_EQ(world().journal.Count("sdk send"), 3u);
  EXPECT_EQ(World::LogCount("Cancel job [pszPortName:0xUSB001"), 7u);
  EXPECT_EQ(world().journal.Count("sdk SDK_CANCEL_IO_EX"), 2u);  // and once more at the end
  EXPECT_EQ(world().journal.Count("sdk SDK_SET_RESET"), 1u);
}

TEST_F(DevicePath, DeviceIsClearedOfAJobThatIsDeletedJustBeforeItsEnd) {
  const HANDLE hPort = Open("USB001");
  const DWORD dwJob = world().spooler.NewJob("Till", "RAW");
  ASSERT_TRUE(world().spooler.StartDoc(hPort, dwJob));
  world().spooler.SetStatus(dwJob, JOB_STATUS_DELETING);  // its watcher looks every half second
  EXPECT_TRUE(world().spooler.EndDoc(hPort));
  EXPECT_EQ(world().journal.Count("sdk SDK_SET_RESET"), 1u);
}

TEST_F(DevicePath, CloseWithACachedJobFreesTheCache) {
  world().spooler.FindQueue("Till")->data["AutoReprint"] = sim::Spooler::Dword(1);
  const HANDLE hPort = Open("USB001");
  ASSERT_TRUE(world().spooler.StartDoc(hPort, world().spooler.NewJob("Till", "TEXT")));
  BYTE abyData[100] = {'x'};
  DWORD cbWritten = 0;
  {
    const sim::ActAsClient client;
    EXPECT_TRUE(world().spooler.pMonitor->pfnWritePort(hPort, abyData, sizeof abyData, &cbWritten));
  }
  EXPECT_EQ(cbWritten, sizeof abyData);
}

TEST_F(DevicePath, CloseWithARunningJobStopsItsWatcherFirst) {
  const HANDLE hPort = Open("USB001");
  ASSERT_TRUE(world().spooler.StartDoc(hPort, world().spooler.NewJob("Till", "RAW")));
  EXPECT_TRUE(world().spooler.ClosePort(hPort));
  EXPECT_EQ(world().journal.Of("SetJob"), std::vector<std::string>{"SetJob 1 last-page-ejected"});
  EXPECT_EQ(world().library.OpenSessions(), 0u);
}

TEST_F(DevicePath, JobThatLeavesTheSpoolerEndsItsWatcherQuietly) {
  const HANDLE hPort = Open("USB001");
  const auto leave = [&] {
    world().spooler.RemoveJob(LastJob());
    Sleep(700);
  };
  EXPECT_TRUE(PrintOn(hPort, Receipt(100), "RAW", AtByte(50, leave, 10)).bDelivered);
  EXPECT_EQ(World::LogCount("GetJob [err:87, dwJobId:1"), 1u);
  EXPECT_EQ(Paper(), Receipt(100));
}

}  // namespace
