// lmctl beside the system's own spooler routines: a driver, a queue on a file port and its printer data.
#include <gtest/gtest.h>
#include <windows.h>

#include <winspool.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "base/setting_names.h"
#include "tools/fieldtest/printer.h"

namespace {

namespace fs = std::filesystem;

constexpr wchar_t kMonitorKey[] = L"SYSTEM\\CurrentControlSet\\Control\\Print\\Monitors\\Kelvane Language Monitor";

struct Answer {
  int nExit;
  std::string strOutput;
  bool Says(const std::string& strPart) const { return strOutput.find(strPart) != std::string::npos; }
};

class LmctlOnWindows : public ::testing::Test {
 protected:
  void SetUp() override {
    wchar_t wsz[MAX_PATH];
    GetModuleFileNameW(nullptr, wsz, MAX_PATH);
    m_programs = fs::path(wsz).parent_path();
    GetSystemDirectoryW(wsz, MAX_PATH);
    m_system = wsz;
    m_folder = fs::temp_directory_path() / "kelvane_lmctl_test";
    CleanMachine();
    fs::create_directories(m_folder);
    // Its name is in no single code page.
    m_pPrinter = std::make_unique<fieldtest::Printer>(m_folder, L"Kelvane K\u00FCche \u30D0\u30FC");
    ASSERT_EQ(m_pPrinter->AddDriver(L"Kelvane Language Monitor"), "");
    ASSERT_EQ(m_pPrinter->AddQueue(), "");
  }

  void TearDown() override {
    m_pPrinter.reset();
    CleanMachine();
  }

  void CleanMachine() const {
    RegDeleteKeyW(HKEY_LOCAL_MACHINE, kMonitorKey);
    RegDeleteTreeW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Kelvane");  // other tests leave it volatile
    fs::remove(m_system / "kelvane_lm.dll");
    fs::remove_all(m_folder);
  }

  // Whatever it is asked, it says something; a program that says nothing was not started, which happens under Wine.
  Answer Lmctl(const std::string& strArguments) const {
    Answer run = {-1, {}};
    for (int nTry = 0; nTry < 3 && run.strOutput.empty(); ++nTry) run = LmctlOnce(strArguments);
    return run;
  }
  Answer LmctlOnce(const std::string& strArguments) const {
    Answer run = {-1, {}};
    std::wstring arguments(strArguments.size(), L'\0');
    arguments.resize(static_cast<std::size_t>(
        MultiByteToWideChar(CP_UTF8, 0, strArguments.data(), static_cast<int>(strArguments.size()), arguments.data(),
                            static_cast<int>(arguments.size()))));
    std::FILE* pOutput = _wpopen((m_programs.wstring() + L"\\lmctl.exe " + arguments + L" 2>&1").c_str(), L"rb");
    if (pOutput == nullptr) return run;
    for (int c; (c = std::fgetc(pOutput)) != EOF;)
      if (c != '\r') run.strOutput += static_cast<char>(c);
    run.nExit = _pclose(pOutput);
    return run;
  }
  // The state that doctor gives a check; the worst of several.
  std::string Doctor(const std::string& strCheck, const std::string& strOptions = "") const {
    std::string strState;
    const Answer answer = Lmctl("doctor --json " + strOptions);
    const auto rows = nlohmann::json::parse(answer.strOutput, nullptr, false);
    EXPECT_TRUE(rows.is_array()) << answer.strOutput;
    for (const auto& row : rows)
      if (row["check"] == strCheck && (strState.empty() || strState == "ok")) strState = row["state"];
    return strState;
  }

  static fs::path LogFolder() { return fs::path(std::getenv("ProgramData")) / "Kelvane" / "Logs" / "PrinterDriver"; }
  // The machine's log begins anew.
  static std::ofstream LogOfToday() {
    const fs::path folder = LogFolder();
    fs::remove_all(folder);
    fs::create_directories(folder);
    SYSTEMTIME st = {};
    GetLocalTime(&st);
    char szName[16];
    std::snprintf(szName, sizeof szName, "%04u%02u%02u.log", st.wYear, st.wMonth, st.wDay);
    return std::ofstream(folder / szName, std::ios::binary);
  }

  fs::path m_programs, m_system, m_folder;
  std::unique_ptr<fieldtest::Printer> m_pPrinter;
};

const std::string kQueue =
    "\"Kelvane K\xC3\xBC"
    "che \xE3\x83\x90\xE3\x83\xBC\"";

TEST_F(LmctlOnWindows, SettingsArriveAsThePrinterDataThatTheMonitorReads) {
  EXPECT_EQ(Lmctl("settings " + kQueue + " AutoReprint=1 JobFilePath=C:\\Archive JobValidDays=10").nExit, 0);
  DWORD dwType = 0, dwValue = 0, cb = 0;
  wchar_t szName[] = L"AutoReprint", szPath[] = L"JobFilePath", wszPath[64] = {};
  EXPECT_EQ(GetPrinterDataW(m_pPrinter->Queue(), szName, &dwType, reinterpret_cast<BYTE*>(&dwValue), 4, &cb), 0u);
  EXPECT_EQ(dwType, DWORD{REG_DWORD});
  EXPECT_EQ(dwValue, 1u);
  EXPECT_EQ(
      GetPrinterDataW(m_pPrinter->Queue(), szPath, &dwType, reinterpret_cast<BYTE*>(wszPath), sizeof wszPath, &cb), 0u);
  EXPECT_EQ(std::wstring(wszPath), L"C:\\Archive");
  const Answer shown = Lmctl("settings " + kQueue);
  EXPECT_TRUE(shown.Says("AutoReprint        1                            queue")) << shown.strOutput;
  EXPECT_TRUE(shown.Says("JobSettingFlags    0                            default")) << shown.strOutput;
  for (const char* pszBad : {"AutoReprint=2", "JobFilePath=Archive", "JobValidDays=x", "Nothing=1",
                             "UtilityGUID=0123456789012345678901234567890123456789012345678901234567890123"})
    EXPECT_EQ(Lmctl("settings " + kQueue + " " + pszBad).nExit, 2) << pszBad;
  EXPECT_EQ(Lmctl("settings \"No such queue\"").nExit, 1);

  EXPECT_EQ(Lmctl("settings LogLevelPos=EWI").nExit, 0);
  EXPECT_TRUE(Lmctl("settings").Says("LogLevelPos        EWI                          registry"));
  EXPECT_EQ(Lmctl("settings LogLevelPos=EQ").nExit, 2);
  EXPECT_EQ(Lmctl("settings LogLevelPos=").nExit, 0);
  EXPECT_TRUE(Lmctl("settings").Says("LogLevelPos        -                            default"));
}

TEST_F(LmctlOnWindows, DoctorFindsWhatIsWrong) {
  EXPECT_EQ(Doctor("monitor"), "failure");
  EXPECT_EQ(Doctor("dll"), "failure");
  HKEY hKey = nullptr;
  RegCreateKeyExW(HKEY_LOCAL_MACHINE, kMonitorKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &hKey, nullptr);
  RegSetValueExW(hKey, L"Driver", 0, REG_SZ, reinterpret_cast<const BYTE*>(L"kelvane_lm.dll"), 30);
  RegCloseKey(hKey);
  fs::copy_file(m_programs / "kelvane_lm.dll", m_system / "kelvane_lm.dll");
  EXPECT_EQ(Doctor("dll"), "ok");
  EXPECT_TRUE(Lmctl("doctor").Says("kelvane_lm.dll, version " LM_VERSION ", 64 bit"));
  EXPECT_EQ(Doctor("monitor"), "ok");
  EXPECT_EQ(Doctor("queue"), "ok");
  const Answer doctor = Lmctl("doctor");
  EXPECT_TRUE(doctor.Says(kQueue.substr(1, kQueue.size() - 2) + ": port")) << doctor.strOutput;
  EXPECT_EQ(Doctor("driver", "--before-uninstall"), "failure");
  EXPECT_EQ(Doctor("mutex"), "ok");
  const HANDLE hMutex = CreateMutexW(nullptr, TRUE, kLogMutexName);
  EXPECT_EQ(Doctor("mutex"), "failure");
  ReleaseMutex(hMutex);
  CloseHandle(hMutex);
  EXPECT_TRUE(Lmctl("doctor").Says("every job goes through the port monitor"));  // no device service
  for (const auto& [pszLevels, pszState] : {std::pair{"EW", "warning"}, {"EWI", "ok"}}) {
    EXPECT_EQ(Lmctl(std::string("settings LogLevelPos=") + pszLevels).nExit, 0);
    EXPECT_EQ(Doctor("level"), pszState);
  }
  LogOfToday() << "[11/18 12:00(00.000)]\t[00000001(00000002)]\t[E] \t[DRV_LM ] \tR(1) \tSDK_CLR_LOCK [e:5]\r\n";
  EXPECT_TRUE(Lmctl("doctor").Says("a device could not be unlocked: [11/18"));
  const HANDLE hHeld = CreateFileW(LogFolder().c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                   FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  const std::string strHeld = Lmctl("doctor").strOutput;
  CloseHandle(hHeld);
  EXPECT_NE(strHeld.find("cannot be written to: error 32"), std::string::npos) << strHeld;
  constexpr wchar_t kPolicy[] = L"SOFTWARE\\Policies\\Microsoft\\Windows NT\\Printers\\WPP";
  const DWORD dwOn = 1;
  RegSetKeyValueW(HKEY_LOCAL_MACHINE, kPolicy, L"WindowsProtectedPrintGroupPolicyState", REG_DWORD, &dwOn, sizeof dwOn);
  EXPECT_TRUE(Lmctl("doctor").Says("protected print mode"));
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, kPolicy);
  // A value that the monitor would not read, and an archive root with a folder of somebody else's.
  wchar_t szFlags[] = L"JobSettingFlags", szPath[] = L"JobFilePath";
  BYTE abyLong[8] = {1};
  EXPECT_EQ(SetPrinterDataW(m_pPrinter->Queue(), szFlags, REG_BINARY, abyLong, 8), 0u);
  EXPECT_EQ(Doctor("queue"), "warning");
  EXPECT_EQ(Lmctl("settings " + kQueue + " JobSettingFlags=1").nExit, 0);
  fs::create_directories(m_folder / "archive" / "letters");
  std::wstring root = (m_folder / "archive").wstring();
  SetPrinterDataW(m_pPrinter->Queue(), szPath, REG_SZ, reinterpret_cast<BYTE*>(root.data()),
                  static_cast<DWORD>((root.size() + 1) * sizeof(wchar_t)));
  EXPECT_EQ(Doctor("queue"), "ok");
  EXPECT_EQ(Doctor("archive"), "warning");
  EXPECT_TRUE(Lmctl("archive list --queue " + kQueue).Says("0 archived jobs"));
}

TEST_F(LmctlOnWindows, ArchivedJobIsPrintedAgain) {
  std::string strBytes(200'000, 'x');
  strBytes += std::string("\x1B@\x00\xFF end", 8);
  const fs::path job = m_folder / "0900_00(000).prn";
  std::ofstream(job, std::ios::binary) << strBytes;
  EXPECT_EQ(Lmctl("archive print \"" + job.string() + "\" --queue " + kQueue + " <nul").nExit, 1);  // not confirmed
  EXPECT_EQ(m_pPrinter->OnPort(), "");
  const Answer run = Lmctl("archive print \"" + job.string() + "\" --yes --queue " + kQueue);
  EXPECT_EQ(run.nExit, 0) << run.strOutput;
  EXPECT_TRUE(run.Says("200008 bytes handed to the spooler")) << run.strOutput;
  for (int n = 0; n < 100 && m_pPrinter->OnPort().size() < strBytes.size(); ++n) Sleep(50);
  EXPECT_TRUE(m_pPrinter->OnPort() == strBytes) << m_pPrinter->OnPort().size();
}

}  // namespace
