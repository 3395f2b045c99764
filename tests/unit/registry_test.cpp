// The port list and the job lists.
#include "base/memory.h"
#include "base/owners.h"
#include "monitor/port_list.h"
#include "tests/support/world_test.h"

using namespace testing_support;
using sim::World;

namespace {

class Registry : public WorldTest {
 protected:
  Registry() {
    world().AddPrinter("Till", "COM1", kModel);
    const SectionLock lock(csMonitor);
    m_pPort = CreatePortEntry(L"Till", L"COM1");
  }
  ~Registry() override {
    const SectionLock lock(csMonitor);
    if (m_pPort != nullptr) DeletePortEntry(m_pPort);
  }
  // Pushes a job at the head of the list.
  IniJob* Push(DWORD dwId) {
    auto* pJob = static_cast<IniJob*>(AllocZeroed(sizeof(IniJob)));
    pJob->JobId = dwId;
    OpenPrinterW(sim::Wide("Till").data(), &pJob->hPrinter, nullptr);
    pJob->pNext = m_pPort->pIniJob;
    m_pPort->pIniJob = pJob;
    return pJob;
  }
  std::vector<std::string> Reported() { return world().journal.Of("SetJob"); }
  IniPort* m_pPort = nullptr;
};

TEST_F(Registry, PortIsFoundByNameWithoutRegardToCase) {
  const SectionLock lock(csMonitor);
  EXPECT_EQ(FindIniPort(L"com1"), m_pPort);
  EXPECT_EQ(FindIniPort(L"COM2"), nullptr);
  EXPECT_EQ(FindIniPort(L""), nullptr);
  EXPECT_EQ(FindIniPort(nullptr), nullptr);
  EXPECT_EQ(CreatePortEntry(nullptr, L"COM5"), nullptr);
  EXPECT_EQ(FindIniPort(L"COM5"), nullptr);
}

TEST_F(Registry, RecordOutsideTheListStaysUntouched) {
  IniPort foreign = {};
  foreign.signature = kPortSignature;
  const SectionLock lock(csMonitor);
  DeletePortEntry(&foreign);
  EXPECT_EQ(foreign.signature, kPortSignature);
  EXPECT_EQ(World::LogCount("DeletePortEntry port not found"), 1u);
}

TEST_F(Registry, EndedJobTakesOlderOnesAlongAndLeavesNewerOnes) {
  for (int n = 0; n < 3; ++n) world().spooler.NewJob("Till", "RAW");
  Push(1);
  IniJob* pSecond = Push(2);
  SendJobLastPageEjected(m_pPort, 7);
  EXPECT_TRUE(Reported().empty());
  SendJobLastPageEjected(m_pPort, 1);
  EXPECT_EQ(Reported(), std::vector<std::string>{"SetJob 1 last-page-ejected"});
  EXPECT_EQ(m_pPort->pIniJob, pSecond);
  EXPECT_EQ(pSecond->pNext, nullptr);
  Push(3);
  world().journal.Clear();
  SendJobLastPageEjected(m_pPort, 3);
  EXPECT_EQ(Reported(), (std::vector<std::string>{"SetJob 3 last-page-ejected", "SetJob 2 last-page-ejected"}));
  EXPECT_EQ(m_pPort->pIniJob, nullptr);
  for (DWORD dwId = 1; dwId <= 2; ++dwId) Push(dwId);
  world().journal.Clear();
  SendJobLastPageEjected(m_pPort, ALL_JOBS);
  EXPECT_EQ(Reported(), (std::vector<std::string>{"SetJob 2 last-page-ejected", "SetJob 1 last-page-ejected"}));
}

TEST_F(Registry, OldestOfTwoJobsWithOneIdIsMeant) {
  world().spooler.NewJob("Till", "RAW");
  Push(1);
  IniJob* pNewer = Push(1);
  IniJob* pPrev = nullptr;
  EXPECT_EQ(FindIniJobFromJobId(m_pPort, 1, &pPrev), pNewer->pNext);
  EXPECT_EQ(pPrev, pNewer);
  SendJobLastPageEjected(m_pPort, 1);
  EXPECT_EQ(m_pPort->pIniJob, pNewer);
}

TEST_F(Registry, WalkStopsAtAJobLinkedToItself) {
  world().spooler.NewJob("Till", "RAW");
  IniJob* pJob = Push(1);
  pJob->pNext = pJob;
  IniJob* pPrev = nullptr;
  EXPECT_EQ(FindIniJobFromJobId(m_pPort, 1, &pPrev), pJob);
  SendJobLastPageEjected(m_pPort, 1);
  EXPECT_EQ(Reported().size(), 1u);
  EXPECT_EQ(World::LogCount("pIniJob==pIniJob->pNext"), 1u);
}

}  // namespace
