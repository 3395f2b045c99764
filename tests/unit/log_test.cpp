// The log: filter, trace ring, line format, files.
#include "log/log.h"

#include <array>
#include <cstring>

#include "log/log_message.h"
#include "log/log_object.h"
#include "tests/support/world_test.h"

using namespace testing_support;
using sim::World;

namespace {

std::string g_strDebugText;

constexpr char kModule[] = "DRV_LM \0PrinterDriver";

void Say(DWORD dwLevel, const wchar_t* pszText, const char* pszRoutine = "Routine") {
  OutputLogEx(dwLevel, kModule, pszRoutine, "file", 7, 0x1A2B, 0x3C, L"%s", pszText);
}

// The settings are read again at most every 15 seconds; each test is a process of its own, so its first mask counts.
class Log : public ::testing::Test {
 protected:
  Log() {
    World::CleanMachine();
    LogObject().SetModuleFolder(kModule);
  }
  void Mask(DWORD dwMask) { World::SetLogLevel(dwMask); }
  // The text behind the column header.
  static std::string Lines() {
    const std::string strText = World::LogText();
    const std::size_t nAt = strText.rfind("--------\r\n");
    return nAt == std::string::npos ? strText : strText.substr(nAt + 10);
  }
};

TEST_F(Log, NewFileBeginsWithHeaderSystemInformationAndTitles) {
  Mask(LOG_LEVEL_E);
  Say(LOG_LEVEL_E, L"first");
  Say(LOG_LEVEL_E, L"second");
  const std::string strText = World::LogText();
  EXPECT_TRUE(strText.starts_with("Kelvane Thermal Printer Log\r\n\r\n"));
  EXPECT_NE(
      strText.find(
          "AMD64 Architecture 64bit process\r\n_______________System Infomation____________________\r\n\r\n\r\n\r\n"
          "[MM/dd HH:mm(ss.ms )]\t[Process info      ] \t[Lv]\t[Module ] \tMessage\r\n"),
      std::string::npos);
  EXPECT_EQ(World::LogCount("Kelvane Thermal"), 1u);
  EXPECT_NE(strText.find("]\t[00001a2b(0000003c)]\t[E] \t[DRV_LM ] \tRoutine(7) \tsecond\r\n"), std::string::npos);
}

TEST_F(Log, ErrorLineIsPrecededByTheLast32TraceRecords) {
  Mask(LOG_LEVEL_E);
  std::vector<std::string> routines;  // names stay as long as their records
  for (int n = 0; n < 40; ++n) routines.push_back(sim::Format("Trace%02d", n));
  for (const std::string& strRoutine : routines) Say(LOG_LEVEL_T, L"unseen", strRoutine.c_str());
  Say(LOG_LEVEL_V, L"never traced", "Verbose");
  Say(LOG_LEVEL_E, L"the error");
  Say(LOG_LEVEL_E, L"another");
  const std::string strLines = Lines();
  EXPECT_EQ(strLines.find("Trace07"), std::string::npos);
  std::size_t nAt = 0;
  for (int n = 8; n < 40; ++n) {
    const std::size_t nNext = strLines.find(sim::Format("[00001a2b(0000003c)] Trace%02d(7)\r\n", n), nAt);
    ASSERT_NE(nNext, std::string::npos) << n;
    nAt = nNext;
  }
  EXPECT_LT(nAt, strLines.find("the error"));
  EXPECT_EQ(strLines.find("Verbose"), std::string::npos);
  EXPECT_EQ(strLines.find("$$$", strLines.find("the error")), std::string::npos);
}

TEST_F(Log, EnabledLevelIsALineAndLeavesNoTrace) {
  Mask(LOG_LEVEL_E | LOG_LEVEL_W);
  Say(LOG_LEVEL_W, L"warning", "Warned");
  Say(LOG_LEVEL_I, L"unseen", "Traced");
  Say(LOG_LEVEL_E, L"error");
  const std::string strLines = Lines();
  EXPECT_NE(strLines.find("Warned(7) \twarning"), std::string::npos);
  EXPECT_EQ(strLines.find("$$$"), strLines.rfind("$$$"));
  EXPECT_NE(strLines.find("Traced(7)\r\n"), std::string::npos);
}

TEST_F(Log, NothingWithoutAMaskAndWithTheOffBit) {
  Say(LOG_LEVEL_E, L"no key");
  EXPECT_EQ(World::LogText(), "");
  Mask(LOG_OFF | LOG_LEVEL_E);
  Say(LOG_LEVEL_E, L"switched off");
  EXPECT_EQ(World::LogText(), "");
}

TEST_F(Log, LastErrorCodeIsKept) {
  SetLastError(4711);
  Say(LOG_LEVEL_E, L"no key");
  Mask(LOG_LEVEL_E);
  Say(LOG_LEVEL_E, L"line");
  Say(LOG_LEVEL_T, L"trace");
  OutputLogEx(LOG_LEVEL_E, nullptr, "Routine", "file", 1, 1, 1, L"");
  EXPECT_EQ(GetLastError(), 4711u);
}

TEST_F(Log, LineIsWholeOrMissing) {
  Mask(LOG_LEVEL_E);
  for (const std::size_t cch : {1u, 511u, 512u, 894u, 895u, 1022u, 1023u, 5119u, 5120u}) {
    const std::string strText(cch, 'x');
    Say(LOG_LEVEL_E, sim::Wide(strText).c_str());
    EXPECT_EQ(Lines().find("\t" + strText + "\r\n") != std::string::npos, cch < 5120) << cch;
  }
}

TEST_F(Log, LongTextLeavesRoomForARoutineNameOf62Characters) {
  Mask(LOG_LEVEL_E);
  const std::string strText(2000, 'x');
  for (const std::size_t cch : {62u, 63u}) {  // beside a line number of one digit
    const std::string strRoutine(cch, 'r');
    Say(LOG_LEVEL_E, sim::Wide(strText).c_str(), strRoutine.c_str());
    EXPECT_EQ(World::LogCount("\t" + strRoutine + "(7) \t" + strText + "\r\n"), cch == 62 ? 1u : 0u);
  }
}

TEST_F(Log, CharactersOutsideTheCodePageBecomeQuestionMarks) {
  Mask(LOG_LEVEL_E);
  Say(LOG_LEVEL_E, L"a\x20AC\x3042z");
  EXPECT_NE(Lines().find("a\x80?z"), std::string::npos);
}

TEST_F(Log, TagsAndTheShortForm) {
  LogThreadBuffers buffers;
  const SYSTEMTIME st = {2026, 3, 0, 2, 9, 5, 3, 7};
  EXPECT_STREQ(CMessage::TemplateMessage(buffers, "text", {LOG_LEVEL_W, nullptr, nullptr, 0, 0, 0}, st, ""),
               "[03/02 09:05(03.007)]\t[********(********)]\t[W] \t[UNDEF  ] \ttext\r\n");
  EXPECT_STREQ(
      CMessage::TemplateMessage(buffers, "text", {LOG_LEVEL_E | LOG_LEVEL_I, nullptr, "R", 12, 1, 2}, st, "TAG    "),
      "[03/02 09:05(03.007)]\t[00000001(00000002)]\t[I] \t[TAG    ] \tR(12) \ttext\r\n");
  EXPECT_STREQ(CMessage::TemplateMessage(buffers, "text", {LOG_LEVEL_V, "PAIR   ", nullptr, 3, 1, 0}, st, "TAG    "),
               "[03/02 09:05(03.007)]\t[00000001(00000000)]\t[V] \t[PAIR   ] \t(3) \ttext\r\n");
}

TEST_F(Log, LongTraceRecordIsCutAndStillEndsItsLine) {
  CTraceRing ring;
  char szText[kTraceTextBytes];
  const std::string strRoutine(100, 'r');
  ring.Push(1, 2, strRoutine.c_str(), 3);
  const std::string strText = ring.Collect(szText);
  EXPECT_EQ(strText.size(), 127u);
  EXPECT_TRUE(strText.ends_with("r\r\n"));
  EXPECT_STREQ(ring.Collect(szText), "");
}

TEST_F(Log, TextsAreHeldWhileAnotherProgramHasTheFile) {
  Mask(LOG_LEVEL_E);
  Say(LOG_LEVEL_E, L"before");
  const std::string strFile = World::LogFolder() + "\\" + World::ListFolder(World::LogFolder()).front();
  const HANDLE hFile =
      CreateFileW(sim::Wide(strFile).c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  ASSERT_NE(hFile, INVALID_HANDLE_VALUE);
  for (int n = 0; n < 20; ++n) Say(LOG_LEVEL_E, sim::Wide(sim::Format("held %02d", n)).c_str());
  CloseHandle(hFile);
  Say(LOG_LEVEL_E, L"after");
  const std::string strLines = Lines();
  EXPECT_NE(strLines.find("**["), std::string::npos);  // an empty collection and the line, each marked
  EXPECT_NE(strLines.find("held 00"), std::string::npos);
  EXPECT_EQ(strLines.find("held 19"), std::string::npos);  // 1,024 bytes hold no more
  const std::size_t nLost = strLines.find("<=== Log output here failed\r\n");
  ASSERT_NE(nLost, std::string::npos);
  EXPECT_LT(nLost, strLines.find("after"));
  Say(LOG_LEVEL_E, L"later");
  EXPECT_EQ(World::LogCount("<=== Log output here failed"), 1u);
}

TEST_F(Log, HeldTextsFillTheirRoomToTheLastByte) {
  Mask(LOG_LEVEL_E | LOG_LEVEL_W);
  Say(LOG_LEVEL_W, L"x");
  const std::size_t cbFixed = Lines().size() - 1;
  const std::string strFile = World::LogFolder() + "\\" + World::ListFolder(World::LogFolder()).front();
  for (const std::size_t cbLine : {1023u, 1024u}) {  // a mark comes in front of it
    const HANDLE hFile = CreateFileW(sim::Wide(strFile).c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                     FILE_ATTRIBUTE_NORMAL, nullptr);
    Say(LOG_LEVEL_W, sim::Wide(std::string(cbLine - cbFixed, cbLine == 1023 ? 'f' : 'g')).c_str());
    CloseHandle(hFile);
    Say(LOG_LEVEL_W, L"after");
  }
  EXPECT_EQ(World::LogCount("ffff\r\n["), 1u);
  EXPECT_EQ(World::LogCount("gggg"), 0u);
  EXPECT_EQ(World::LogCount("<=== Log output here failed"), 1u);
}

TEST_F(Log, FullFileIsMovedAside) {
  Mask(LOG_LEVEL_E);
  Say(LOG_LEVEL_E, L"first");
  const std::string strFile = World::LogFolder() + "\\" + World::ListFolder(World::LogFolder()).front();
  const auto lineLength = static_cast<LONG>(Lines().size());
  const HANDLE hFile =
      CreateFileW(sim::Wide(strFile).c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  SetFilePointer(hFile, 32'000'000 - lineLength, nullptr, FILE_BEGIN);
  SetEndOfFile(hFile);
  CloseHandle(hFile);
  Say(LOG_LEVEL_E, L"still");  // 32,000,000 bytes are not too much
  EXPECT_EQ(World::ListFolder(World::LogFolder()).size(), 1u);
#ifndef _WIN32
  {
    const w32::FaultsOn faults;
    w32::FailCalls("SetFileInformationByHandle");
    Say(LOG_LEVEL_E, L"too much, but it cannot be renamed");
  }
  EXPECT_EQ(World::ListFolder(World::LogFolder()).size(), 1u);
#endif
  Say(LOG_LEVEL_E, L"too much");
  Say(LOG_LEVEL_E, L"fresh");
  const auto names = World::ListFolder(World::LogFolder());
  EXPECT_EQ(names.size(), 2u);
  std::string strText;
  World::ReadWholeFile(strFile, strText);
  EXPECT_LT(strText.size(), 10'000u);
  EXPECT_NE(strText.find("fresh"), std::string::npos);
  for (const std::string& strName : names) DeleteFileW(sim::Wide(World::LogFolder() + "\\" + strName).c_str());
}

TEST_F(Log, RoutineNamesComeOutOfTheCompilersText) {
  constexpr auto method = log_detail::RoutineName("BOOL CSdk::Send(const BYTE*, DWORD)");
  constexpr auto pointer = log_detail::RoutineName("const DevData* GetDevDataLm(HANDLE)");
  constexpr auto hidden = log_detail::RoutineName("void {anonymous}::Drain(int (*)(int))");
  constexpr auto clang = log_detail::RoutineName("void (anonymous namespace)::Drain(int)");
  EXPECT_STREQ(method.sz, "CSdk::Send");
  EXPECT_STREQ(pointer.sz, "GetDevDataLm");
  EXPECT_STREQ(hidden.sz, "Drain");
  EXPECT_STREQ(clang.sz, "Drain");
}

TEST_F(Log, FolderNamesOfOneTo16CharactersChooseAndTheFirstOneStays) {
  const auto folderOf = [](CLogfile& logfile, const char* pszModule) {
    std::string strFolder;
    {
      LogFolder folder;
      EXPECT_TRUE(logfile.CreateLogFolder(pszModule, folder));
      strFolder = sim::Narrow(folder.module.Path());
    }
    RemoveDirectoryW(sim::Wide(strFolder).c_str());
    return strFolder.substr(strFolder.rfind('\\') + 1);
  };
  CLogfile logfile, other;
  const auto folderFor = [&](const char* pszModule) { return folderOf(logfile, pszModule); };
  EXPECT_EQ(folderOf(other, "TAG    \0x"), "x");
  EXPECT_EQ(folderFor("TAG    \0seventeen_letters"), "Undefined");
  EXPECT_EQ(folderFor("TAG    \0"), "Undefined");
  EXPECT_EQ(folderFor(nullptr), "Undefined");
  EXPECT_EQ(folderFor("TAG    \0sixteen__letters"), "sixteen__letters");
  EXPECT_EQ(folderFor("TAG    \0another"), "sixteen__letters");
  EXPECT_EQ(folderFor(nullptr), "sixteen__letters");
}

TEST_F(Log, MutexThatItsOwnerAbandonedIsTaken) {
  Mask(LOG_LEVEL_E);
  const HANDLE hMutex = CreateMutexW(nullptr, FALSE, L"Global\\Kelvane_SDK_LOGS2");
  SideThread([&] { WaitForSingleObject(hMutex, INFINITE); }).Join();
  Say(LOG_LEVEL_E, L"a line");
  EXPECT_EQ(World::LogCount("a line"), 1u);
  CloseHandle(hMutex);
}

// Threads log at once: no line is lost or mixed.
class LogThreads : public Log {};

TEST_F(LogThreads, LinesOfManyThreadsStayWhole) {
  Mask(LOG_LEVEL_E);
  constexpr int kLines = 50;
  const auto say = [] {
    for (int n = 0; n < kLines; ++n) {
      Say(LOG_LEVEL_T, L"trace");
      Say(LOG_LEVEL_E, L"0123456789 a whole line 9876543210");
    }
  };
  for (SideThread& thread :
       std::array<SideThread, 4>{SideThread(say), SideThread(say), SideThread(say), SideThread(say)})
    thread.Join();
  EXPECT_EQ(World::LogCount("\tRoutine(7) \t0123456789 a whole line 9876543210\r\n"), std::size_t{4 * kLines});
}

#ifndef _WIN32
// ---- what needs the clock --------------------------------------------------------------------------------------------

class LogClock : public Log {
 protected:
  static constexpr std::uint64_t kDay = 86'400'000;
  void Old(const char* pszName, const char* pszText) {
    World::WriteWholeFile(World::LogFolder() + "\\" + pszName, pszText);
  }
  static bool There(const char* pszName) { return Exists(World::LogFolder() + "\\" + pszName); }
};

TEST_F(LogClock, LineWaitsASecondForItsTurnAndThenGoesOn) {
  Mask(LOG_LEVEL_E);
  Say(LOG_LEVEL_E, L"first");
  w32::SetClock({2026, 11, 0, 18, 9, 0, 0, 0});
  {
    const SideThread holder([] {
      const HANDLE hMutex = CreateMutexW(nullptr, FALSE, L"Global\\Kelvane_SDK_LOGS2");
      WaitForSingleObject(hMutex, INFINITE);
      Sleep(30'000);
      ReleaseMutex(hMutex);
      CloseHandle(hMutex);
    });
    const SideThread first([] {
      Sleep(500);
      Say(LOG_LEVEL_E, L"has the turn and waits for the file");
    });
    Sleep(1000);
    Say(LOG_LEVEL_E, L"beside");
  }
  const std::string strLines = Lines();
  const std::size_t nStamp = strLines.rfind("[11/18", strLines.find("beside"));
  EXPECT_EQ(strLines.substr(nStamp, 16), "[11/18 09:00(02.");  // that of the moment when it went on
}

TEST_F(LogClock, NewMaskTakesEffectAfter15SecondsAcrossTheTickCountsEndToo) {
  w32::SetTickBase(0u - 10'000u);
  Mask(LOG_LEVEL_E);
  Say(LOG_LEVEL_E, L"one");
  Say(LOG_LEVEL_E, L"two");  // the second call reads again, from then on it is every 15 seconds
  Mask(0);
  w32::AdvanceClock(14'900);
  Say(LOG_LEVEL_E, L"still on");
  w32::AdvanceClock(200);
  Say(LOG_LEVEL_E, L"off");
  EXPECT_EQ(World::LogCount("still on"), 1u);
  EXPECT_EQ(World::LogCount("\toff"), 0u);
}

TEST_F(LogClock, ChangedLifeDaysPurgeOnTheSameDay) {
  Mask(LOG_LEVEL_E);
  Say(LOG_LEVEL_E, L"first");
  Old("20261101.log", "Kelvane Thermal Printer Log\r\n\r\nold");
  w32::AdvanceClock(kDay / 48);
  Say(LOG_LEVEL_E, L"half an hour later");
  EXPECT_TRUE(There("20261101.log"));
  World::SetMachineDword("SOFTWARE\\Kelvane\\ThermalPrinterSdk", "LogLifeDays", 0);
  w32::AdvanceClock(15'000);
  Say(LOG_LEVEL_E, L"and the new value is read");
  EXPECT_FALSE(There("20261101.log"));
}

TEST_F(LogClock, CallBelowTheMaskIsATraceRecordAndAsksTheSystemNothing) {
  Mask(LOG_LEVEL_E);
  for (const wchar_t* pszText : {L"first", L"second"}) Say(LOG_LEVEL_E, pszText);
  w32::SetClock({2026, 11, 0, 18, 9, 30, 15, 250});
  Say(LOG_LEVEL_T, L"reads the settings, should they be old");
  {
    const w32::FaultsOn faults;
    w32::ResetFaults();
    Say(LOG_LEVEL_T, L"unseen", "Traced");
    EXPECT_EQ(w32::FaultPointsPassed(), 0u);
  }
  Say(LOG_LEVEL_E, L"error");
  EXPECT_EQ(World::LogCount("$$$ [09:30(15.250)] [00001a2b(0000003c)] Traced(7)\r\n"), 1u);
}

TEST_F(LogClock, TraceIsKeptOnlyForAMaskThatShowsErrors) {
  Mask(LOG_LEVEL_W);
  Say(LOG_LEVEL_W, L"a line");
  Say(LOG_LEVEL_I, L"not wanted", "Unwanted");  // settings are read, and old files purged
  {
    const w32::FaultsOn faults;
    w32::ResetFaults();
    Say(LOG_LEVEL_I, L"nor this", "Unwanted");
    EXPECT_EQ(w32::FaultPointsPassed(), 0u);
  }
  w32::AdvanceClock(30'000);
  Mask(LOG_LEVEL_E);
  Say(LOG_LEVEL_E, L"error");
  EXPECT_EQ(World::LogCount("Unwanted"), 0u);
  EXPECT_EQ(World::LogCount("\terror\r\n"), 1u);
}

TEST_F(LogClock, ProductNameThatFillsItsRoomIsLeftOut) {
  Mask(LOG_LEVEL_E);
  for (const std::size_t cch : {126u, 127u}) {
    HKEY hKey = nullptr;
    RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", 0, nullptr, 0,
                    KEY_SET_VALUE, nullptr, &hKey, nullptr);
    const sim::WideString name = sim::Wide(std::string(cch, 'p'));
    RegSetValueExW(hKey, L"ProductName", 0, REG_SZ, reinterpret_cast<const BYTE*>(name.c_str()),
                   static_cast<DWORD>((cch + 1) * sizeof(wchar_t)));
    RegCloseKey(hKey);
    Say(LOG_LEVEL_E, L"line");
    EXPECT_EQ(World::LogCount("_\r\n" + std::string(cch, 'p')), cch == 126 ? 1u : 0u);
    w32::AdvanceClock(kDay);
  }
}

TEST_F(LogClock, PurgeDeletesOnlyOldFilesOfOurs) {
  Mask(LOG_LEVEL_E);
  Say(LOG_LEVEL_E, L"first");
  Old("20261001.log", "Kelvane Thermal Printer Log\r\n\r\nold");
  Old("2026notes.log", "somebody's notes");
  Old("19991231.log", "Kelvane Thermal Printer Log\r\n\r\nancient");
  w32::AdvanceClock(10 * kDay);
  Old("20261128.log", "Kelvane Thermal Printer Log\r\n\r\nyounger");
  w32::AdvanceClock(1 * kDay + kDay / 12);
  Say(LOG_LEVEL_E, L"eleven days later");
  EXPECT_FALSE(There("20261001.log"));
  EXPECT_FALSE(There("20261118.log"));
  EXPECT_TRUE(There("20261128.log"));
  EXPECT_TRUE(There("2026notes.log"));
  EXPECT_TRUE(There("19991231.log"));
}

TEST_F(LogClock, FolderIsMadeForEveryUserAndAFullDiskLosesNoOrder) {
  RemoveDirectoryW(sim::Wide(World::LogFolder()).c_str());
  Mask(LOG_LEVEL_E);
  Say(LOG_LEVEL_E, L"first");
  EXPECT_EQ(w32::AccessListOf(sim::Wide(World::LogFolder()).c_str()), "S-1-5-32-545 0x10000000 3");
  {
    const w32::FaultsOn faults;
    w32::FailCalls("WriteFile", 2);
    Say(LOG_LEVEL_E, L"lost");
  }
  Say(LOG_LEVEL_E, L"next");
  EXPECT_EQ(World::LogCount("lost"), 0u);
  EXPECT_EQ(World::LogCount("<=== Log output here failed\r\n"), 1u);
  EXPECT_EQ(World::LogCount("next"), 1u);
}

TEST_F(LogClock, SlowFileIsNotedBeforeTheLine) {
  Mask(LOG_LEVEL_E);
  Say(LOG_LEVEL_E, L"first");
  const w32::FaultsOn faults;
  for (const DWORD dwMilliseconds : {10'000u, 10'001u}) {
    w32::SlowCall("CreateFileW", dwMilliseconds);
    Say(LOG_LEVEL_E, L"slow");
    EXPECT_EQ(World::LogCount("File access time is abnormal\r\n["), dwMilliseconds > 10'000 ? 1u : 0u);
  }
}

TEST_F(LogClock, FolderThatCannotBeMadeEndsLoggingForTheProcess) {
  RemoveDirectoryW(sim::Wide(World::LogFolder()).c_str());
  Mask(LOG_LEVEL_E);
  {
    const w32::FaultsOn faults;
    w32::FailCalls("CreateDirectoryW", 1, 0, ERROR_DISK_FULL);
    Say(LOG_LEVEL_E, L"lost");
  }
  Say(LOG_LEVEL_E, L"lost as well");
  EXPECT_EQ(World::LogText(), "");
}

// … unless it is only this thread that may not: the next line may be the spooler's own.
TEST_F(LogClock, FolderThatOneClientMayNotMakeCostsItsLine) {
  RemoveDirectoryW(sim::Wide(World::LogFolder()).c_str());
  Mask(LOG_LEVEL_E);
  g_strDebugText.clear();
  w32::SetDebugSink([](const std::string& strText) { g_strDebugText += strText; });
  {
    const w32::FaultsOn faults;
    w32::FailCalls("CreateDirectoryW");
    Say(LOG_LEVEL_E, L"of a client");
  }
  w32::SetDebugSink(nullptr);
  EXPECT_NE(g_strDebugText.find("File:.\\Interface(line:107)/ CInterface::OutputLogMessage"), std::string::npos);
  Say(LOG_LEVEL_E, L"of the spooler");
  EXPECT_EQ(World::LogCount("of a client"), 0u);
  EXPECT_EQ(World::LogCount("of the spooler\r\n"), 1u);
}
#endif

TEST(AssertTest, GoesToTheDebuggerAndIsCut) {
#ifndef _WIN32
  w32::SetDebugSink([](const std::string& strText) { g_strDebugText = strText; });
  Assert("file.cpp", "Routine", 12, 5);
  EXPECT_EQ(g_strDebugText, "Assert!! \r\nFile:file.cpp(line:12)/ Routine\r\n(system error code :5)");
  Assert("file.cpp", std::string(600, 'r').c_str(), 12, 5);
  EXPECT_EQ(g_strDebugText.size(), 511u);
  w32::SetDebugSink(nullptr);
#endif
  SetLastError(99);
  Assert("file.cpp", "Routine", 12, 5);
  EXPECT_EQ(GetLastError(), 99u);
}

}  // namespace
