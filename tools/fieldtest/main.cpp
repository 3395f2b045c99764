// What the first person with a real Windows runs on a test machine: the test programs against its kernel, registry, files and
// services; with --install also the package, a queue and the spooler. It writes a report, and leaves the machine as it was.
#include <windows.h>

#include <lm.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <sstream>

#include "tools/fieldtest/machine.h"
#include "tools/fieldtest/printer.h"
#include "tools/fieldtest/report.h"
#include "tools/common/machine_kind.h"
#include "tools/common/registered_monitor.h"

namespace fs = std::filesystem;
using namespace fieldtest;

namespace {

constexpr int kExitNothingDone = 2;
constexpr DWORD kCasesMs = 3'600'000;
constexpr DWORD kSetupMs = 900'000;
constexpr int kRestarts = 20;

std::string g_strReceipt = "\x1b@Field test receipt\n----------------\nTotal 12.34\n\n\n";

// The first reason why this machine must not be tested; empty: none.
std::string WhyNot(bool bInstall) {
  if (!IsElevated()) return "an administrator must start it (\"Run as administrator\")";
  if (lmctl::IsArm64()) return "this is an ARM64 machine: its spooler loads no x64 language monitor";
  if (bInstall && lmctl::IsProtectedPrintMode())
    return "Windows' protected print mode is on: the spooler loads no language monitor";
  std::error_code error;
  if (!lmctl::MonitorNames().empty() || KeyExists(kProductKey) || fs::exists(LogFolder(), error) ||
      ServiceExists(L"Norvex_Srv"))
    return "something of the monitor is on this machine already (monitor, settings, log or service), and the test "
           "would "
           "take it away: use a test machine";
  return "";
}

// Settings and log: there were none before.
void TakeAwayData() {
  RegDeleteTreeW(HKEY_LOCAL_MACHINE, kProductKey);
  std::error_code error;
  fs::remove_all(LogFolder(), error);
}

void RunCases(Report& report, const fs::path& folder, const std::wstring& claims) {
  // Told by the program that runs them: "passed", "FAILED", and what a failed one printed.
  fs::current_path(ProgramFolder() / L"cases");
  const Ended ended = RunCommand(L"\"" + (ProgramFolder() / L"cases" / L"run_cases.exe").wstring() + L"\" " +
                                     (claims.empty() ? L"" : L"--claims \"" + claims + L"\" ") +
                                     L"unit_tests.exe scenario_tests.exe windows_tests.exe setup_rights_tests.exe",
                                 folder / L"cases.txt", kCasesMs);
  std::istringstream lines(ended.strOutput);
  std::string strLine, strLast;
  while (std::getline(lines, strLine)) {
    while (strLine.ends_with('\r')) strLine.pop_back();
    if (strLine.starts_with("FAILED "))
      report.Check("case " + strLine.substr(strLine.rfind(' ') + 1), "passed", "FAILED");
    if (!strLine.empty()) strLast = strLine;
  }
  fs::current_path(ProgramFolder());
  report.Check("all cases of the test programs", "they run, and none fails", strLast,
               ended.dwExit == 0 && strLast.find(" cases run, 0 failed") != std::string::npos);
  report.Attach("cases", folder / L"cases.txt");
  TakeAwayData();  // what the cases leave is what their world is made of
}

std::string Setup(const std::wstring& arguments, const fs::path& log) {
  const Ended ended =
      RunCommand(L"msiexec " + arguments + L" /qn /l*v \"" + log.wstring() + L"\"", log.wstring() + L".out", kSetupMs);
  return std::to_string(ended.dwExit);
}

// A second user, while it lives; empty when the machine takes none.
class OtherUser {
 public:
  OtherUser() {
    USER_INFO_1 user = {};
    user.usri1_name = m_szName;
    user.usri1_password = m_szPassword;
    user.usri1_priv = USER_PRIV_USER;
    user.usri1_flags = UF_SCRIPT | UF_DONT_EXPIRE_PASSWD;
    m_bMade = NetUserAdd(nullptr, 1, reinterpret_cast<BYTE*>(&user), nullptr) == NERR_Success;
    if (m_bMade &&
        !LogonUserW(m_szName, L".", m_szPassword, LOGON32_LOGON_INTERACTIVE, LOGON32_PROVIDER_DEFAULT, &m_hToken))
      m_hToken = nullptr;
  }
  ~OtherUser() {
    if (m_hToken != nullptr) CloseHandle(m_hToken);
    if (m_bMade) NetUserDel(nullptr, m_szName);
  }
  OtherUser(const OtherUser&) = delete;
  OtherUser& operator=(const OtherUser&) = delete;
  HANDLE Token() const { return m_hToken; }

 private:
  wchar_t m_szName[20] = L"KelvaneFieldTest";
  wchar_t m_szPassword[32] = L"Fie1d-Test!Kelvane#2026";
  bool m_bMade = false;
  HANDLE m_hToken = nullptr;
};

constexpr char kWine[] = "this is Wine, whose spooler loads no monitor";

// What needs a spooler that prints.
void PrintHere(Report& report, Printer& printer) {
  const auto prints = [&](const char* pszCheck, const std::string& strFailed) {
    report.Check(pszCheck, "printed, byte for byte",
                 !strFailed.empty()                 ? strFailed
                 : printer.OnPort() == g_strReceipt ? "printed, byte for byte"
                                                    : std::to_string(printer.OnPort().size()) + " other bytes");
  };
  prints("a receipt", printer.Print(L"field test 1", g_strReceipt));
  if (IsWine()) {  // nor does it pause queues or take users
    for (const char* pszCheck : {"the spooler has the DLL loaded", "a deleted job", "a receipt of another user"})
      report.NotHere(pszCheck, kWine);
    return;
  }
  report.Check("the spooler has the DLL loaded", "yes", SpoolerHasMonitor() ? "yes" : "no");
  const std::string strFailed = printer.PrintAndDelete(L"field test deleted", "this is never printed");
  report.Check("a deleted job", "never printed",
               !strFailed.empty()                                            ? strFailed
               : printer.OnPort().find("never printed") == std::string::npos ? "never printed"
                                                                             : "it was printed");
  const OtherUser user;
  if (user.Token() == nullptr) {
    report.NotHere("a receipt of another user", "no second user can be made or logged on");
  } else {
    prints("a receipt of another user", printer.Print(L"field test 2", g_strReceipt, user.Token()));
  }
}

// Wine's spooler has nothing of ours in it, and was seen to fail once on a busy machine: it may try again.
std::string Turn(Report& report, std::string (*pfnTurn)()) {
  const std::string strFailed = pfnTurn();
  if (strFailed.empty() || !IsWine()) return strFailed;
  report.Fact("Wine's spooler was asked again", strFailed);
  return pfnTurn();
}

void RestartSpooler(Report& report) {
  const std::string strExpected = std::to_string(kRestarts) + " times";
  std::string strFailed;
  bool bHeldWhileStopped = false;
  int n = 0;
  for (; n < kRestarts && strFailed.empty(); ++n) {
    strFailed = Turn(report, StopSpooler);
    bHeldWhileStopped |= IsMonitorHeld();
    if (strFailed.empty()) strFailed = Turn(report, StartSpooler);
  }
  report.Check("the spooler stops and starts", strExpected,
               strFailed.empty() ? strExpected : "in turn " + std::to_string(n) + ": " + strFailed);
  report.Check("the DLL while the spooler is stopped", "held by nobody", bHeldWhileStopped ? "held" : "held by nobody");
}

void TestInstallation(Report& report, const fs::path& folder, const std::wstring& package) {
  const std::string strInstalled = Setup(L"/i \"" + package + L"\" LOGLEVEL=EWIDT", folder / L"install.log");
  report.Check("the package installs", "0", strInstalled);
  const std::vector<std::wstring> monitors = lmctl::MonitorNames();
  report.Check("the spooler's registry names the monitor", "once", monitors.size() == 1 ? "once" : "not once");
  report.Check("the spooler", "runs", ServiceState(kSpooler) == SERVICE_RUNNING ? "runs" : "does not run");
  const std::wstring tool = L"\"" + InstalledTool().wstring() + L"\" ";
  const Ended doctor = RunCommand(tool + L"doctor", folder / L"doctor.txt", 60'000);
  std::string strNotOk;
  for (const char* pszCheck : {"dll", "monitor", "spooler"})
    if (doctor.strOutput.find(std::string("ok       ") + pszCheck) == std::string::npos)
      strNotOk += std::string(strNotOk.empty() ? "not ok: " : ", ") + pszCheck;
  report.Check("lmctl doctor", "dll, monitor and spooler are ok",
               strNotOk.empty() ? "dll, monitor and spooler are ok" : strNotOk);
  report.Attach("lmctl doctor", folder / L"doctor.txt");
  RestartSpooler(report);
  {
    Printer printer(folder);
    std::string strFailed = monitors.empty() ? "no monitor" : printer.AddDriver(monitors.front());
    if (strFailed.empty()) strFailed = printer.AddQueue();
    report.Check("a queue on a port that writes to a file", "made", strFailed.empty() ? "made" : strFailed);
    if (strFailed.empty()) PrintHere(report, printer);
    if (IsWine()) {
      report.NotHere("lmctl tells of the receipts", kWine);
    } else {
      const Ended jobs = RunCommand(tool + L"jobs", folder / L"jobs.txt", 60'000);
      const bool bTold = jobs.dwExit == 0 && jobs.strOutput.find("Kelvane Field Test") != std::string::npos;
      report.Check("lmctl tells of the receipts", "yes", bTold ? "yes" : "no");
      report.Attach("lmctl jobs", folder / L"jobs.txt");
      std::error_code error;
      for (const auto& file : fs::recursive_directory_iterator(LogFolder(), error))
        if (file.is_regular_file(error)) report.Attach("log " + Utf8(file.path().filename().wstring()), file.path());
    }
  }
  report.Check("the package uninstalls", "0", Setup(L"/x \"" + package + L"\"", folder / L"uninstall.log"));
  report.Attach("setup log", folder / L"install.log");
  report.Attach("setup log of the removal", folder / L"uninstall.log");
  TakeAwayData();  // they stay, as they should
}

void CompareMachine(Report& report, const std::vector<std::string>& before) {
  const std::vector<std::string> after = Inventory();
  std::string strDifferent;
  for (const std::string& strLine : before)
    if (std::find(after.begin(), after.end(), strLine) == after.end()) strDifferent += "gone: " + strLine + "; ";
  for (const std::string& strLine : after)
    if (std::find(before.begin(), before.end(), strLine) == before.end()) strDifferent += "new: " + strLine + "; ";
  report.Check("the machine is as before", "nothing is different",
               strDifferent.empty() ? "nothing is different" : strDifferent);
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app("Tests the language monitor on a test machine and writes a report.");
  std::string strPackage, strClaims, strReport = "report";
  app.add_option("--install", strPackage, "also installs this package, prints, restarts the spooler, and uninstalls it")
      ->check(CLI::ExistingFile);
  app.add_option("--report", strReport, "the folder of report.html and report.json")->capture_default_str();
  app.add_option("--claims", strClaims, "a folder of which several test runs take their cases")
      ->check(CLI::ExistingDirectory);
  CLI11_PARSE(app, argc, argv);

  const std::string strWhyNot = WhyNot(!strPackage.empty());
  if (!strWhyNot.empty()) {
    std::printf("Nothing was done: %s.\n", strWhyNot.c_str());
    return kExitNothingDone;
  }
  const fs::path folder = fs::absolute(strReport);
  fs::create_directories(folder);
  const fs::path package = strPackage.empty() ? fs::path() : fs::absolute(strPackage);
  const fs::path claims = strClaims.empty() ? fs::path() : fs::absolute(strClaims);
  Report report(folder);
  report.Fact("system", Utf8(SystemName()) + (IsWine() ? " (Wine)" : ""));
  report.Fact("field test", LM_VERSION);
  const std::vector<std::string> before = Inventory();
  RunCases(report, folder, claims.wstring());
  if (!package.empty()) TestInstallation(report, folder, package.wstring());
  CompareMachine(report, before);
  return report.Write() ? 0 : 1;
}
