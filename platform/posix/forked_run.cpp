#include "forked_run.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>

#include "control.h"
#include "scheduler.h"

namespace w32 {

ForkedRun::ForkedRun(const std::string& strName) : m_strFolder(SandboxRoot() + "." + strName) {}

ForkedRun::ForkedRun(ForkedRun&& other) noexcept
    : m_strFolder(std::exchange(other.m_strFolder, {})), m_nChild(std::exchange(other.m_nChild, 0)) {}

ForkedRun::~ForkedRun() {
  if (m_strFolder.empty()) return;
  std::error_code ignored;
  std::filesystem::remove_all(m_strFolder, ignored);
  std::filesystem::remove(m_strFolder + ".out", ignored);
}

void ForkedRun::FreshDrives() {
  constexpr auto kHow = std::filesystem::copy_options::recursive | std::filesystem::copy_options::copy_symlinks;
  std::error_code error;
  std::filesystem::remove_all(m_strFolder, error);
  std::filesystem::copy(SandboxRoot(), m_strFolder, kHow, error);
  if (error) Unsupported("a host that has no room for drives");
}

void ForkedRun::Start(const std::function<bool()>& allWell, bool bQuiet) {
  std::fflush(stdout);
  m_nChild = fork();
  if (m_nChild < 0) Unsupported("a host without room for a process");
  if (m_nChild != 0) return;
  if (bQuiet) {
    const int nOutput = open((m_strFolder + ".out").c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600);
    dup2(nOutput, STDOUT_FILENO);
    dup2(nOutput, STDERR_FILENO);
  }
  UseSandbox(m_strFolder);
  const bool bWell = allWell();
  std::fflush(stdout);
  _exit(bWell ? 0 : 1);
}

int ForkedRun::Wait() {
  int nStatus = -1;
  waitpid(std::exchange(m_nChild, 0), &nStatus, 0);
  return WIFEXITED(nStatus) ? WEXITSTATUS(nStatus) : 1;
}

bool ForkedRun::Ended(pid_t nChild) {
  if (nChild != m_nChild) return false;
  m_nChild = 0;
  return true;
}

std::string ForkedRun::Output() const {
  std::ifstream output(m_strFolder + ".out");
  return {std::istreambuf_iterator<char>(output), {}};
}

}  // namespace w32
