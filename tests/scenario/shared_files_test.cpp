// What other programs and users do to the log's and the archive's files: hold them, lock them, replace what lies around them.
// Printing goes on, and a file counts only where it lies.
#include <atomic>

#include "common/job_archive.h"
#include "monitor/log_module.h"
#include "tests/support/world_test.h"

#ifndef _WIN32
using namespace testing_support;
using sim::World;

namespace {

constexpr char kSharedArchive[] = "C:\\Jobs";
constexpr std::uint64_t kDay = 86'400'000;

class SharedFiles : public WorldTest {
 protected:
  SharedFiles() {
    World::DeleteTree(kSharedArchive);
    world().services.dwState = SERVICE_STOPPED;
    m_pQueue = &world().AddPrinter("Till", "COM1", kModel);
    m_pQueue->data["JobFilePath"] = sim::Spooler::Text(kSharedArchive);
    m_pQueue->data["JobSettingFlags"] = sim::Spooler::Dword(1);
    m_pQueue->data["UtilityGUID"] = sim::Spooler::Text("{1}");
    m_hPort = Open("COM1");
  }
  ~SharedFiles() override {
    w32::DropOplocks();
    w32::RefuseNormalizedNames(false);
    sim::SetClient(1);
    World::DeleteTree(kSharedArchive);
  }
  static sim::WideString LogFile() { return sim::Wide(World::LogFolder() + "\\20261118.log"); }
  static std::string DayFolder() { return std::string(kSharedArchive) + "\\20261118"; }
  static std::string LastArchived() {
    const auto files = World::ArchivedFiles(kSharedArchive);
    return files.empty() ? std::string() : files.rbegin()->second;
  }
  // Milliseconds that a job takes; it is delivered.
  DWORD Print(const std::string& strData, const sim::PrintOptions& options = {}) {
    const DWORD dwStart = GetTickCount();
    EXPECT_TRUE(PrintOn(m_hPort, strData, "RAW", options).bDelivered);
    return GetTickCount() - dwStart;
  }
  sim::Queue* m_pQueue = nullptr;
  HANDLE m_hPort = nullptr;
};

TEST_F(SharedFiles, OpportunisticLockThatIsNeverGivenUpStopsNobody) {
  Print("first");
  w32::HoldOplock(LogFile().c_str());
  EXPECT_LT(Print("the log is locked"), 1000u);
  w32::DropOplocks();
  Print("free again");
  EXPECT_GT(World::LogCount("\r\n*"), 0u);  // some lines were held, the others lost and told of
  EXPECT_EQ(World::LogCount("<=== Log output here failed"), 1u);

  const auto lock = AtByte(
      5, [&] { w32::HoldOplock(sim::Wide(DayFolder() + "\\" + World::ListFolder(DayFolder()).back()).c_str()); }, 5);
  EXPECT_LT(Print("0123456789", lock), 1000u);
  w32::DropOplocks();
  EXPECT_EQ(LastArchived(), "01234");
  EXPECT_EQ(World::LogCount("Fail to open the output job file. ["), 1u);
}

TEST_F(SharedFiles, OpportunisticLockThatIsGivenUpInTimeCostsNoLine) {
  Print("first");
  w32::HoldOplock(LogFile().c_str());
  SideThread owner([] {
    Sleep(30);
    w32::DropOplocks();
  });
  LogE(L"%s", L"beside its owner");
  owner.Join();
  EXPECT_EQ(World::LogCount("\tbeside its owner\r\n"), 1u);
}

TEST_F(SharedFiles, ScannerThatHoldsAFileForSomeMillisecondsCostsNoLineAndNoByte) {
  Print("first");
  w32::RefuseSharing(LogFile().c_str(), 30);
  LogE(L"%s", L"beside the scanner");
  EXPECT_EQ(World::LogCount("beside the scanner\r\n"), 1u);
  EXPECT_EQ(World::LogCount("\r\n*"), 0u);
  const auto scan = AtByte(
      5, [&] { w32::RefuseSharing(sim::Wide(DayFolder() + "\\" + World::ListFolder(DayFolder()).back()).c_str(), 30); },
      5);
  Print("0123456789", scan);
  EXPECT_EQ(LastArchived(), "0123456789");
  // One that holds it on costs the log 50 ms a second, and a job 50 ms.
  w32::RefuseSharing(LogFile().c_str(), 2500);
  const DWORD dwStart = GetTickCount();
  for (int n = 0; n < 200; ++n) LogE(L"%s", L"held");
  EXPECT_LT(GetTickCount() - dwStart, 200u);
}

TEST_F(SharedFiles, ArchiveRootThatAUserReplacedByALinkIsNotFollowed) {
  Print("makes the root");
  CreateDirectoryW(L"C:\\Elsewhere", nullptr);
  CreateDirectoryW(L"C:\\Elsewhere\\old", nullptr);
  World::WriteWholeFile("C:\\Elsewhere\\old\\file", "somebody's");
  ASSERT_TRUE(MoveFileW(sim::Wide(kSharedArchive).c_str(), L"C:\\Aside"));
  ASSERT_TRUE(CreateSymbolicLinkW(sim::Wide(kSharedArchive).c_str(), L"C:\\Elsewhere", SYMBOLIC_LINK_FLAG_DIRECTORY));
  w32::GiveToAUser(sim::Wide(kSharedArchive).c_str());
  w32::AdvanceClock(3 * kDay);
  Print("is printed, and nothing else");
  EXPECT_EQ(World::LogCount("Can't access the output job folder. [C:\\Jobs]"), 1u);
  EXPECT_EQ(World::ArchivedFiles("C:\\Elsewhere"), (std::map<std::string, std::string>{{"old\\file", "somebody's"}}));
  RemoveDirectoryW(sim::Wide(kSharedArchive).c_str());
  World::DeleteTree("C:\\Elsewhere");
  World::DeleteTree("C:\\Aside");
}

TEST_F(SharedFiles, PlaceholdersAndDeduplicatedFilesAreOrdinaryOnes) {
  constexpr DWORD kCloudTag = 0x9000001A;
  constexpr DWORD kDedupTag = 0x80000013;
  Print("first");
  w32::SetReparseTag(LogFile().c_str(), kDedupTag);
  w32::SetReparseTag(sim::Wide(World::LogFolder()).c_str(), kCloudTag);
  w32::SetReparseTag(sim::Wide(DayFolder()).c_str(), kCloudTag);
  const std::size_t nLines = World::LogCount("MonStartDocPort");
  const auto tag = AtByte(
      5,
      [&] {
        w32::SetReparseTag(sim::Wide(DayFolder() + "\\" + World::ListFolder(DayFolder()).back()).c_str(), kDedupTag);
      },
      5);
  Print("0123456789", tag);
  EXPECT_EQ(LastArchived(), "0123456789");
  EXPECT_GT(World::LogCount("MonStartDocPort"), nLines);
  EXPECT_EQ(World::LogCount("\r\n*"), 0u);
  w32::AdvanceClock(3 * kDay);
  Print("ages the folder with all it holds");
  EXPECT_FALSE(Exists(DayFolder()));
}

// The quick way opens by the full path: what lies there is then another file, and the line is held.
TEST_F(SharedFiles, FoldersThatAreSwappedBetweenTwoLinesMisleadNoLine) {
  Print("first");
  CreateDirectoryW(L"C:\\Elsewhere", nullptr);
  World::WriteWholeFile("C:\\Elsewhere\\20261118.log", "somebody's");
  const std::string strAside = World::LogFolder() + ".aside";
  ASSERT_TRUE(MoveFileW(sim::Wide(World::LogFolder()).c_str(), sim::Wide(strAside).c_str()));
  ASSERT_TRUE(
      CreateSymbolicLinkW(sim::Wide(World::LogFolder()).c_str(), L"C:\\Elsewhere", SYMBOLIC_LINK_FLAG_DIRECTORY));
  LogE(L"%s", L"between");
  RemoveDirectoryW(sim::Wide(World::LogFolder()).c_str());
  ASSERT_TRUE(MoveFileW(sim::Wide(strAside).c_str(), sim::Wide(World::LogFolder()).c_str()));
  LogE(L"%s", L"afterwards");
  std::string strOther;
  World::ReadWholeFile("C:\\Elsewhere\\20261118.log", strOther);
  EXPECT_EQ(strOther, "somebody's");
  EXPECT_EQ(World::LogCount("between\r\n"), 1u);
  EXPECT_EQ(World::LogCount("afterwards\r\n"), 1u);
  World::DeleteTree("C:\\Elsewhere");
}

TEST_F(SharedFiles, AgeingBesideAReaderLeavesTheFolderForTheNextDay) {
  m_pQueue->data["JobValidDays"] = sim::Spooler::Dword(0);
  Print("read by somebody");
  const std::string strFile = DayFolder() + "\\" + World::ListFolder(DayFolder()).back();
  const HANDLE hReader = CreateFileW(sim::Wide(strFile).c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE,
                                     nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(hReader, INVALID_HANDLE_VALUE);
  w32::AdvanceClock(2 * kDay);
  Print("runs the ageing");
  char szRead[20] = {};
  DWORD cbRead = 0;
  EXPECT_TRUE(ReadFile(hReader, szRead, 16, &cbRead, nullptr));  // it reads on
  EXPECT_STREQ(szRead, "read by somebody");
  CloseHandle(hReader);
  EXPECT_FALSE(Exists(strFile));
  w32::AdvanceClock(2 * kDay);
  Print("and again");
  EXPECT_FALSE(Exists(DayFolder()));
}

TEST_F(SharedFiles, VolumeThatTellsOnlyOpenedNamesIsArchivedTo) {
  w32::RefuseNormalizedNames(true);
  Print("on a share");
  EXPECT_EQ(LastArchived(), "on a share");
}

TEST_F(SharedFiles, EachClientsWordIsKeptInItsOwnHiveAndOneWithoutAHiveIsRememberedFor) {
  const auto old = [] { CreateDirectoryW(L"C:\\Jobs\\old", nullptr); };
  const auto isThere = [] { return Exists("C:\\Jobs\\old"); };
  m_pQueue->data["JobValidDays"] = sim::Spooler::Dword(0);
  Print("the first client's word is stored");
  sim::SetClient(2);
  old();
  w32::AdvanceClock(3'600'000);
  Print("the second one has none yet");
  EXPECT_FALSE(isThere());
  sim::SetClient(3);
  w32::RefuseHive(3, true);
  old();
  w32::AdvanceClock(3'600'000);
  Print("the third one has no profile");
  EXPECT_FALSE(isThere());
  EXPECT_EQ(World::LogCount("The day of the archive's ageing is kept in memory alone. [C:\\Jobs]"), 1u);
  old();
  w32::AdvanceClock(3'600'000);
  Print("an hour later");
  EXPECT_TRUE(isThere());
  w32::AdvanceClock(26 * 3'600'000);
  Print("a day later");
  EXPECT_FALSE(isThere());
  EXPECT_EQ(World::LogCount("The day of the archive's ageing is kept in memory alone. [C:\\Jobs]"), 2u);
  w32::RefuseHive(3, false);
}

// At low integrity, or in a container: what such a client cannot write itself goes out with the spooler's next line.
TEST_F(SharedFiles, LinesOfAClientThatMayNotWriteAreHeldForTheSpoolers) {
  LogE(L"%s", L"the file is there");
  {
    const w32::FaultsOn faults;
    w32::FailCalls("CreateFileW", 100, 0, ERROR_ACCESS_DENIED);
    LogE(L"%s", L"a client's line");
  }
  w32::ResetFaults();
  EXPECT_EQ(World::LogCount("a client's line"), 0u);
  LogE(L"%s", L"the spooler's line");
  EXPECT_EQ(World::LogCount("a client's line\r\n"), 1u);
}

class HeldMutex : public WorldTest {};

// 59 s at a time, with a moment between: neither a receipt nor ten of them wait for it for long.
TEST_F(HeldMutex, HolderInWhateverRhythmCostsAMinuteInTen) {
  world().services.dwState = SERVICE_STOPPED;
  world().AddPrinter("Till", "COM1", kModel);
  const HANDLE hPort = Open("COM1");
  for (const DWORD dwHeld : {59'000u, 900u, 45u}) {
    w32::AdvanceClock(1'200'000);
    for (int n = 0; n < 12; ++n) LogE(L"%s", L"served at once");
    std::atomic<bool> bStop{false};
    const HANDLE hMutex = CreateMutexW(nullptr, FALSE, L"Global\\Kelvane_SDK_LOGS2");
    SideThread holder([&] {
      while (!bStop) {
        WaitForSingleObject(hMutex, INFINITE);
        Sleep(dwHeld);
        ReleaseMutex(hMutex);
        Sleep(1);
      }
    });
    Sleep(10);
    const DWORD dwStart = GetTickCount();
    EXPECT_TRUE(PrintOn(hPort, Receipt(500)).bDelivered);
    EXPECT_LE(GetTickCount() - dwStart, 65'000u) << dwHeld;
    for (int n = 0; n < 30; ++n) EXPECT_TRUE(PrintOn(hPort, Receipt(500)).bDelivered);
    EXPECT_LE(GetTickCount() - dwStart, 90'000u) << dwHeld;
    bStop = true;
    holder.Join();
    CloseHandle(hMutex);
  }
}

}  // namespace
#endif
