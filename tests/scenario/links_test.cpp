// Links and second names that a user puts below the log's and the archive's roots: nothing behind them is ever touched, and
// printing goes on.
#include <atomic>
#include <cstring>

#include "base/safe_path.h"
#include "common/job_archive.h"
#include "log/log.h"
#include "log/log_folder.h"
#include "log/log_object.h"
#include "tests/support/world_test.h"

using namespace testing_support;
using sim::World;

namespace {

constexpr char kOutside[] = "C:\\Outside";
constexpr char kArchive[] = "C:\\Jobs";

class Links : public WorldTest {
 protected:
  Links() {
    World::DeleteTree(kOutside);
    World::DeleteTree(kArchive);
    CreateDirectoryW(sim::Wide(kOutside).c_str(), nullptr);
    World::WriteWholeFile(std::string(kOutside) + "\\file", "somebody's");
  }
  ~Links() override {
    World::DeleteTree(kOutside);
    World::DeleteTree(kArchive);
  }
  HANDLE OpenArchived() {
    world().services.dwState = SERVICE_STOPPED;
    sim::Queue& queue = world().AddPrinter("Till", "COM1", kModel);
    queue.data["JobFilePath"] = sim::Spooler::Text(kArchive);
    queue.data["JobSettingFlags"] = sim::Spooler::Dword(1);
    return Open("COM1");
  }
  static std::string DayFolder() { return std::string(kArchive) + "\\" + World::ListFolder(kArchive).at(0); }
  static std::string OutsideFile() {
    std::string strText;
    World::ReadWholeFile(std::string(kOutside) + "\\file", strText);
    return strText;
  }
};

// Hard links: Wine has them as well.
TEST_F(Links, FileWithASecondNameElsewhereIsNeverWrittenTo) {
  const HANDLE hPort = OpenArchived();
  EXPECT_TRUE(PrintOn(hPort, "first").bDelivered);
  const std::string strOutside = std::string(kOutside) + "\\file";
  const auto replace = [&] {  // the job's file, in the middle of the job
    const std::string strFile = DayFolder() + "\\" + World::ListFolder(DayFolder()).back();
    DeleteFileW(sim::Wide(strFile).c_str());
    CreateHardLinkW(sim::Wide(strFile).c_str(), sim::Wide(strOutside).c_str(), nullptr);
  };
  EXPECT_TRUE(PrintOn(hPort, "second job", "RAW", AtByte(6, replace, 6)).bDelivered);
  EXPECT_EQ(world().portMonitor.Port("COM1").strDelivered, "firstsecond job");
  EXPECT_EQ(World::LogCount("Fail to open the output job file. ["), 1u);

  const std::string strLog = World::LogFolder() + "\\" + World::ListFolder(World::LogFolder()).at(0);
  DeleteFileW(sim::Wide(strLog).c_str());
  CreateHardLinkW(sim::Wide(strLog).c_str(), sim::Wide(strOutside).c_str(), nullptr);
  EXPECT_TRUE(PrintOn(hPort, "third").bDelivered);
  EXPECT_EQ(OutsideFile(), "somebody's");
  TrustedStart outside;
  SafeFolder folder;
  ASSERT_TRUE(outside.Resolve(sim::Wide(kOutside).c_str(), std::strlen(kOutside)) && folder.OpenRoot(outside));
  EXPECT_FALSE(folder.OpenFile(L"file", GENERIC_WRITE, false));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
  DeleteFileW(sim::Wide(strLog).c_str());
}

#ifndef _WIN32
void Link(const std::string& strPlace, const std::string& strTarget) {
  ASSERT_TRUE(CreateSymbolicLinkW(sim::Wide(strPlace).c_str(), sim::Wide(strTarget).c_str(), 0));
}
void Move(const std::string& strFrom, const std::string& strTo) {
  ASSERT_TRUE(MoveFileW(sim::Wide(strFrom).c_str(), sim::Wide(strTo).c_str()));
}

TEST_F(Links, LogFolderThatIsALinkHoldsTheLinesUntilItIsAFolderAgain) {
  const HANDLE hPort = OpenArchived();
  for (const std::string& strPlace : {World::LogFolder(), std::string("C:\\ProgramData\\Kelvane\\Logs")}) {
    Move(strPlace, strPlace + ".aside");
    Link(strPlace, kOutside);
    EXPECT_FALSE(world().spooler.pMonitor->pfnReadPort(hPort, nullptr, 0, nullptr));  // a line of level E
    RemoveDirectoryW(sim::Wide(strPlace).c_str());
    Move(strPlace + ".aside", strPlace);
    EXPECT_FALSE(world().spooler.pMonitor->pfnReadPort(hPort, nullptr, 0, nullptr));
    EXPECT_EQ(World::ListFolder(kOutside), std::vector<std::string>{"file"}) << strPlace;
  }
  EXPECT_EQ(World::LogCount("*["), 2u);  // held, and written when the folder was back
}

TEST_F(Links, ArchiveRootMayBeALinkAndItsDayFolderMayNot) {
  CreateDirectoryW(L"C:\\RealJobs", nullptr);
  Link(kArchive, "C:\\RealJobs");
  const HANDLE hPort = OpenArchived();
  EXPECT_TRUE(PrintOn(hPort, "kept").bDelivered);
  const std::string strDay = World::ListFolder("C:\\RealJobs").at(0);
  EXPECT_EQ(World::ListFolder("C:\\RealJobs\\" + strDay).size(), 1u);
  Move("C:\\RealJobs\\" + strDay, "C:\\RealJobs\\.aside");
  Link("C:\\RealJobs\\" + strDay, kOutside);
  EXPECT_TRUE(PrintOn(hPort, "printed all the same").bDelivered);
  EXPECT_EQ(World::LogCount("Fail to create the output job folder. [C:\\Jobs\\" + strDay + "]"), 1u);
  EXPECT_EQ(World::ListFolder(kOutside), std::vector<std::string>{"file"});
  // Ageing takes the link away and leaves what it leads to.
  w32::AdvanceClock(72 * 3'600'000);
  world().spooler.ClosePort(hPort);
  const HANDLE hAgain = Open("COM1");
  EXPECT_TRUE(PrintOn(hAgain, "three days later").bDelivered);
  world().spooler.ClosePort(hAgain);
  EXPECT_FALSE(Exists("C:\\RealJobs\\" + strDay));
  EXPECT_EQ(OutsideFile(), "somebody's");
  EndWorld();
  RemoveDirectoryW(sim::Wide(kArchive).c_str());
  World::DeleteTree("C:\\RealJobs");
}

TEST(LinksAtLoad, BaseFolderIsNotMadeBehindALink) {
  World::CleanMachine();
  World::DeleteTree("C:\\ProgramData\\Kelvane");
  CreateDirectoryW(L"C:\\Elsewhere", nullptr);
  Link("C:\\ProgramData\\Kelvane", "C:\\Elsewhere");
  {
    CLogfile logfile;  // as when the module is loaded
  }
  EXPECT_EQ(World::ListFolder("C:\\Elsewhere"), std::vector<std::string>());
  RemoveDirectoryW(L"C:\\ProgramData\\Kelvane");
}

// Somebody swaps a folder for a link, again and again, while the monitor works in it: in every order of events that the
// seeds give, nothing behind the link changes.
struct Swap {
  const char* pszName;
  std::string strPlace;
  std::function<void()> setUp;
  std::function<void()> work;
};

void Swapping(const Swap& swap) {
  for (std::uint64_t ullSeed = 1; ullSeed <= 300; ++ullSeed) {
    w32::SetSeed(ullSeed);
    swap.setUp();
    const auto before = World::ArchivedFiles("C:\\Target");
    std::atomic<bool> bStop{false};
    SideThread swapper([&] {
      const sim::WideString place = sim::Wide(swap.strPlace);
      const sim::WideString aside = sim::Wide(swap.strPlace + "-aside");
      while (!bStop) {
        if (!MoveFileW(place.c_str(), aside.c_str())) continue;
        CreateSymbolicLinkW(place.c_str(), L"C:\\Target\\Inner", SYMBOLIC_LINK_FLAG_DIRECTORY);
        RemoveDirectoryW(place.c_str());
        MoveFileW(aside.c_str(), place.c_str());
      }
    });
    swap.work();
    bStop = true;
    swapper.Join();
    ASSERT_EQ(World::ArchivedFiles("C:\\Target"), before) << swap.pszName << ", seed " << ullSeed;
  }
}

void MakeTarget() {
  CreateDirectoryW(L"C:\\Target", nullptr);
  CreateDirectoryW(L"C:\\Target\\Inner", nullptr);
  for (const char* pszName : {"20200101.log", "20261118.log", "a.prn"})
    World::WriteWholeFile(std::string("C:\\Target\\Inner\\") + pszName,
                          "Kelvane Thermal Printer Log\r\n\r\nsomebody's");
}

TEST(SwappedFolders, PurgeOfTheLog) {
  World::CleanMachine();
  CLogfile logfile;
  logfile.SetModuleFolder("SWAP   \0Swapped");
  const std::string strFolder = "C:\\ProgramData\\Kelvane\\Logs\\Swapped";
  Swapping({"purge", strFolder,
            [&] {
              MakeTarget();
              CreateDirectoryW(sim::Wide(strFolder).c_str(), nullptr);
              World::WriteWholeFile(strFolder + "\\20200101.log", "Kelvane Thermal Printer Log\r\n\r\nold");
              w32::AdvanceClock(12 * 86'400'000ull);
              SYSTEMTIME st;
              GetLocalTime(&st);
              logfile.NoteLineTime(st);
            },
            [&] { logfile.PurgeOldLogs(0); }});
}

TEST(SwappedFolders, LinesAndRotation) {
  World::CleanMachine();
  World::SetLogLevel(LOG_LEVEL_E);
  LogObject().SetModuleFolder("DRV_LM \0PrinterDriver");
  Swapping({"rotation", World::LogFolder(),
            [&] {
              MakeTarget();
              CreateDirectoryW(sim::Wide(World::LogFolder()).c_str(), nullptr);
              for (const std::string& strName : World::ListFolder(World::LogFolder()))
                DeleteFileW(sim::Wide(World::LogFolder() + "\\" + strName).c_str());
              const HANDLE hFile = CreateFileW(sim::Wide(World::LogFolder() + "\\20261118.log").c_str(), GENERIC_WRITE,
                                               0, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
              SetFilePointer(hFile, 32'000'000, nullptr, FILE_BEGIN);
              SetEndOfFile(hFile);
              CloseHandle(hFile);
            },
            [&] {
              for (int n = 0; n < 3; ++n) OutputLogEx(LOG_LEVEL_E, nullptr, "Routine", "", n, 1, 1, L"line");
            }});
}

TEST(SwappedFolders, WritingAndAgeingOfTheArchive) {
  World::CleanMachine();
  const std::string strDay = std::string(kArchive) + "\\20261118";
  Swapping({"archive", strDay,
            [&] {
              MakeTarget();
              CreateDirectoryW(sim::Wide(kArchive).c_str(), nullptr);
              CreateDirectoryW(sim::Wide(strDay).c_str(), nullptr);
              World::WriteWholeFile(strDay + "\\a.prn", "old");
              CreateDirectoryW(sim::Wide(strDay + "\\deeper").c_str(), nullptr);
              World::WriteWholeFile(strDay + "\\deeper\\a.prn", "old");
            },
            [&] {
              gJob.OutputJobFile(sim::Wide(strDay + "\\a.prn").c_str(), reinterpret_cast<const BYTE*>("more"), 4);
              w32::AdvanceClock(3 * 86'400'000);
              gJob.DeleteOldJobFolders(w32::ClockTicks(), sim::Wide(kArchive).c_str());
            }});
  World::DeleteTree(kArchive);
}

// An empty folder can be turned into a link where it stands, whoever holds it open. A file that was to be made in it is
// taken away again where it came to lie; no folder is made elsewhere, and none there gets the log's access rule.
TEST(TurnedFolders, NothingIsLeftWhereTheyLead) {
  World::CleanMachine();
  World::SetLogLevel(LOG_LEVEL_E);
  LogObject().SetModuleFolder("DRV_LM \0PrinterDriver");
  const std::string strDay = std::string(kArchive) + "\\20261118";
  MakeTarget();
  DeleteFileW(L"C:\\Target\\Inner\\20261118.log");
  CreateDirectoryW(L"C:\\Target\\Inner\\PrinterDriver", nullptr);
  CreateDirectoryW(L"C:\\Target\\Empty", nullptr);
  const auto before = World::ArchivedFiles("C:\\Target");
  const auto turned = [&](const std::string& strPlace, const std::string& strTarget, std::uint64_t ullSeed) {
    w32::SetSeed(ullSeed);
    World::DeleteTree(World::LogFolder());
    World::DeleteTree(kArchive);
    const sim::WideString place = sim::Wide(strPlace);
    const sim::WideString target = sim::Wide(strTarget);
    CreateDirectoryW(sim::Wide(kArchive).c_str(), nullptr);
    CreateDirectoryW(place.c_str(), nullptr);
    std::atomic<bool> bStop{false};
    SideThread turner([&] {
      while (!bStop)
        if (w32::TurnIntoLink(place.c_str(), target.c_str())) w32::TurnIntoFolder(place.c_str());
    });
    OutputLogEx(LOG_LEVEL_E, nullptr, "Routine", "", 1, 1, 1, L"line");
    gJob.OutputJobFile(sim::Wide(strDay + "\\new.prn").c_str(), reinterpret_cast<const BYTE*>("more"), 4);
    bStop = true;
    turner.Join();
    EXPECT_EQ(World::ArchivedFiles("C:\\Target"), before);
    EXPECT_EQ(w32::AccessListOf(sim::Wide(strTarget + "\\PrinterDriver").c_str()), "");
  };
  for (const std::string& strPlace : {World::LogFolder(), std::string("C:\\ProgramData\\Kelvane\\Logs"), strDay}) {
    for (const char* pszTarget : {"C:\\Target\\Inner", "C:\\Target\\Empty"}) {
      for (std::uint64_t ullSeed = 1; ullSeed <= 50; ++ullSeed) {
        turned(strPlace, pszTarget, ullSeed);
        ASSERT_FALSE(HasFailure()) << strPlace << " to " << pszTarget << ", seed " << ullSeed;
      }
    }
    OutputLogEx(LOG_LEVEL_E, nullptr, "Routine", "", 1, 1, 1, L"afterwards");
    EXPECT_EQ(World::LogCount("afterwards"), 1u) << strPlace;
  }
  EXPECT_EQ(World::ListFolder("C:\\ProgramData\\Kelvane\\Logs"), std::vector<std::string>{"PrinterDriver"});
  World::DeleteTree(kArchive);
}
#endif

}  // namespace
