// How long day folders of the archive and files of the log stay: one table serves both. An age is a number of units of
// 2^32 x 100 ns, about 429.5 seconds, between the last write and the day of reckoning.
#ifndef _WIN32  // turns the clock

#include "common/job_archive.h"
#include "log/log_object.h"
#include "tests/support/world_test.h"

using namespace testing_support;
using sim::World;

namespace {

constexpr char kRoot[] = "C:\\Retention";

struct Keeping {
  LONG nDays;
  LONG nUnits;  // the oldest age that stays
};

class Retention : public WorldTest, public ::testing::WithParamInterface<Keeping> {
 protected:
  // Sets the clock into the middle of the unit that lies so long before (or, negative, behind) the day of reckoning.
  static void GoToAge(LONG nUnits) {
    constexpr DWORD kReckoning = 31'270'000;  // in the autumn of 2026
    const FILETIME ft = {0x80000000, kReckoning - static_cast<DWORD>(nUnits)};
    SYSTEMTIME st;
    FileTimeToSystemTime(&ft, &st);
    w32::SetClock(st);
  }
  static bool Exists(const std::string& strPath) {
    return GetFileAttributesW(sim::Wide(strPath).c_str()) != INVALID_FILE_ATTRIBUTES;
  }
};

TEST_P(Retention, ArchiveFoldersStayAsLongAsTheTableSays) {
  World::DeleteTree(kRoot);
  CreateDirectoryW(sim::Wide(kRoot).c_str(), nullptr);
  for (const LONG nAge : {GetParam().nUnits, GetParam().nUnits + 1}) {
    GoToAge(nAge);
    CreateDirectoryW(sim::Wide(kRoot + sim::Format("\\%d", static_cast<int>(nAge))).c_str(), nullptr);
  }
  GoToAge(0);
  gJob.nJobValidDays = GetParam().nDays;
  gJob.DeleteOldJobFolders(w32::ClockTicks(), sim::Wide(kRoot).c_str());
  EXPECT_EQ(World::ListFolder(kRoot), std::vector<std::string>{sim::Format("%d", static_cast<int>(GetParam().nUnits))});
  World::DeleteTree(kRoot);
}

TEST_P(Retention, LogFilesStayAsLongAsTheTableSays) {
  CLogfile logfile;
  logfile.SetModuleFolder("RETAIN \0Retention");
  std::string strFolder;
  {
    LogFolder folder;
    ASSERT_TRUE(logfile.CreateLogFolder("RETAIN \0Retention", folder));
    strFolder = sim::Narrow(folder.module.Path());
  }
  for (const LONG nAge : {GetParam().nUnits, GetParam().nUnits + 1}) {
    GoToAge(nAge);
    World::WriteWholeFile(strFolder + (nAge == GetParam().nUnits ? "\\20stays.log" : "\\20goes.log"),
                          "Kelvane Thermal Printer Log\r\n\r\n");
  }
  GoToAge(0);
  SYSTEMTIME st;
  GetLocalTime(&st);
  logfile.NoteLineTime(st);
  logfile.PurgeOldLogs(GetParam().nDays);
  EXPECT_EQ(World::ListFolder(strFolder), std::vector<std::string>{"20stays.log"});
  World::DeleteTree(strFolder);
}

INSTANTIATE_TEST_SUITE_P(Table, Retention,
                         ::testing::Values(Keeping{0, 0}, Keeping{1, 404}, Keeping{10, 2222}, Keeping{89, 18'180},
                                           Keeping{90, 18'181}, Keeping{500, 18'181}, Keeping{-1, 0}, Keeping{-2, -202},
                                           Keeping{-10, -1818}),
                         [](const auto& instance) {
                           const LONG n = instance.param.nDays;
                           return (n < 0 ? "Minus" : "") + std::to_string(n < 0 ? -n : n) + "Days";
                         });

}  // namespace
#endif
