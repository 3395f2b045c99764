// Every call of a whole job fails once: each run must end without a crash, a deadlock or a leak.
#include "tests/support/world_test.h"

using namespace testing_support;

namespace {

void PrintOneJob(sim::World& world, const char* pszPort) {
  const HANDLE hPort = world.spooler.OpenPort(pszPort, "Till");
  if (hPort == nullptr) return;
  world.spooler.Print(hPort, world.spooler.NewJob("Till", "TEXT"), Receipt(100));
  // Whatever failed, the port takes the next job; but a lock that the library did not give back keeps others out.
  {
    const w32::FaultsOn exempt(false);
    const bool bDelivered = world.spooler.Print(hPort, world.spooler.NewJob("Till", "RAW"), "next").bDelivered;
    EXPECT_TRUE(bDelivered || w32::LastFailedApi() == "sdk SDK_CLR_LOCK") << w32::LastFailedApi() << " failed";
  }
  world.spooler.ClosePort(hPort);
}

TEST(FailEveryCall, PortMonitorJob) {
  const auto machine = [](sim::World& world) {
    world.services.dwState = SERVICE_STOPPED;
    world.AddPrinter("Till", "COM1", kModel);
  };
  EXPECT_GT(FailEveryCall(kAllLevels, machine, [](sim::World& world) { PrintOneJob(world, "COM1"); }), 350u);
}

TEST(FailEveryCall, DeviceJobOnAnOpenAlwaysPort) {
  const auto machine = [](sim::World& world) { world.AddPrinter("Till", "USB001", kModel); };
  EXPECT_GT(FailEveryCall(kErrorsAlone, machine, [](sim::World& world) { PrintOneJob(world, "USB001"); }), 80u);
}

TEST(FailEveryCall, DeviceJobOnAPerJobPort) {
  const auto machine = [](sim::World& world) {
    sim::World::SetMachineDword("SOFTWARE\\Kelvane\\PrinterDriver", "OpenWithStartDoc", 1);
    world.AddPrinter("Till", "COM7", kOneByteModel, {.bOneByteStatus = true});
  };
  EXPECT_GT(FailEveryCall(kErrorsAlone, machine, [](sim::World& world) { PrintOneJob(world, "COM7"); }), 80u);
}

TEST(FailEveryCall, JobWithOneReprint) {
  const auto machine = [](sim::World& world) {
    world.AddPrinter("Till", "USB001", kModel, {.cbBuffer = 4096, .dwBytesPerSecond = 20'000}).data["AutoReprint"] =
        sim::Spooler::Dword(1);
    world.PrinterOf("USB001").Plan({sim::FaultKind::PaperEnd, 500, 1500});
  };
  const auto print = [](sim::World& world) {
    const HANDLE hPort = world.spooler.OpenPort("USB001", "Till");
    if (hPort == nullptr) return;
    const DWORD dwJob = world.spooler.NewJob("Till", "TEXT");
    auto pJob = world.spooler.PrintAsync(hPort, dwJob, Receipt(900));
    // A lost request may leave the printer silent for good; then the user deletes the job.
    for (int n = 0; n < 60 && !pJob->Wait(1000); ++n) {
    }
    world.spooler.SetStatus(dwJob, JOB_STATUS_DELETING);
    // Without a watcher nobody sees the deletion: the printer is made to speak again instead.
    while (!pJob->Wait(30'000)) world.PrinterOf("USB001").Plan({sim::FaultKind::PowerCycle, 0, 100});
    world.spooler.ClosePort(hPort);
  };
  EXPECT_GT(FailEveryCall(kErrorsAlone, machine, print), 150u);
}

TEST(FailEveryCall, ArchivedJob) {
  const auto machine = [](sim::World& world) {
    world.services.dwState = SERVICE_STOPPED;
    sim::World::DeleteTree("C:\\Jobs");
    sim::Queue& queue = world.AddPrinter("Till", "COM1", kModel);
    queue.data["JobFilePath"] = sim::Spooler::Text("C:\\Jobs");
    queue.data["JobSettingFlags"] = sim::Spooler::Dword(1);
    queue.data["UtilityGUID"] = sim::Spooler::Text("{1}");
    CreateDirectoryW(L"C:\\Jobs", nullptr);
    CreateDirectoryW(L"C:\\Jobs\\old", nullptr);
    w32::AdvanceClock(72 * 3'600'000);
  };
  EXPECT_GT(FailEveryCall(kErrorsAlone, machine, [](sim::World& world) { PrintOneJob(world, "COM1"); }), 120u);
}

TEST(FailEveryCall, ShareRequest) {
  const auto machine = [](sim::World& world) { world.AddPrinter("Till", "USB001", kModel); };
  const auto ask = [](sim::World& world) {
    const HANDLE hPort = world.spooler.OpenPort("USB001", "Till");
    if (hPort == nullptr) return;
    DWORD dwFlags = 0;
    DWORD cb = 0;
    {
      const sim::ActAsClient client;
      world.spooler.pMonitor->pfnGetPrinterDataFromPort(hPort, 0, sim::Wide("DO_SETTING_SHARE_PRN__Front").data(),
                                                        nullptr, 0, reinterpret_cast<wchar_t*>(&dwFlags),
                                                        sizeof dwFlags, &cb);
    }
    world.spooler.ClosePort(hPort);
  };
  EXPECT_GT(FailEveryCall(kErrorsAlone, machine, ask), 20u);
}

}  // namespace
