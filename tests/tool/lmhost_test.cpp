// lmhost as its users meet it: what it prints and how it exits.
#include <gtest/gtest.h>

#include <fstream>

#include "tests/tool/tool_run.h"

namespace {

class Lmhost : public ::testing::Test {
 protected:
  Lmhost() {
    std::ofstream file(Receipt(), std::ios::binary);
    for (int n = 0; n < 300; ++n) file << "A line of a receipt, number " << n << "\n";
    file << "\x13(clr)";
  }
  // With a world of this test's own.
  ToolRun Tool(const std::string& strArguments, bool bRoot = true) {
    return RunTool("lmhost " + strArguments + (bRoot ? " --root " + (m_folder / "world") : ""));
  }
  std::string Receipt() const { return m_folder / "receipt.prn"; }

  TestFolder m_folder;
};

TEST_F(Lmhost, PrintsOnTheDeviceAndSaysSo) {
  const ToolRun run = Tool("print " + Receipt() + " " + Receipt());
  EXPECT_EQ(run.nExit, 0);
  EXPECT_TRUE(run.Says("summary: 2 of 2 jobs whole on paper")) << run.strOutput;
  EXPECT_TRUE(run.Says("path      device-access library"));
  EXPECT_TRUE(run.Says("0 calls refused"));
}

TEST_F(Lmhost, TellsWhyTheJobsTookThePortMonitor) {
  const std::pair<const char*, const char*> cases[] = {{"--service stopped", "service is stopped"},
                                                       {"--service absent", "service is not installed"},
                                                       {"--no-library", "library is missing"},
                                                       {"--port FILE:", "does not serve this kind of port"}};
  for (const auto& [pszOption, pszReason] : cases) {
    const ToolRun run = Tool("print " + Receipt() + " --datatype TEXT " + pszOption);
    EXPECT_EQ(run.nExit, 0) << pszOption;
    EXPECT_TRUE(run.Says(pszReason)) << run.strOutput;
  }
}

TEST_F(Lmhost, LostReceiptIsPrintedAgainAndTheResponseIsNamed) {
  const ToolRun run = Tool("print " + Receipt() +
                           " --datatype TEXT --auto-reprint --speed 4000 --fault paper-end@5000:4 "
                           "--archive 'C:\\Copies'");
  EXPECT_EQ(run.nExit, 0);
  EXPECT_TRUE(run.Says("waiting: paper-end")) << run.strOutput;
  EXPECT_TRUE(run.Says("reprinting"));
  EXPECT_TRUE(run.Says("whole on paper, confirmed by 82 after 1 reprint"));
  EXPECT_TRUE(run.Says("the same as on the wire and on paper"));
  EXPECT_TRUE(Tool("print " + Receipt() + " --auto-reprint --share Front --driver 'kelvane tagline 62'")
                  .Says("confirmed by C9"));
  EXPECT_TRUE(Tool("print " + Receipt() + " --auto-reprint").Says("not confirmed"));
}

TEST_F(Lmhost, DeletedJobIsNotADeliveredOne) {
  const ToolRun run = Tool("print " + Receipt() + " --cancel-at 1");
  EXPECT_EQ(run.nExit, 1);
  EXPECT_TRUE(run.Says("receipt.prn: deleted")) << run.strOutput;
}

TEST_F(Lmhost, ArchiveFollowsEitherKindOfSetting) {
  const std::filesystem::path archive = m_folder / "world/c/Copies";
  EXPECT_TRUE(Tool("print " + Receipt() + " --archive 'C:\\Copies' --keep 3 --datatype TEXT --service stopped")
                  .Says("the same as on the wire and on paper"));
  ASSERT_TRUE(std::filesystem::exists(archive));
  std::filesystem::remove_all(archive);
  const std::string strFlagModel =
      "print " + Receipt() + " --driver 'Kelvane PX-9' --archive 'C:\\Copies' --archive-flags ";
  EXPECT_TRUE(Tool(strFlagModel + "0 2 0 0 0 1").Says("the same as on the wire"));
  EXPECT_FALSE(std::filesystem::is_empty(archive));
  const ToolRun off =
      Tool(strFlagModel + "0 2 0 0 0 0");  // switched off: nothing is archived, and the summary says that
  EXPECT_TRUE(off.Says("archive   0 bytes, nothing was archived")) << off.strOutput;
  EXPECT_EQ(off.nExit, 0);
}

TEST_F(Lmhost, WrongUseExitsWithTwoAndAMissingFileWithOne) {
  EXPECT_EQ(Tool("", false).nExit, 2);
  EXPECT_EQ(Tool("print", false).nExit, 2);
  EXPECT_EQ(Tool("print x --nonsense").nExit, 2);
  EXPECT_EQ(Tool("print " + Receipt() + " --log-level Q").nExit, 2);
  EXPECT_EQ(Tool("print " + Receipt() + " --archive-flags 1 2").nExit, 2);
  for (const char* pszFault : {"fire@1", "paper-end", "paper-end@1:x", "paper-end@1:-1"})
    EXPECT_EQ(Tool("print " + Receipt() + " --fault " + pszFault).nExit, 2) << pszFault;
  const ToolRun run = Tool("print nowhere.prn");
  EXPECT_EQ(run.nExit, 1);
  EXPECT_TRUE(run.Says("cannot read nowhere.prn"));
  EXPECT_EQ(Tool("--help", false).nExit, 0);
}

TEST_F(Lmhost, JobWithoutDataIsDelivered) {
  const ToolRun run = Tool("print /dev/null");
  EXPECT_EQ(run.nExit, 0) << run.strOutput;
  EXPECT_TRUE(run.Says("delivered, without data")) << run.strOutput;
}

TEST_F(Lmhost, ModelsAreListed) {
  const ToolRun run = Tool("models", false);
  EXPECT_EQ(run.nExit, 0);
  EXPECT_EQ(Lines(run.strOutput), 13u);
  EXPECT_TRUE(run.Says("Kelvane DT-7/DT-8"));
}

}  // namespace
