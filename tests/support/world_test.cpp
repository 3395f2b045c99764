#include "tests/support/world_test.h"

namespace testing_support {

std::string Receipt(std::size_t cb, char cFirst) {
  std::string str;
  str.reserve(cb);
  for (std::size_t n = 0; n < cb; ++n)
    str +=
        n % 40 == 39 ? '\n' : static_cast<char>('A' + (static_cast<std::size_t>(cFirst - 'A') + n * 7 + n / 40) % 26);
  return str;
}

void CleanMachine() {
  sim::World::DeleteMachineKey("SOFTWARE\\Kelvane\\ThermalPrinterSdk");
  sim::World::DeleteMachineKey("SOFTWARE\\Kelvane\\PrinterDriver");
  sim::World::DeleteMachineKey("SOFTWARE\\Wow6432Node\\Kelvane");
  RegDeleteTreeW(HKEY_CURRENT_USER, L"SOFTWARE\\Kelvane");
  for (const std::string& strName : sim::World::ListFolder(sim::World::LogFolder()))
    DeleteFileW(sim::Wide(sim::World::LogFolder() + "\\" + strName).c_str());
}

Beside::Beside(std::function<void()> act) : m_act(std::move(act)) {
  const auto run = [](LPVOID p) -> DWORD {
    static_cast<Beside*>(p)->m_act();
    return 0;
  };
  DWORD dwThreadId = 0;
  m_hThread = CreateThread(nullptr, 0, run, this, 0, &dwThreadId);
}

void Beside::Join() {
  if (m_hThread == nullptr) return;
  WaitForSingleObject(m_hThread, INFINITE);
  CloseHandle(m_hThread);
  m_hThread = nullptr;
}

sim::PrintOptions AtByte(std::uint64_t ullDone, std::function<void()> act, DWORD cbChunk) {
  sim::PrintOptions options;
  if (cbChunk != 0) options.cbChunk = cbChunk;
  options.onProgress = [=](std::uint64_t ullNow) {
    if (ullNow == ullDone) act();
  };
  return options;
}

bool Exists(const std::string& strPath) {
  return GetFileAttributesW(sim::Wide(strPath).c_str()) != INVALID_FILE_ATTRIBUTES;
}

WorldTest::WorldTest() {
  CleanMachine();
#ifndef _WIN32
  m_before = w32::CurrentBalance();
#endif
  m_world.emplace();
  m_world->Attach();
}

WorldTest::~WorldTest() { EndWorld(); }

void WorldTest::EndWorld() {
  if (!m_world) return;
  m_world->spooler.CloseAllPorts();
  EXPECT_EQ(m_world->library.HeldLocks(), 0u);
  EXPECT_EQ(m_world->journal.Count("violation"), 0u) << m_world->journal.Of("violation").front();
  m_world.reset();
#ifndef _WIN32
  EXPECT_EQ(Leaks(m_before), "");
#endif
}

sim::PrintResult WorldTest::PrintOn(HANDLE hPort, const std::string& strData, const std::string& strDatatype,
                                    const sim::PrintOptions& options, const std::string& strQueue) {
  m_dwLastJob = world().spooler.NewJob(strQueue, strDatatype);
  return world().spooler.Print(hPort, m_dwLastJob, strData, options);
}

#ifndef _WIN32
std::string Leaks(const w32::Balance& before) {
  const w32::Balance now = w32::CurrentBalance();
  std::string str;
  for (std::size_t n = 0; n < now.size(); ++n)
    if (now[n] != before[n])
      str += sim::Format("%s: %+d\n", w32::AccountName(static_cast<w32::Account>(n)), now[n] - before[n]);
  return str;
}

std::uint64_t FailEveryCall(DWORD dwLogLevels, const Scenario& machine, const Scenario& scenario) {
  const auto run = [&](std::uint64_t ullPoint) {
    CleanMachine();
    const w32::Balance before = w32::CurrentBalance();
    {
      sim::World world;
      sim::World::SetLogLevel(dwLogLevels);
      world.Attach();
      machine(world);
      w32::ResetFaults();
      if (ullPoint != 0) w32::FailPoint(ullPoint);
      const w32::FaultsOn faults;
      scenario(world);
      EXPECT_TRUE(world.library.HeldLocks() == 0 || w32::LastFailedApi() == "sdk SDK_CLR_LOCK")
          << "call " << ullPoint << " (" << w32::LastFailedApi() << ") failed";
      // A thread that cannot leave the client's context does its work in it.
      if (w32::LastFailedApi() != "RevertToPrinterSelf") {
        EXPECT_EQ(world.journal.Count("violation"), 0u) << world.journal.Of("violation").front() << ", call "
                                                        << ullPoint << " (" << w32::LastFailedApi() << ") failed";
      }
    }
    EXPECT_EQ(Leaks(before), "") << "call " << ullPoint << " (" << w32::LastFailedApi() << ") failed";
    const std::uint64_t ullPassed = w32::FaultPointsPassed();
    w32::ResetFaults();
    return ullPassed;
  };
  const std::uint64_t ullPoints = run(0);
  for (std::uint64_t ullPoint = 1; ullPoint <= ullPoints && !::testing::Test::HasFailure(); ++ullPoint) run(ullPoint);
  return ullPoints;
}
#endif

}  // namespace testing_support
