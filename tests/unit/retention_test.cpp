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

constexpr Keeping kTable[] = {{0, 0},        {1, 404}, {10, 2222}, {89, 18'180}, {90, 18'181},
                              {500, 18'181}, {-1, 0},  {-2, -202}, {-10, -1818}};

class Retention : public WorldTest {
 protected:
  // Sets the clock into the middle of the unit that lies so long before (or, negative, behind) the day of reckoning.
  static void GoToAge(LONG nUnits) {
    constexpr DWORD kReckoning = 31'270'000;  // in the autumn of 2026
    const FILETIME ft = {0x80000000, kReckoning - static_cast<DWORD>(nUnits)};
    SYSTEMTIME st;
    FileTimeToSystemTime(&ft, &st);
    w32::SetClock(st);
  }
};

TEST_F(Retention, ArchiveFoldersStayAsLongAsTheTableSays) {
  for (const Keeping& row : kTable) {
    World::DeleteTree(kRoot);
    CreateDirectoryW(sim::Wide(kRoot).c_str(), nullptr);
    for (const LONG nAge : {row.nUnits, row.nUnits + 1}) {
      GoToAge(nAge);
      CreateDirectoryW(sim::Wide(kRoot + sim::Format("\\%d", static_cast<int>(nAge))).c_str(), nullptr);
    }
    GoToAge(0);
    gJob.nJobValidDays = row.nDays;
    gJob.DeleteOldJobFolders(w32::ClockTicks(), sim::Wide(kRoot).c_str());
    EXPECT_EQ(World::ListFolder(kRoot), std::vector<std::string>{sim::Format("%d", static_cast<int>(row.nUnits))})
        << row.nDays << " days";
  }
  World::DeleteTree(kRoot);
}

TEST_F(Retention, LogFilesStayAsLongAsTheTableSays) {
  CLogfile logfile;
  logfile.SetModuleFolder("RETAIN \0Retention");
  std::string strFolder;
  {
    LogFolder folder;
    ASSERT_TRUE(logfile.CreateLogFolder("RETAIN \0Retention", folder));
    strFolder = sim::Narrow(folder.module.Path());
  }
  for (const Keeping& row : kTable) {
    for (const LONG nAge : {row.nUnits, row.nUnits + 1}) {
      GoToAge(nAge);
      World::WriteWholeFile(strFolder + (nAge == row.nUnits ? "\\20stays.log" : "\\20goes.log"),
                            "Kelvane Thermal Printer Log\r\n\r\n");
    }
    GoToAge(0);
    SYSTEMTIME st;
    GetLocalTime(&st);
    logfile.NoteLineTime(st);
    logfile.PurgeOldLogs(row.nDays);
    EXPECT_EQ(World::ListFolder(strFolder), std::vector<std::string>{"20stays.log"}) << row.nDays << " days";
  }
  World::DeleteTree(strFolder);
}

}  // namespace
#endif
