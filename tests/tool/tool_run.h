// Runs the programs beside the test as their users do.
#pragma once

#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

struct ToolRun {
  int nExit = -1;
  std::string strOutput;  // both streams

  bool Says(const std::string& strPart) const { return strOutput.find(strPart) != std::string::npos; }
};

// A command line of the shell that begins with the name of one of our programs.
inline ToolRun RunTool(const std::string& strCommand) {
  const std::string strPath =
      (std::filesystem::read_symlink("/proc/self/exe").parent_path() / strCommand).string() + " 2>&1";
  ToolRun run;
  FILE* pOutput = popen(strPath.c_str(), "r");
  if (pOutput == nullptr) return run;
  char szBlock[4096];
  while (const std::size_t cb = std::fread(szBlock, 1, sizeof szBlock, pOutput)) run.strOutput.append(szBlock, cb);
  const int nStatus = pclose(pOutput);
  run.nExit = WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : -1;
  return run;
}

inline std::size_t Lines(const std::string& strText) {
  return static_cast<std::size_t>(std::count(strText.begin(), strText.end(), '\n'));
}

// A folder for the test's files, gone with it.
class TestFolder {
 public:
  TestFolder() {
    std::string strTemplate = (std::filesystem::temp_directory_path() / "tool-XXXXXX").string();
    m_path = mkdtemp(strTemplate.data());
  }
  ~TestFolder() { std::filesystem::remove_all(m_path); }
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;
  std::string operator/(const std::string& strName) const { return (m_path / strName).string(); }

 private:
  std::filesystem::path m_path;
};
