// What lmhost finds out about a job: on the wire, on paper, in the archive.
#include "tools/lmhost/job_check.h"

#include "tests/support/world_test.h"

using namespace testing_support;
using sim::World;

namespace {

constexpr char kRoot[] = "C:\\CheckedArchive";

class JobCheckTest : public WorldTest {
 protected:
  JobCheckTest() {
    World::DeleteTree(kRoot);
    sim::Queue& queue = world().AddPrinter("Till", "USB001", kModel);
    queue.data["JobFilePath"] = sim::Spooler::Text(kRoot);
    queue.data["JobSettingFlags"] = sim::Spooler::Dword(1);
    m_hPort = Open("USB001");
  }
  ~JobCheckTest() override { world().spooler.ClosePort(m_hPort); }
  lmhost::JobCheck::Outcome Check(const sim::PrintOptions& options = {}) {
    const lmhost::JobCheck check(world(), "USB001", "Till", kRoot);
    EXPECT_TRUE(PrintOn(m_hPort, Receipt(3000), "TEXT", options).bDelivered);
    return check.Compare(Receipt(3000));
  }
  HANDLE m_hPort = nullptr;
};

TEST_F(JobCheckTest, BufferThatTheArchiveMissesIsNoticed) {
  sim::PrintOptions options;
  options.cbChunk = 1000;
  HANDLE hHeld = INVALID_HANDLE_VALUE;
  options.onProgress = [&](std::uint64_t ullDone) {
    if (ullDone == 1000)
      hHeld = CreateFileW(sim::Wide(std::string(kRoot) + "\\" + World::ArchivedFiles(kRoot).begin()->first).c_str(),
                          GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (ullDone == 2000) CloseHandle(hHeld);
  };
  const auto outcome = Check(options);
  EXPECT_EQ(outcome.nWholeLast, 1u);
  EXPECT_EQ(outcome.cbArchived, 2000u);
  EXPECT_FALSE(outcome.bArchiveIsWire);
}

TEST_F(JobCheckTest, PaperThatLostAJobIsNoticed) {
  world().PrinterOf("USB001").Plan({sim::FaultKind::PowerCycle, 1500, 100});
  const auto outcome = Check();
  EXPECT_EQ(outcome.nWholeAll, 0u);
  EXPECT_TRUE(outcome.bArchiveIsWire);
  EXPECT_FALSE(outcome.bArchiveIsPaper);
}

}  // namespace
