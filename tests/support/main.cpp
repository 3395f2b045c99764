// The main of a test program. Log, archive and simulated world are the process's own: when several cases are to run the program
// starts itself once for each. On Windows run_cases does that.
#include <gtest/gtest.h>

#ifndef _WIN32
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

// The cases that the program's filter selects: it prints suites at the line's beginning and their cases indented.
std::vector<std::string> SelectedCases(const char* pszProgram) {
  std::vector<std::string> cases;
  std::string strSuite;
  const std::string strFilter = ::testing::GTEST_FLAG(filter);
  std::FILE* pList =
      popen((std::string(pszProgram) + " --gtest_list_tests '--gtest_filter=" + strFilter + "'").c_str(), "r");
  char szLine[1000];
  while (pList != nullptr && std::fgets(szLine, sizeof szLine, pList) != nullptr) {
    std::string strLine = szLine;
    strLine.resize(std::min(strLine.find("  # "), strLine.find('\n')));
    if (strLine.starts_with("  ")) cases.push_back(strSuite + strLine.substr(2));
    if (strLine.ends_with('.')) strSuite = strLine;
  }
  if (pList != nullptr) pclose(pList);
  return cases;
}

// Prints what a case said when it failed, and nothing of one that passed.
bool RunAlone(const char* pszProgram, const std::string& strCase) {
  std::FILE* pOutput = std::tmpfile();
  std::fflush(stdout);
  const pid_t child = fork();
  if (child == 0) {
    dup2(fileno(pOutput), STDOUT_FILENO);
    dup2(fileno(pOutput), STDERR_FILENO);
    unsetenv("W32_ROOT");  // drives of its own
    const std::string strFilter = "--gtest_filter=" + strCase;
    execl("/proc/self/exe", pszProgram, strFilter.c_str(), nullptr);
    _exit(127);
  }
  int nStatus = -1;
  waitpid(child, &nStatus, 0);
  const bool bPassed = nStatus == 0;
  std::printf("%s %s\n", bPassed ? "[       OK ]" : "[  FAILED  ]", strCase.c_str());
  std::rewind(pOutput);
  if (!bPassed)
    for (int c; (c = std::fgetc(pOutput)) != EOF;) std::putchar(c);
  std::fclose(pOutput);
  return bPassed;
}

}  // namespace
#endif

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
#ifndef _WIN32
  const bool bOne = std::string(::testing::GTEST_FLAG(filter)).find_first_of("*?:-") == std::string::npos;
  const auto cases = bOne || ::testing::GTEST_FLAG(list_tests) ? std::vector<std::string>() : SelectedCases(argv[0]);
  if (cases.size() > 1) {
    std::size_t nFailed = 0;
    for (const std::string& strCase : cases) nFailed += !RunAlone(argv[0], strCase);
    std::printf("%zu of %zu cases passed\n", cases.size() - nFailed, cases.size());
    return nFailed == 0 ? 0 : 1;
  }
#endif
  return RUN_ALL_TESTS();
}
