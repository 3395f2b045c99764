// Runs every case of the test programs named on the command line in a process of its own, from one program: under Wine each
// program that is started from outside costs a second, one that is started from inside some hundredths. Most
// cases wait, so several prefixes side by side take less time: a case is taken by who makes its folder below --claims first.
#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

constexpr DWORD kCaseTimeoutMs = 300'000;

struct Result {
  DWORD dwExit = 1;
  std::string strOutput;
};

// Waits for the child and for the end of its output, whichever comes last. The child's current folder lies in its own prefix: what
// it makes there it shares with nobody.
Result RunProgram(const std::wstring& commandLine) {
  Result result;
  wchar_t wszFolder[MAX_PATH], wszOutput[MAX_PATH];
  GetTempPathW(MAX_PATH, wszFolder);
  GetTempFileNameW(wszFolder, L"out", 0, wszOutput);
  SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
  const HANDLE hOutput = CreateFileW(wszOutput, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                     &inherited, CREATE_ALWAYS, 0, nullptr);
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = startup.hStdError = hOutput;
  PROCESS_INFORMATION process = {};
  const auto start = [&] {
    std::wstring line = commandLine;
    return CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, wszFolder, &startup, &process);
  };
  // One start in some hundred fails inside Wine, before the program has begun.
  BOOL bStarted = start();
  for (int n = 0; n < 3 && !bStarted && GetLastError() == ERROR_INTERNAL_ERROR; ++n) {
    std::printf("started again after error %ld: %ls\n", long{ERROR_INTERNAL_ERROR}, commandLine.c_str());
    Sleep(100);
    bStarted = start();
  }
  if (bStarted) {
    if (WaitForSingleObject(process.hProcess, kCaseTimeoutMs) == WAIT_TIMEOUT) {
      TerminateProcess(process.hProcess, 1);
      result.strOutput = "not over after five minutes\n";
      WaitForSingleObject(process.hProcess, INFINITE);
    }
    GetExitCodeProcess(process.hProcess, &result.dwExit);
    CloseHandle(process.hProcess);
    CloseHandle(process.hThread);
  } else {
    result.strOutput = "cannot be started, error " + std::to_string(GetLastError()) + "\n";
  }
  SetFilePointer(hOutput, 0, nullptr, FILE_BEGIN);
  char szBlock[4096];
  for (DWORD cb = 0; ReadFile(hOutput, szBlock, sizeof szBlock, &cb, nullptr) && cb > 0;)
    result.strOutput.append(szBlock, cb);
  CloseHandle(hOutput);
  DeleteFileW(wszOutput);
  return result;
}

// The names as --gtest_list_tests prints them: suites at the line's beginning, their cases indented.
std::vector<std::string> CasesOf(const std::wstring& program) {
  std::vector<std::string> cases;
  std::string strSuite;
  const std::string strList = RunProgram(L"\"" + program + L"\" --gtest_list_tests").strOutput;
  for (std::size_t nStart = 0; nStart < strList.size();) {
    const std::size_t nEnd = strList.find_first_of("\r\n", nStart);
    std::string strLine = strList.substr(nStart, nEnd - nStart);
    nStart = nEnd == std::string::npos ? nEnd : nEnd + 1;
    strLine.resize(std::min(strLine.size(), strLine.find("  #")));
    if (strLine.starts_with("  ")) {
      cases.push_back(strSuite + strLine.substr(2));
    } else if (strLine.ends_with('.')) {
      strSuite = strLine;
    }
  }
  return cases;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  std::wstring claims;
  int nFirst = 1;
  if (argc > 2 && std::wstring(argv[1]) == L"--claims") {
    claims = argv[2];
    nFirst = 3;
  }
  unsigned nSeen = 0, nRun = 0, nFailed = 0;
  for (int n = nFirst; n < argc; ++n) {
    const std::wstring program = argv[n];
    const std::vector<std::string> cases = CasesOf(program);
    if (cases.empty()) {
      std::printf("%ls has no cases\n", program.c_str());
      ++nFailed;
    }
    for (const std::string& strCase : cases) {
      ++nSeen;
      if (!claims.empty() && !CreateDirectoryW((claims + L"\\" + std::to_wstring(nSeen)).c_str(), nullptr) &&
          GetLastError() == ERROR_ALREADY_EXISTS)
        continue;
      const DWORD dwStart = GetTickCount();
      const Result result =
          RunProgram(L"\"" + program + L"\" --gtest_filter=" + std::wstring(strCase.begin(), strCase.end()));
      ++nRun;
      const bool bPassed = result.dwExit == 0 && result.strOutput.find("[  PASSED  ] 1 test.") != std::string::npos;
      std::printf("%s %6lu ms  %s\n", bPassed ? "passed" : "FAILED", GetTickCount() - dwStart, strCase.c_str());
      if (!bPassed) {
        ++nFailed;
        std::printf("%s\n", result.strOutput.c_str());
      }
      std::fflush(stdout);
    }
  }
  std::printf("%u cases run, %u failed\n", nRun, nFailed);
  return nFailed == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
