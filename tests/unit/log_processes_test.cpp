// Two processes log into one file at once.
#include <set>

#include "tests/support/world_test.h"

#ifndef _WIN32
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
extern char** environ;
#endif

using namespace testing_support;
using sim::World;

namespace {

// Starts the program beside this one and returns what waits for its end.
#ifdef _WIN32
HANDLE Start(const std::string& strArguments) {
  wchar_t wszPath[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, wszPath, MAX_PATH);
  const sim::WideString path(wszPath);
  sim::WideString command =
      L"\"" + path.substr(0, path.rfind(L'\\')) + L"\\log_many_lines.exe\" " + sim::Wide(strArguments);
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process))
    return nullptr;
  CloseHandle(process.hThread);
  return process.hProcess;
}
bool Ends(HANDLE hProcess) {
  DWORD dwCode = 1;
  WaitForSingleObject(hProcess, INFINITE);
  GetExitCodeProcess(hProcess, &dwCode);
  CloseHandle(hProcess);
  return dwCode == 0;
}
#else
pid_t Start(const std::string& strArguments) {
  char szSelf[4096] = {};
  if (readlink("/proc/self/exe", szSelf, sizeof szSelf - 1) < 0) return -1;
  const std::string strPath = std::string(szSelf).substr(0, std::string(szSelf).rfind('/')) + "/log_many_lines";
  std::string strCount = strArguments.substr(0, strArguments.find(' '));
  std::string strName = strArguments.substr(strArguments.find(' ') + 1);
  std::string strProgram = "log_many_lines";
  char* apszArguments[] = {strProgram.data(), strCount.data(), strName.data(), nullptr};
  w32::SandboxRoot();  // the children share it
  pid_t nChild = -1;
  return posix_spawn(&nChild, strPath.c_str(), nullptr, nullptr, apszArguments, environ) == 0 ? nChild : -1;
}
bool Ends(pid_t nChild) {
  int nStatus = 1;
  return waitpid(nChild, &nStatus, 0) == nChild && nStatus == 0;
}
#endif

TEST(LogProcesses, TenThousandLinesEachAndNoneIsLostOrMixed) {
  constexpr int kLines = 10'000;
  World::CleanMachine();
  World::SetLogLevel(0x2);
  const auto first = Start(sim::Format("%d first", kLines));
  const auto second = Start(sim::Format("%d second", kLines));
  EXPECT_TRUE(Ends(first));
  EXPECT_TRUE(Ends(second));
  std::set<std::string> lines;
  const std::string strText = World::LogText();
  std::size_t nOther = 0;
  for (std::size_t nStart = 0; nStart < strText.size();) {
    const std::size_t nEnd = strText.find("\r\n", nStart);
    const std::string strLine = strText.substr(nStart, nEnd - nStart);
    nStart = nEnd == std::string::npos ? strText.size() : nEnd + 2;
    const std::size_t nMessage = strLine.rfind('\t');
    if (strLine.ends_with(" of a process that logs beside another one")) {
      lines.insert(strLine.substr(nMessage + 1));
    } else {
      ++nOther;
    }
  }
  EXPECT_EQ(lines.size(), std::size_t{2 * kLines});
  EXPECT_LT(nOther, 12u);  // the header of the one file
}

}  // namespace
