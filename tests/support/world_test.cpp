#include "tests/support/world_test.h"

using sim::World;

namespace testing_support {

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
  World::CleanMachine();
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
  EXPECT_EQ(w32::Leaks(m_before), "");
#endif
}

sim::PrintResult WorldTest::PrintOn(HANDLE hPort, const std::string& strData, const std::string& strDatatype,
                                    const sim::PrintOptions& options, const std::string& strQueue) {
  m_dwLastJob = world().spooler.NewJob(strQueue, strDatatype);
  return world().spooler.Print(hPort, m_dwLastJob, strData, options);
}

#ifndef _WIN32
std::uint64_t FailEveryCall(DWORD dwLogLevels, const Scenario& machine, const Scenario& scenario) {
  const auto run = [&](std::uint64_t ullPoint) {
    World::CleanMachine();
    const w32::Balance before = w32::CurrentBalance();
    {
      World world;
      World::SetLogLevel(dwLogLevels);
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
    EXPECT_EQ(w32::Leaks(before), "") << "call " << ullPoint << " (" << w32::LastFailedApi() << ") failed";
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
