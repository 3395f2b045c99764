// The job archive: what it holds, where, for how long, and what it never costs.
#ifndef _WIN32
#include <unistd.h>
#endif

#include "base/memory.h"
#include "common/job_archive.h"
#include "common/job_folders.h"
#include "tests/support/world_test.h"

using namespace testing_support;
using sim::Spooler;
using sim::World;

namespace {

constexpr char kRoot[] = "C:\\KelvaneTestArchive";

class Archive : public WorldTest, public ::testing::WithParamInterface<bool> {
 protected:
  // The parameter: on the device-access path.
  Archive() {
    World::DeleteTree(kRoot);
    world().services.dwState = OnDevice() ? SERVICE_RUNNING : SERVICE_STOPPED;
    m_pQueue = &world().AddPrinter("Till", "USB001", kModel);
    m_pQueue->data["JobFilePath"] = Spooler::Text(kRoot);
    m_pQueue->data["JobSettingFlags"] = Spooler::Dword(1);
    m_hPort = Open("USB001");
  }
  ~Archive() override {
    world().spooler.ClosePort(m_hPort);
    World::DeleteTree(kRoot);
  }
  bool OnDevice() const { return GetParam(); }
  // Every archived file's bytes, in order of the names.
  std::vector<std::string> Archived() {
    std::vector<std::string> files;
    for (const auto& [strName, strBytes] : World::ArchivedFiles(kRoot)) files.push_back(strBytes);
    return files;
  }
  bool Print(const std::string& strData, const std::string& strDatatype = "RAW") {
    return PrintOn(m_hPort, strData, strDatatype).bDelivered;
  }
  sim::Queue* m_pQueue = nullptr;
  HANDLE m_hPort = nullptr;
};

TEST_P(Archive, HoldsWhatThePrinterTookRewrittenBytesIncluded) {
  world().library.SetPartialSends(500);
  world().portMonitor.Port("USB001").cbMostPerWrite = 500;
  const std::string strJob = Receipt(2300) + "\x13(clr)";
  EXPECT_TRUE(Print(strJob, "TEXT"));
  EXPECT_EQ(Archived(), std::vector<std::string>{Receipt(2300) + "\x13(cls)"});
  EXPECT_EQ(world().PrinterOf("USB001").LastStrip(), Archived().front());
}

TEST_P(Archive, ShortRootHoldsWholeNames) {
  m_pQueue->data["JobFilePath"] = Spooler::Text("C:\\J");
  EXPECT_TRUE(Print("x"));
  const auto files = World::ArchivedFiles("C:\\J");
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(files.begin()->first.size(), std::string("YYYYMMDD\\hhmm_ss(mmm).prn").size());
  World::DeleteTree("C:\\J");
}

TEST_P(Archive, SwitchedOffMakesOnlyTheRoot) {
  m_pQueue->data["JobSettingFlags"] = Spooler::Dword(0);
  EXPECT_TRUE(Print("x"));
  EXPECT_TRUE(World::ListFolder(kRoot).empty());
  EXPECT_TRUE(Exists(kRoot));
  m_pQueue->data.erase("JobFilePath");
  m_pQueue->data["JobSettingFlags"] = Spooler::Dword(1);
  World::DeleteTree(kRoot);
  EXPECT_TRUE(Print("x"));
  EXPECT_FALSE(Exists(kRoot));
}

TEST_P(Archive, ValuesOfTheWrongSizeSwitchItOff) {
  for (const std::size_t cb : {0u, 2u, 5u, 8u}) {
    m_pQueue->data["JobSettingFlags"] = Spooler::Bytes(std::vector<BYTE>(cb, 1));
    EXPECT_TRUE(Print("x"));
    EXPECT_TRUE(World::ListFolder(kRoot).empty()) << cb;
  }
  EXPECT_EQ(World::LogCount("Invalid job log lv data on registry."), 2u);  // 0 and 2 bytes
  EXPECT_EQ(World::LogCount("No job log lv data on registry."), 2u);       // 5 and 8 do not fit
}

TEST_P(Archive, SixByteValueServesTheModelsThatKeepIt) {
  world().spooler.ClosePort(m_hPort);
  m_pQueue->strDriver = kFlagModel;
  m_hPort = Open("USB001");
  m_pQueue->data["LogSettingFlags"] = Spooler::Bytes({0, 2, 0, 0, 0, 0});
  EXPECT_TRUE(Print("off"));
  EXPECT_TRUE(World::ListFolder(kRoot).empty());
  m_pQueue->data["LogSettingFlags"] = Spooler::Bytes({0, 2, 0, 0, 0, 1});
  EXPECT_TRUE(Print("on"));
  EXPECT_EQ(Archived(), std::vector<std::string>{"on"});
  m_pQueue->data["LogSettingFlags"] = Spooler::Bytes({0, 2, 0, 0, 1});
  EXPECT_TRUE(Print("five bytes"));
  EXPECT_EQ(Archived().size(), 1u);
  EXPECT_EQ(World::LogCount("Invalid job log lv data on registry."), 1u);
}

TEST_P(Archive, RetentionIndexChoosesTheDaysAndAWrongOneGivesOne) {
  world().spooler.ClosePort(m_hPort);
  m_pQueue->strDriver = kFlagModel;
  m_hPort = Open("USB001");
  constexpr LONG kDays[] = {1, 3, 10, 30, 90, 1, 1, 1};
  for (BYTE byIndex = 0; byIndex < std::size(kDays); ++byIndex) {
    m_pQueue->data["LogSettingFlags"] = Spooler::Bytes({0, byIndex, 0, 0, 0, 1});
    EXPECT_TRUE(Print("x"));
    EXPECT_EQ(gJob.nJobValidDays, kDays[byIndex]) << int{byIndex};
  }
}

TEST_P(Archive, BadRootsNeverKeepAJobFromPrinting) {
  const std::string strLong(521, 'r');
  const std::string strDeep = "C:\\" + std::string(256, 'd');
  for (const std::string& strRoot : {std::string(""), std::string("\\Archive"), std::string("C:\\what<ever"), strLong,
                                     strDeep, strDeep + "d", std::string("Q:\\nowhere")}) {
    m_pQueue->data["JobFilePath"] = Spooler::Text(strRoot);
    EXPECT_TRUE(Print("x")) << strRoot;
  }
  m_pQueue->data["JobFilePath"] = Spooler::Text("KelvaneRelative");  // below the spooler's current folder
  EXPECT_TRUE(Print("x"));
  EXPECT_EQ(World::ArchivedFiles("KelvaneRelative").size(), 1u);
  World::DeleteTree("KelvaneRelative");
  World::WriteWholeFile("C:\\KelvaneTestFile", "a file");
  m_pQueue->data["JobFilePath"] = Spooler::Text("C:\\KelvaneTestFile");
  EXPECT_TRUE(Print("x"));
  EXPECT_GT(World::LogCount("Can't access the output job folder. [C:\\KelvaneTestFile]"), 0u);
  DeleteFileW(L"C:\\KelvaneTestFile");
  // A value that grows between the size query and the read.
  m_pQueue->data["JobFilePath"] = Spooler::Text(kRoot);
  m_pQueue->data["JobFilePath"].cbReported = 8;
  EXPECT_TRUE(Print("x"));
  EXPECT_EQ(World::LogCount("Fail to read job path from registry."), 1u);
}

TEST_P(Archive, DayFolderThatCannotBeMadeMeansNoCopy) {
  SYSTEMTIME st;
  GetLocalTime(&st);
  CreateDirectoryW(sim::Wide(kRoot).c_str(), nullptr);
  const std::string strDay = std::string(kRoot) + sim::Format("\\%04d%02d%02d", st.wYear, st.wMonth, st.wDay);
  World::WriteWholeFile(strDay, "a file has the folder's name");
  EXPECT_TRUE(Print("x"));
  EXPECT_EQ(World::LogCount("Fail to create the output job folder. [" + strDay + "]"), 1u);
  EXPECT_EQ(World::LogCount("Fail to open the output job file."), 0u);
}

TEST_P(Archive, FailureLeavesNoLastErrorForTheSpooler) {
  SetLastError(4711);
  EXPECT_FALSE(gJob.OutputJobFile(L"C:\\nowhere\\job.prn", reinterpret_cast<const BYTE*>("x"), 1));
  EXPECT_EQ(GetLastError(), 4711u);
  SYSTEMTIME st;
  GetLocalTime(&st);
  wchar_t* pszRoot = nullptr;
  wchar_t* pszFile = nullptr;
  SetLastError(4711);
  EXPECT_FALSE(gJob.MakeSettings(nullptr, st, &pszRoot, &pszFile, FALSE));
  gJob.AgeAtJobEnd(nullptr, nullptr);
  EXPECT_EQ(GetLastError(), 4711u);
  EXPECT_FALSE(CreateJobFolder(L""));  // a routine of its own, which tells what was wrong
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

TEST_P(Archive, FileThatIsHeldOpenMissesABuffer) {
  DWORD dwJob = world().spooler.NewJob("Till", "RAW");
  sim::PrintOptions options;
  options.cbChunk = 10;
  HANDLE hHeld = INVALID_HANDLE_VALUE;
  options.onProgress = [&](std::uint64_t ullDone) {
    if (ullDone == 10) {
      const std::string strDay = std::string(kRoot) + "\\" + World::ListFolder(kRoot).front();
      hHeld = CreateFileW(sim::Wide(strDay + "\\" + World::ListFolder(strDay).front()).c_str(), GENERIC_READ,
                          FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    } else if (ullDone == 20) {
      CloseHandle(hHeld);
    }
  };
  EXPECT_TRUE(world().spooler.Print(m_hPort, dwJob, "0123456789abcdefghijKLMNOPQRST", options).bDelivered);
  EXPECT_EQ(Archived(), std::vector<std::string>{"0123456789KLMNOPQRST"});
  EXPECT_EQ(World::LogCount("Fail to open the output job file."), 1u);
}

TEST_P(Archive, RootThatGoesAwayInTheMiddleOfAJobOnlyCostsTheRestOfTheCopy) {
  const auto options = AtByte(
      20, [] { World::DeleteTree(kRoot); }, 10);
  EXPECT_TRUE(PrintOn(m_hPort, Receipt(50), "TEXT", options).bDelivered);
  EXPECT_EQ(world().PrinterOf("USB001").LastStrip(), Receipt(50));
  EXPECT_EQ(World::LogCount("Fail to open the output job file."), 3u);
  EXPECT_TRUE(Print("the next job makes the root anew"));
  EXPECT_EQ(Archived(), std::vector<std::string>{"the next job makes the root anew"});
}

#ifndef _WIN32
TEST_P(Archive, RefusedAndFullDisksOnlyCostTheirBuffer) {
  World::SetLogLevel(0x002);  // so that the archive's calls are the only ones while a buffer is printed
  w32::AdvanceClock(20'000);
  constexpr struct {
    const char* pszApi;
    unsigned nTimes;  // a file is opened the quick way and then, from the root on, carefully
    DWORD dwError;
    const char* pszMessage;
  } kFailures[] = {{"CreateFileW", 2, ERROR_ACCESS_DENIED, "Fail to open the output job file."},
                   {"SetFilePointer", 1, ERROR_INVALID_HANDLE, "Fail to set pointer on the output job file."},
                   {"WriteFile", 1, ERROR_DISK_FULL, "Fail to write to output job file."}};
  for (const auto& failure : kFailures) {
    World::DeleteTree(kRoot);
    const w32::FaultsOn faults;
    const auto options = AtByte(
        10, [&] { w32::FailCalls(failure.pszApi, failure.nTimes, 0, failure.dwError); }, 10);
    EXPECT_TRUE(PrintOn(m_hPort, "0123456789abcdefghijKLMNOPQRST", "TEXT", options).bDelivered);
    const w32::FaultsOn exempt(false);
    EXPECT_EQ(Archived(), std::vector<std::string>{"0123456789KLMNOPQRST"}) << failure.pszApi;
    EXPECT_EQ(World::LogCount(failure.pszMessage), 1u);
  }
  EXPECT_GT(World::LogCount("$$$"), 20u);  // the calls before an error leave their traces, though their levels are off
}
#endif

TEST_P(Archive, AgeingKeepsItsWordInTheQueuesKey) {
  const std::string strGuid = "{01234567-89AB-CDEF-0123-456789ABCDEF}";
  m_pQueue->data["UtilityGUID"] = Spooler::Text(strGuid);
  EXPECT_TRUE(Print("x"));
  HKEY hKey = nullptr;
  ASSERT_EQ(World::OpenClientKey("SOFTWARE\\Kelvane\\Kelvane HM-520\\" + strGuid, KEY_QUERY_VALUE, &hKey),
            ERROR_SUCCESS);
  DWORD dwWord = 0;
  DWORD cb = sizeof dwWord;
  RegQueryValueExW(hKey, L"ChkJobFileTime", nullptr, nullptr, reinterpret_cast<BYTE*>(&dwWord), &cb);
  RegCloseKey(hKey);
  EXPECT_GT(dwWord, 0x01D00000u);  // the high word of a file time of this century
}

INSTANTIATE_TEST_SUITE_P(Paths, Archive, ::testing::Bool(),
                         [](const auto& instance) { return instance.param ? "Device" : "PortMonitor"; });

#ifndef _WIN32  // these turn the clock
class Ageing : public WorldTest {
 protected:
  Ageing() {
    w32::SetClock({2026, 11, 0, 18, 9, 0, 0, 0});
    World::DeleteTree(kRoot);
    world().services.dwState = SERVICE_STOPPED;
    m_pQueue = &world().AddPrinter("Till", "COM1", kModel);
    m_pQueue->data["JobFilePath"] = Spooler::Text(kRoot);
    m_pQueue->data["JobSettingFlags"] = Spooler::Dword(1);
    m_pQueue->data["UtilityGUID"] = Spooler::Text("{1234}");
    m_hPort = Open("COM1");
  }
  static bool There(const std::string& strName) { return Exists(std::string(kRoot) + "\\" + strName); }
  static constexpr std::uint64_t kHour = 3'600'000;
  sim::Queue* m_pQueue = nullptr;
  HANDLE m_hPort = nullptr;
};

TEST_F(Ageing, FolderOf47HoursStaysAndOneOf49Goes) {
  m_pQueue->data["JobValidDays"] = Spooler::Dword(1);
  ASSERT_TRUE(PrintOn(m_hPort, "first").bDelivered);
  CreateDirectoryW(sim::Wide(std::string(kRoot) + "\\.keep").c_str(), nullptr);
  World::WriteWholeFile(std::string(kRoot) + "\\file.txt", "x");
  CreateDirectoryW(sim::Wide(std::string(kRoot) + "\\old").c_str(), nullptr);
  World::WriteWholeFile(std::string(kRoot) + "\\old\\deep.txt", "x");
  w32::AdvanceClock(2 * kHour);
  CreateDirectoryW(sim::Wide(std::string(kRoot) + "\\newer").c_str(), nullptr);
  w32::AdvanceClock(47 * kHour);
  ASSERT_TRUE(PrintOn(m_hPort, "later").bDelivered);
  EXPECT_FALSE(There("20261118"));
  EXPECT_FALSE(There("old"));
  EXPECT_TRUE(There("newer"));
  EXPECT_TRUE(There(".keep"));
  EXPECT_TRUE(There("file.txt"));
}

// On a thread whose stack would not hold a folder a level.
TEST_F(Ageing, FoldersOfAnyDepthNeedTheSameStack) {
  m_pQueue->data["JobValidDays"] = Spooler::Dword(1);
  CreateDirectoryW(sim::Wide(kRoot).c_str(), nullptr);
  std::string strDeep = std::string(kRoot) + "\\old";
  for (int n = 0; n < 110; ++n) {
    CreateDirectoryW(sim::Wide(strDeep).c_str(), nullptr);
    World::WriteWholeFile(strDeep + "\\f", "x");
    strDeep += "\\d";
  }
  ASSERT_TRUE(Exists(std::string(kRoot) + "\\old\\d\\d\\d\\f"));
  w32::AdvanceClock(72 * kHour);
  const DWORD dwJob = world().spooler.NewJob("Till", "RAW");
  struct Call {
    std::function<void()> act;
  } call{[&] { EXPECT_TRUE(world().spooler.Print(m_hPort, dwJob, "later").bDelivered); }};
  DWORD dwThreadId = 0;
  const HANDLE hThread = CreateThread(
      nullptr, 128 * 1024,
      [](LPVOID p) -> DWORD {
        static_cast<Call*>(p)->act();
        return 0;
      },
      &call, STACK_SIZE_PARAM_IS_A_RESERVATION, &dwThreadId);
  EXPECT_EQ(WaitForSingleObject(hThread, INFINITE), static_cast<DWORD>(WAIT_OBJECT_0));
  CloseHandle(hThread);
  EXPECT_FALSE(There("old"));
}

TEST_F(Ageing, RunsFromTheTwoHundredAndSecondUnitOn) {
  constexpr std::uint64_t kUnit = 1ULL << 32;
  const auto goTo = [](std::uint64_t ullTicks) { w32::AdvanceClock((ullTicks - w32::ClockTicks()) / 10'000); };
  m_pQueue->data["JobValidDays"] = Spooler::Dword(0);
  const std::uint64_t ullMiddle = (w32::ClockTicks() / kUnit + 1) * kUnit + kUnit / 2;
  goTo(ullMiddle);
  ASSERT_TRUE(PrintOn(m_hPort, "stores the word").bDelivered);
  goTo(ullMiddle + 201 * kUnit);
  ASSERT_TRUE(PrintOn(m_hPort, "201 units later").bDelivered);
  EXPECT_TRUE(There("20261118"));
  goTo(ullMiddle + 202 * kUnit);
  ASSERT_TRUE(PrintOn(m_hPort, "202 units later").bDelivered);
  EXPECT_FALSE(There("20261118"));
}

TEST_F(Ageing, QueueWithoutAGuidRemembersTheRunInMemory) {
  m_pQueue->data.erase("UtilityGUID");
  m_pQueue->data["JobValidDays"] = Spooler::Dword(0);
  ASSERT_TRUE(PrintOn(m_hPort, "runs the ageing").bDelivered);
  CreateDirectoryW(sim::Wide(std::string(kRoot) + "\\old").c_str(), nullptr);
  w32::AdvanceClock(2 * kHour);
  ASSERT_TRUE(PrintOn(m_hPort, "does not").bDelivered);
  EXPECT_TRUE(There("old"));
  EXPECT_EQ(World::LogCount("GetPrinterData [dwReturned:0]"), 3u);  // two starts, one run
}

// The word lies in the hive of the client whose job it is, never in the one that the process opened first.
TEST_F(Ageing, WordOfAClientWhoseHiveCannotBeOpenedIsKeptNowhere) {
  {
    const w32::FaultsOn faults;
    w32::FailCalls("RegOpenCurrentUser", 100);
    EXPECT_TRUE(PrintOn(m_hPort, "x").bDelivered);
  }
  HKEY hKey = nullptr;
  EXPECT_EQ(World::OpenClientKey("SOFTWARE\\Kelvane\\Kelvane HM-520\\{1234}", KEY_QUERY_VALUE, &hKey),
            static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND));
}

std::string g_strReports;
TEST_F(Ageing, RootOrFileNameThatFindsNoMemoryIsReported) {
  HANDLE hPrinter = nullptr;
  ASSERT_TRUE(OpenPrinterW(sim::Wide("Till").data(), &hPrinter, nullptr));
  w32::SetDebugSink([](const std::string& strText) { g_strReports += strText; });
  for (unsigned nSkip = 0; nSkip < 8; ++nSkip) {  // each block of the way in turn; the last ones need no more
    World::DeleteTree(kRoot);
    wchar_t* pszRoot = nullptr;
    wchar_t* pszFile = nullptr;
    {
      const w32::FaultsOn faults;
      w32::ResetFaults();
      w32::FailCalls("HeapAlloc", 1, nSkip);
      const BOOL bMade = gJob.MakeSettings(hPrinter, {2026, 11, 0, 18, 9, 0, 0, 0}, &pszRoot, &pszFile, FALSE);
      EXPECT_EQ(bMade != FALSE, pszFile != nullptr) << nSkip;
    }
    ReleaseMemory(pszRoot);
    ReleaseMemory(pszFile);
  }
  w32::SetDebugSink(nullptr);
  EXPECT_NE(g_strReports.find("/ CreateJobFolder"), std::string::npos) << g_strReports;
  EXPECT_NE(g_strReports.find("/ CJob::MakeSettings"), std::string::npos) << g_strReports;
  ClosePrinter(hPrinter);
}

// A queue without a usable GUID neither uses a word that others store nor takes one back that their job ends advance.
TEST_F(Ageing, QueueWhoseGuidCannotBeReadWholeHasNone) {
  m_pQueue->data["UtilityGUID"] = Spooler::Text(std::string(64, 'g'));  // 130 bytes with its terminator
  ASSERT_TRUE(PrintOn(m_hPort, "x").bDelivered);
  EXPECT_EQ(World::LogCount("GetPrinterData [dwReturned:0]"), 2u);
  m_pQueue->data["UtilityGUID"] = Spooler::Text(std::string(63, 'g'));
  ASSERT_TRUE(PrintOn(m_hPort, "x").bDelivered);
  EXPECT_EQ(World::LogCount("GetPrinterData [dwReturned:0]"), 2u);

  m_pQueue->data.erase("UtilityGUID");
  gJob.dwChkJobFileTime = 1;
  for (std::uint64_t ullSeed = 1; ullSeed <= 60; ++ullSeed) {
    w32::SetSeed(ullSeed);
    gJob.dwChkJobFileTime = 1;
    SideThread other([] { gJob.dwChkJobFileTime = 2; });  // another queue's job end
    HANDLE hPrinter = nullptr;
    ASSERT_TRUE(OpenPrinterW(sim::Wide("Till").data(), &hPrinter, nullptr));
    wchar_t* pszRoot = nullptr;
    wchar_t* pszFile = nullptr;
    gJob.MakeSettings(hPrinter, {2026, 11, 0, 18, 9, 0, 0, 0}, &pszRoot, &pszFile, FALSE);
    other.Join();
    ClosePrinter(hPrinter);
    ReleaseMemory(pszRoot);
    ReleaseMemory(pszFile);
    ASSERT_EQ(gJob.dwChkJobFileTime, 2u) << "seed " << ullSeed;
  }
}

TEST_F(Ageing, QueueThatNeverRanDoesNotGoByAnotherQueuesRun) {
  m_pQueue->data["JobValidDays"] = Spooler::Dword(0);
  ASSERT_TRUE(PrintOn(m_hPort, "runs the ageing").bDelivered);
  CreateDirectoryW(sim::Wide(std::string(kRoot) + "\\old").c_str(), nullptr);
  w32::AdvanceClock(2 * kHour);
  m_pQueue->data["UtilityGUID"] = Spooler::Text("{5678}");
  ASSERT_TRUE(PrintOn(m_hPort, "runs it for the first time").bDelivered);
  EXPECT_FALSE(There("old"));
}

TEST_F(Ageing, DotNamedFolderKeepsItsParent) {
  m_pQueue->data["JobValidDays"] = Spooler::Dword(0);
  ASSERT_TRUE(PrintOn(m_hPort, "first").bDelivered);
  for (const char* pszFolder : {"\\old", "\\old\\.keep", "\\old\\other"})
    CreateDirectoryW(sim::Wide(std::string(kRoot) + pszFolder).c_str(), nullptr);
  w32::AdvanceClock(30 * kHour);
  ASSERT_TRUE(PrintOn(m_hPort, "later").bDelivered);
  EXPECT_EQ(World::ListFolder(std::string(kRoot) + "\\old"), std::vector<std::string>{".keep"});
}

TEST_F(Ageing, LinkLeavesWhatItLeadsToAlone) {
  m_pQueue->data["JobValidDays"] = Spooler::Dword(0);
  ASSERT_TRUE(PrintOn(m_hPort, "first").bDelivered);
  CreateDirectoryW(L"C:\\Elsewhere", nullptr);
  World::WriteWholeFile("C:\\Elsewhere\\precious.txt", "x");
  CreateDirectoryW(sim::Wide(std::string(kRoot) + "\\old").c_str(), nullptr);
  ASSERT_EQ(symlink(w32::HostPath(L"C:\\Elsewhere").c_str(),
                    (w32::HostPath(sim::Wide(std::string(kRoot) + "\\old").c_str()) + "/link").c_str()),
            0);
  World::WriteWholeFile(std::string(kRoot) + "\\old\\stamp.txt", "gives the folder a time of this clock");
  w32::AdvanceClock(30 * kHour);
  ASSERT_TRUE(PrintOn(m_hPort, "later").bDelivered);
  EXPECT_FALSE(There("old"));
  std::string strText;
  EXPECT_TRUE(World::ReadWholeFile("C:\\Elsewhere\\precious.txt", strText));
}

TEST_F(Ageing, JobOfMidnightStaysInTheFolderOfItsStart) {
  w32::SetClock({2026, 11, 0, 20, 23, 59, 59, 990});
  sim::PrintOptions options;
  options.onProgress = [](std::uint64_t) { w32::AdvanceClock(500); };
  ASSERT_TRUE(PrintOn(m_hPort, "midnight", "RAW", options).bDelivered);
  ASSERT_EQ(World::ListFolder(std::string(kRoot) + "\\20261120").size(), 1u);
  EXPECT_TRUE(World::ListFolder(std::string(kRoot) + "\\20261120").front().starts_with("2359_59("));
}

TEST_F(Ageing, OnlyTheDeepestFolderGetsTheUsersRule) {
  m_pQueue->data["JobFilePath"] = Spooler::Text("D:\\Archive\\Jobs");
  ASSERT_TRUE(PrintOn(m_hPort, "x").bDelivered);
  EXPECT_EQ(w32::AccessListOf(L"D:\\Archive\\Jobs"), "S-1-5-32-545 0x10000000 3");
  EXPECT_EQ(w32::AccessListOf(L"D:\\Archive"), "");
  EXPECT_EQ(w32::AccessListOf(L"D:\\Archive\\Jobs\\20261118"), "S-1-5-32-545 0x10000000 3");
}
#endif

}  // namespace
