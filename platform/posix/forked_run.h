// Children of this process that begin where it stands, each with drives of its own.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace w32 {

// A place for one child after the other. The process has no other thread when one is started.
class ForkedRun {
 public:
  // strName: tells this process's places apart.
  explicit ForkedRun(const std::string& strName);
  ~ForkedRun();
  ForkedRun(ForkedRun&& other) noexcept;
  ForkedRun& operator=(ForkedRun&&) = delete;
  ForkedRun(const ForkedRun&) = delete;
  ForkedRun& operator=(const ForkedRun&) = delete;

  // The next child finds the drives as this process has them now; without that, as the last one left them.
  void FreshDrives();
  // Starts a child that ends with what the routine returns. bQuiet: what it prints is kept in a file.
  void Start(const std::function<bool()>& allWell, bool bQuiet = true);
  // Waits for its end and returns its exit status, 1 for a crash.
  int Wait();
  // Takes the end of a child that somebody waited for; false when it is another one's.
  bool Ended(pid_t nChild);
  bool IsRunning() const { return m_nChild != 0; }
  // What the last child printed.
  std::string Output() const;

 private:
  std::string m_strFolder;
  pid_t m_nChild = 0;
};

}  // namespace w32
