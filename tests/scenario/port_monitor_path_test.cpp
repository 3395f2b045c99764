// Jobs that go through the underlying port monitor.
#include "tests/support/world_test.h"

using namespace testing_support;
using sim::MonitorPort;
using sim::World;

namespace {

class PortMonitorPath : public WorldTest {
 protected:
  PortMonitorPath() {
    world().services.dwState = SERVICE_STOPPED;
    world().AddPrinter("Till", "COM1", kModel);
  }
  MonitorPort& Port() { return world().portMonitor.Port("COM1"); }
};

TEST_F(PortMonitorPath, RawJobArrivesByteForByteAndIsReportedInOrder) {
  const std::string strJob = Receipt(100'000) + std::string("\x10\x14\x01\x00\x05", 5);
  const HANDLE hPort = Open("COM1");
  ASSERT_NE(hPort, nullptr);
  const sim::PrintResult result = PrintOn(hPort, strJob);
  EXPECT_TRUE(result.bDelivered);
  EXPECT_EQ(Port().strDelivered, strJob);
  EXPECT_TRUE(world().spooler.ClosePort(hPort));

  EXPECT_EQ(world().journal.Entries(),
            (std::vector<std::string>{"port OpenPort COM1", "port StartDocPort COM1 job=1", "SetJob 1 sent-to-printer",
                                      "port EndDocPort COM1", "SetJob 1 last-page-ejected", "port ClosePort COM1"}));
  // The log tells the story of the job.
  EXPECT_EQ(World::LogCount("MonOpenPortEx("), 2u);
  EXPECT_EQ(World::LogCount("(*pIniPort->fn.pfnWritePort) [pszPortName:COM1,cbBuf:16384/16384]"), 6u);
  EXPECT_EQ(World::LogCount("(*pIniPort->fn.pfnEndDocPort) [pszPortName:COM1, JobId:1]"), 1u);
}

TEST_F(PortMonitorPath, JobThatIsNotRawIsRewrittenAcrossBuffers) {
  const std::string strJob = "x\x13(reset\x13reset)y\x13(clr)z" + std::string("\x10\x14\x01\x00\x05", 5);
  const std::string strPrinted = "x\x13(reset\x13resev)y\x13(cls)z" + std::string("\x10\x14\x01\x00\x15", 5);
  const HANDLE hPort = Open("COM1");
  for (DWORD cbChunk = 1; cbChunk <= strJob.size(); ++cbChunk) {
    Port().strDelivered.clear();
    sim::PrintOptions options;
    options.cbChunk = cbChunk;
    PrintOn(hPort, strJob, "NT EMF 1.008", options);
    EXPECT_EQ(Port().strDelivered, strPrinted) << "buffers of " << cbChunk;
  }
}

TEST_F(PortMonitorPath, PartialAndZeroWritesAreReportedAsTheyAre) {
  Port().cbMostPerWrite = 100;
  Port().nZeroWrites = 3;
  const HANDLE hPort = Open("COM1");
  const sim::PrintResult result = PrintOn(hPort, Receipt(1050), "TEXT");
  EXPECT_TRUE(result.bDelivered);
  EXPECT_EQ(result.nRefused, 3u);
  EXPECT_EQ(Port().strDelivered, Receipt(1050));
}

TEST_F(PortMonitorPath, RefusedOpenForgetsThePort) {
  Port().dwRefuseOpen = ERROR_ACCESS_DENIED;
  EXPECT_EQ(Open("COM1"), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  Port().dwRefuseOpen = 0;
  const auto pfnOpenPort = world().portMonitor.table.pfnOpenPort;
  world().portMonitor.table.pfnOpenPort = [](HANDLE, LPWSTR, PHANDLE) -> BOOL { return TRUE; };  // and no handle
  EXPECT_EQ(Open("COM1"), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  world().portMonitor.table.pfnOpenPort = pfnOpenPort;
  const HANDLE hPort = Open("COM1");
  EXPECT_NE(hPort, nullptr);
}

TEST_F(PortMonitorPath, DeletedJobIsThePortMonitorsOwnAffair) {
  const HANDLE hPort = Open("COM1");
  const DWORD dwJob = world().spooler.NewJob("Till", "TEXT");
  world().spooler.SetStatus(dwJob, JOB_STATUS_DELETING);
  EXPECT_TRUE(world().spooler.Print(hPort, dwJob, Receipt(100)).bDelivered);
  EXPECT_EQ(Port().strDelivered, Receipt(100));
}

TEST_F(PortMonitorPath, RefusedStartLeavesThePortIdle) {
  Port().dwRefuseStart = ERROR_DISK_FULL;
  const HANDLE hPort = Open("COM1");
  EXPECT_EQ(PrintOn(hPort, "x").dwError, ERROR_DISK_FULL);
  Port().dwRefuseStart = 0;
  EXPECT_TRUE(PrintOn(hPort, "x").bDelivered);
}

TEST_F(PortMonitorPath, RefusedWritePassesTheErrorOn) {
  Port().nRefuseWrites = 1;
  const HANDLE hPort = Open("COM1");
  EXPECT_EQ(PrintOn(hPort, "lost").dwError, ERROR_WRITE_FAULT);
  EXPECT_EQ(World::LogCount("[E] \t[DRV_LM ] \tMonWritePort"), 1u);
  EXPECT_TRUE(PrintOn(hPort, "found").bDelivered);
  EXPECT_EQ(Port().strDelivered, "found");
}

TEST_F(PortMonitorPath, PortNameIsTakenOnceWithoutRegardToCase) {
  const HANDLE hPort = Open("COM1");
  EXPECT_EQ(Open("COM1"), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_BUSY);
  EXPECT_EQ(Open("com1"), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_BUSY);
  EXPECT_TRUE(PrintOn(hPort, "still there").bDelivered);
}

TEST_F(PortMonitorPath, SecondJobIsBusyAndTheFirstGoesOn) {
  const HANDLE hPort = Open("COM1");
  const DWORD dwFirst = world().spooler.NewJob("Till", "RAW");
  const DWORD dwSecond = world().spooler.NewJob("Till", "RAW");
  ASSERT_TRUE(world().spooler.StartDoc(hPort, dwFirst));
  EXPECT_FALSE(world().spooler.StartDoc(hPort, dwSecond));
  EXPECT_EQ(GetLastError(), ERROR_BUSY);
  EXPECT_EQ(World::LogCount("ERROR_BUSY [pszPrinterName:Till, JobId:2]"), 1u);
  EXPECT_TRUE(world().spooler.EndDoc(hPort));
  EXPECT_EQ(world().spooler.FindJob(dwFirst)->nLastPageEjected, 1u);
  EXPECT_TRUE(world().spooler.StartDoc(hPort, dwSecond));
  EXPECT_TRUE(world().spooler.EndDoc(hPort));
}

TEST_F(PortMonitorPath, CloseReportsAJobThatWasNeverEnded) {
  const HANDLE hPort = Open("COM1");
  const DWORD dwJob = world().spooler.NewJob("Till", "RAW");
  ASSERT_TRUE(world().spooler.StartDoc(hPort, dwJob));
  EXPECT_TRUE(world().spooler.ClosePort(hPort));
  EXPECT_EQ(world().journal.Of("SetJob"), std::vector<std::string>{"SetJob 1 last-page-ejected"});
  EXPECT_EQ(world().journal.Entries().back(), "port ClosePort COM1");
}

TEST_F(PortMonitorPath, EndWithoutAJobMakesThePortIdle) {
  const HANDLE hPort = Open("COM1");
  EXPECT_TRUE(world().spooler.EndDoc(hPort));
  EXPECT_EQ(World::LogCount("[W] \t[DRV_LM ] \tMonEndDocPort"), 1u);
  EXPECT_TRUE(PrintOn(hPort, "x").bDelivered);
}

TEST_F(PortMonitorPath, MissingSlotsOfThePortMonitorAreNotSupported) {
  world().portMonitor.table.pfnStartDocPort = nullptr;
  const HANDLE hPort = Open("COM1");
  EXPECT_EQ(PrintOn(hPort, "x").dwError, ERROR_NOT_SUPPORTED);
  world().spooler.ClosePort(hPort);
  world().portMonitor.table = sim::PortMonitor(world().journal).table;
  world().portMonitor.table.pfnEndDocPort = nullptr;
  world().portMonitor.table.pfnClosePort = nullptr;
  const HANDLE hWithoutEnd = Open("COM1");
  EXPECT_TRUE(PrintOn(hWithoutEnd, "x").bDelivered);
  EXPECT_TRUE(world().spooler.ClosePort(hWithoutEnd));
  world().portMonitor.table.pfnOpenPort = nullptr;
  EXPECT_EQ(Open("COM1"), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_NOT_SUPPORTED);
}

// ---- bad arguments ----------------------------------------------------------------------------------------------------

// Whether a call fails with "invalid parameter".
bool Refused(const std::function<BOOL()>& call) {
  SetLastError(0);
  return !call() && GetLastError() == ERROR_INVALID_PARAMETER;
}

TEST_F(PortMonitorPath, BadArgumentsAreRefusedAndThePortStaysIdle) {
  MONITOR2& monitor = *world().spooler.pMonitor;
  HANDLE hPort = nullptr;
  BYTE by = 'x';
  DWORD dw = 77;
  wchar_t szPort[] = L"COM1";
  wchar_t szName[] = L"Till";
  wchar_t szNone[] = L"";
  MONITOR2* pPortMonitor = world().spooler.pPortMonitor;
  EXPECT_TRUE(Refused([&] { return monitor.pfnOpenPortEx(nullptr, nullptr, nullptr, szName, &hPort, pPortMonitor); }));
  EXPECT_TRUE(Refused([&] { return monitor.pfnOpenPortEx(nullptr, nullptr, szNone, szName, &hPort, pPortMonitor); }));
  EXPECT_TRUE(Refused([&] { return monitor.pfnOpenPortEx(nullptr, nullptr, szPort, szName, nullptr, pPortMonitor); }));
  EXPECT_TRUE(Refused([&] { return monitor.pfnOpenPortEx(nullptr, nullptr, szPort, nullptr, &hPort, pPortMonitor); }));
  EXPECT_EQ(hPort, nullptr);
  for (const char* pszLine : {"ERROR_INVALID_PARAMETER [pszPortName:Invalid param]",
                              "ERROR_INVALID_PARAMETER [pszPortName:null]", "Memory error [pIniPort:"})
    EXPECT_EQ(World::LogCount(pszLine), 1u) << pszLine;
  hPort = Open("COM1");
  EXPECT_TRUE(Refused([&] { return monitor.pfnStartDocPort(hPort, szName, 1, 2, &by); }));
  EXPECT_TRUE(Refused([&] { return monitor.pfnStartDocPort(hPort, szName, 1, 1, nullptr); }));
  EXPECT_TRUE(Refused([&] { return monitor.pfnStartDocPort(hPort, szNone, 1, 1, &by); }));
  EXPECT_TRUE(Refused([&] { return monitor.pfnStartDocPort(hPort, nullptr, 1, 1, &by); }));
  EXPECT_TRUE(Refused([&] { return monitor.pfnWritePort(hPort, &by, 1, nullptr); }));
  EXPECT_TRUE(Refused([&] { return monitor.pfnWritePort(hPort, nullptr, 1, &dw); }));
  EXPECT_TRUE(Refused([&] { return monitor.pfnWritePort(hPort, &by, 0, &dw); }));
  EXPECT_TRUE(Refused([&] { return monitor.pfnReadPort(hPort, &by, 1, nullptr); }));
  EXPECT_TRUE(Refused([&] { return monitor.pfnReadPort(hPort, nullptr, 1, &dw); }));
  EXPECT_TRUE(Refused([&] { return monitor.pfnReadPort(hPort, &by, 0, &dw); }));
  EXPECT_EQ(dw, 77u);
  EXPECT_TRUE(monitor.pfnReadPort(hPort, &by, 1, &dw));
  EXPECT_EQ(dw, 0u);
  EXPECT_TRUE(PrintOn(hPort, "x").bDelivered);
}

TEST_F(PortMonitorPath, BadHandlesAreRefusedEverywhere) {
  MONITOR2& monitor = *world().spooler.pMonitor;
  DWORD adwForeign[64] = {0x12345678};
  BYTE by = 0;
  DWORD dw = 0;
  wchar_t szName[] = L"Till";
  for (const HANDLE hBad : {static_cast<HANDLE>(nullptr), static_cast<HANDLE>(adwForeign)}) {
    EXPECT_TRUE(Refused([&] { return monitor.pfnStartDocPort(hBad, szName, 1, 1, &by); }));
    EXPECT_TRUE(Refused([&] { return monitor.pfnWritePort(hBad, &by, 1, &dw); }));
    EXPECT_TRUE(Refused([&] { return monitor.pfnReadPort(hBad, &by, 1, &dw); }));
    EXPECT_TRUE(Refused([&] { return monitor.pfnEndDocPort(hBad); }));
    EXPECT_TRUE(Refused([&] { return monitor.pfnClosePort(hBad); }));
    EXPECT_TRUE(
        Refused([&] { return monitor.pfnGetPrinterDataFromPort(hBad, 0, szName, nullptr, 0, nullptr, 0, &dw); }));
  }
  EXPECT_GT(World::LogCount("signature:0x12345678"), 0u);
  EXPECT_EQ(World::LogCount("ERROR_INVALID_PARAMETER [PortName:]"), 2u);
}

TEST_F(PortMonitorPath, UnknownPrinterIsRefusedAtTheStart) {
  const HANDLE hPort = Open("COM1");
  EXPECT_EQ(PrintOn(hPort, "x", "RAW", {}, "Nobody").dwError, ERROR_INVALID_PRINTER_NAME);
  EXPECT_EQ(World::LogCount("OpenPrinter [err:1801, PrinterName:Nobody]"), 1u);
}

TEST_F(PortMonitorPath, InitialiseNeedsTheSpoolersRecord) {
  HANDLE hMonitor = nullptr;
  EXPECT_EQ(InitializePrintMonitor2(nullptr, &hMonitor), nullptr);
  MONITORREG registry = {};
  MONITORINIT init = {};
  init.pMonitorReg = &registry;
  init.hckRegistryRoot = reinterpret_cast<decltype(init.hckRegistryRoot)>(&init);
  EXPECT_EQ(InitializePrintMonitor2(&init, &hMonitor), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  init.hSpooler = &init;
  const MONITOR2* pTable = InitializePrintMonitor2(&init, &hMonitor);
  ASSERT_NE(pTable, nullptr);
  EXPECT_EQ(hMonitor, &init);
  EXPECT_EQ(pTable->cbSize, 176u);
  int nSlots = 0;
  for (std::size_t n = 0; n < 21; ++n)
    nSlots += reinterpret_cast<void* const*>(reinterpret_cast<const BYTE*>(pTable) + 8)[n] != nullptr ? 1 : 0;
  EXPECT_EQ(nSlots, 8);
}

// Four ports at once, each with its own jobs.
TEST_F(PortMonitorPath, FourPortsPrintAtOnce) {
  constexpr int kPorts = 4;
  HANDLE ahPorts[kPorts];
  for (int n = 0; n < kPorts; ++n) {
    world().AddPrinter(sim::Format("Till %d", n), sim::Format("COM%d", n + 2), kModel);
    ahPorts[n] = Open(sim::Format("COM%d", n + 2), sim::Format("Till %d", n));
  }
  for (int nRound = 0; nRound < 3; ++nRound) {
    std::vector<std::unique_ptr<sim::Spooler::Running>> jobs;
    for (int n = 0; n < kPorts; ++n)
      jobs.push_back(world().spooler.PrintAsync(ahPorts[n], world().spooler.NewJob(sim::Format("Till %d", n), "TEXT"),
                                                Receipt(40'000, static_cast<char>('A' + n))));
    for (auto& pJob : jobs) EXPECT_TRUE(pJob->Join().bDelivered);
  }
  for (int n = 0; n < kPorts; ++n) {
    const std::string strJob = Receipt(40'000, static_cast<char>('A' + n));
    EXPECT_EQ(world().portMonitor.Port(sim::Format("COM%d", n + 2)).strDelivered, strJob + strJob + strJob);
    world().spooler.ClosePort(ahPorts[n]);
  }
}

}  // namespace
