// The process ends at every call of a whole job, and in the middle of every write; a fresh process then prints the next job and
// finds everything usable.
#include <sys/mman.h>

#include <filesystem>

#include "log/log.h"
#include "posix/forked_run.h"
#include "tests/support/world_test.h"

using namespace testing_support;
using sim::World;

namespace {

constexpr char kRoot[] = "C:\\Jobs";
constexpr char kNext[] = "the next job";
constexpr char kAgeingKey[] = "SOFTWARE\\Kelvane\\Kelvane HM-520\\{1}";

// What outlives the process, beside the files: the ageing word in the registry.
struct Estate {
  bool bWord;
  DWORD dwWord;
};

bool ReadWord(DWORD& dwWord) {
  HKEY hKey = nullptr;
  if (World::OpenClientKey(kAgeingKey, KEY_QUERY_VALUE, &hKey) != ERROR_SUCCESS) return false;
  DWORD cb = sizeof dwWord;
  const bool bRead = RegQueryValueExW(hKey, L"ChkJobFileTime", nullptr, nullptr, reinterpret_cast<BYTE*>(&dwWord),
                                      &cb) == ERROR_SUCCESS;
  RegCloseKey(hKey);
  return bRead;
}

void WriteWord(DWORD dwWord) {
  HKEY hKey = nullptr;
  World::OpenClientKey(kAgeingKey, KEY_SET_VALUE, &hKey, true);
  RegSetValueExW(hKey, L"ChkJobFileTime", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&dwWord), sizeof dwWord);
  RegCloseKey(hKey);
}

struct Life {
  DWORD dwLogLevels;
  void (*pfnMachine)(World& world);
  void (*pfnLive)(World& world);
  std::string strJob;  // what may be in its archive
};

class Death : public ::testing::Test {
 protected:
  // Shared with the children.
  Estate& m_estate =
      *static_cast<Estate*>(mmap(nullptr, sizeof(Estate), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));

  // Returns at how many places it died.
  unsigned DieEverywhere(const Life& life) {
    w32::ForkedRun process("life");
    for (unsigned nPlace = 1;; ++nPlace) {
      process.FreshDrives();
      m_estate = {};
      process.Start([&] { return LiveAndDie(life, nPlace); }, false);
      const int nStatus = process.Wait();
      EXPECT_TRUE(nStatus == 0 || nStatus == w32::kDeathStatus) << "place " << nPlace;
      process.Start([&] { return Inherit(life); }, false);
      EXPECT_EQ(process.Wait(), 0) << "behind a death at place " << nPlace;
      if (nStatus == 0 || HasFailure()) return nPlace - 1;
    }
  }

 private:
  bool LiveAndDie(const Life& life, unsigned nPlace) {
    w32::SetClock({2026, 11, 0, 15, 12, 0, 0, 0});  // the job comes three days later
    World world;
    World::SetLogLevel(life.dwLogLevels);
    world.Attach();
    life.pfnMachine(world);
    w32::DieAt(nPlace, [&] { m_estate.bWord = ReadWord(m_estate.dwWord); });
    life.pfnLive(world);
    w32::DieAt(0);
    m_estate.bWord = ReadWord(m_estate.dwWord);
    world.spooler.CloseAllPorts();
    return !HasFailure();
  }

  static std::string TodaysLog() {
    std::string strText;
    World::ReadWholeFile(World::LogFolder() + "\\20261118.log", strText);
    return strText;
  }

  // The next process, a minute after the job.
  bool Inherit(const Life& life) {
    w32::SetClock({2026, 11, 0, 18, 12, 1, 0, 0});
    if (m_estate.bWord) {
      const DWORD dwNow = static_cast<DWORD>(w32::ClockTicks() >> 32);
      EXPECT_TRUE(m_estate.dwWord == 1 || m_estate.dwWord == dwNow || m_estate.dwWord + 1 == dwNow) << m_estate.dwWord;
      WriteWord(m_estate.dwWord);
    }
    const std::string strInherited = TodaysLog();
    World world;
    World::SetLogLevel(life.dwLogLevels | 0x10);
    world.Attach();
    sim::Queue& queue = world.AddPrinter("Till", "USB001", kModel);
    queue.data["JobFilePath"] = sim::Spooler::Text(kRoot);
    queue.data["JobSettingFlags"] = sim::Spooler::Dword(1);
    queue.data["UtilityGUID"] = sim::Spooler::Text("{1}");
    const HANDLE hPort = world.spooler.OpenPort("USB001", "Till");
    EXPECT_TRUE(world.spooler.Print(hPort, world.spooler.NewJob("Till", "RAW"), kNext).bDelivered);
    world.spooler.ClosePort(hPort);
    EXPECT_EQ(world.PrinterOf("USB001").LastStrip(), kNext);
    LookAtTheLog(strInherited);
    LookAtTheArchive(life);
    LookForLeftovers();
    return !HasFailure();
  }

  static void LookAtTheLog(const std::string& strInherited) {
    const std::string strText = TodaysLog();
    EXPECT_NE(strText.find("pszPrinterName:Till, JobId:1"), std::string::npos);
    for (std::size_t nAt = 0; nAt < strText.size();) {
      const std::size_t nEnd = std::min(strText.find("\r\n", nAt), strText.size());
      const std::string strLine = strText.substr(nAt, nEnd - nAt);
      EXPECT_EQ(strLine.find("[11/18 ", 1), std::string::npos) << "a line is glued to another one: " << strLine;
      EXPECT_NE(nEnd, strText.size()) << "a line without an end: " << strLine;
      nAt = nEnd + 2;
    }
    if (strInherited.ends_with("\r\n") || strInherited.empty() || strText.size() < strInherited.size()) return;
    EXPECT_EQ(strText.compare(strInherited.size(), 2, "\r\n"), 0) << "the torn line has no end of its own";
  }

  static void LookAtTheArchive(const Life& life) {
    for (const auto& [strName, strBytes] : World::ArchivedFiles(kRoot))
      EXPECT_TRUE(strBytes == kNext || life.strJob.starts_with(strBytes))
          << strName << " has " << strBytes.size() << " bytes";
  }

  // Nothing but what somebody ages: the day's logs and those moved aside, and the archive's day folder.
  void LookForLeftovers() const {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(w32::SandboxRoot())) {
      const std::string strName = entry.path().filename();
      const std::string strPath = entry.path();
      if (!entry.is_regular_file() || strPath.ends_with(".lock") || strName == "Norvex_SDK.dll") continue;
      EXPECT_TRUE((strName.starts_with("2026111") && strName.ends_with(".log")) || strName.ends_with(".prn"))
          << strPath;
    }
    // An old folder that was just being emptied has become young: it goes the next time.
    EXPECT_TRUE(World::ListFolder(std::string(kRoot) + "\\old").empty());
  }
};

void ArchivingTill(World& world, const char* pszPort) {
  sim::Queue& queue = world.AddPrinter("Till", pszPort, kModel, {.cbBuffer = 4096, .dwBytesPerSecond = 20'000});
  queue.data["AutoReprint"] = sim::Spooler::Dword(1);
  queue.data["JobFilePath"] = sim::Spooler::Text(kRoot);
  queue.data["JobSettingFlags"] = sim::Spooler::Dword(1);
  queue.data["UtilityGUID"] = sim::Spooler::Text("{1}");
  WriteWord(1);
  CreateDirectoryW(L"C:\\Jobs", nullptr);
  CreateDirectoryW(L"C:\\Jobs\\old", nullptr);
  World::WriteWholeFile("C:\\Jobs\\old\\a.prn", "old");
  w32::AdvanceClock(72 * 3'600'000);
}

void PrintOne(World& world, const char* pszPort) {
  const HANDLE hPort = world.spooler.OpenPort(pszPort, "Till");
  sim::PrintOptions options;
  options.cbChunk = 500;
  world.spooler.Print(hPort, world.spooler.NewJob("Till", "TEXT"), Receipt(900), options);
  world.spooler.ClosePort(hPort);
}

TEST_F(Death, InAJobOnThePortMonitor) {
  const Life life = {0x016,
                     [](World& world) {
                       world.services.dwState = SERVICE_STOPPED;
                       ArchivingTill(world, "COM1");
                     },
                     [](World& world) { PrintOne(world, "COM1"); }, Receipt(900)};
  EXPECT_GT(DieEverywhere(life), 300u);
}

TEST_F(Death, InAJobThatIsPrintedAgain) {
  const Life life = {0x006,
                     [](World& world) {
                       ArchivingTill(world, "USB001");
                       world.PrinterOf("USB001").Plan({sim::FaultKind::PaperEnd, 500, 1500});
                     },
                     [](World& world) { PrintOne(world, "USB001"); }, Receipt(900)};
  EXPECT_GT(DieEverywhere(life), 300u);
}

TEST_F(Death, InTwoThreadsThatLogOverARotationAndAPurge) {
  const Life life = {0x002,
                     [](World&) {
                       OutputLogEx(LOG_LEVEL_E, nullptr, "Life", "", 1, 1, 1, L"three days ago");
                       w32::AdvanceClock(72 * 3'600'000);
                       OutputLogEx(LOG_LEVEL_E, nullptr, "Life", "", 1, 1, 1, L"the first line");
                       const HANDLE hFile = CreateFileW(sim::Wide(World::LogFolder() + "\\20261118.log").c_str(),
                                                        GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
                       SetFilePointer(hFile, 32'000'100, nullptr, FILE_BEGIN);
                       SetEndOfFile(hFile);
                       SetFilePointer(hFile, -2, nullptr, FILE_END);
                       DWORD cb = 0;
                       WriteFile(hFile, "\r\n", 2, &cb, nullptr);
                       CloseHandle(hFile);
                       World::SetMachineDword("SOFTWARE\\Kelvane\\ThermalPrinterSdk", "LogLifeDays", 0);
                       w32::AdvanceClock(16'000);
                     },
                     [](World&) {
                       const auto log = [] {
                         for (int n = 0; n < 2; ++n) OutputLogEx(LOG_LEVEL_E, nullptr, "Life", "", n, 1, 1, L"a line");
                       };
                       SideThread other(log);
                       log();
                     },
                     ""};
  EXPECT_GT(DieEverywhere(life), 100u);
}

}  // namespace
