// A thread beside the caller's.
#pragma once

#include <windows.h>

#include <functional>

namespace sim {

// Something that another thread does meanwhile; it ends before this object does.
class SideThread {
 public:
  explicit SideThread(std::function<void()> act);
  ~SideThread() { Join(); }
  SideThread(const SideThread&) = delete;
  SideThread& operator=(const SideThread&) = delete;
  bool Ends(DWORD dwMilliseconds) { return WaitForSingleObject(m_hThread, dwMilliseconds) == WAIT_OBJECT_0; }
  void Join();

 private:
  std::function<void()> m_act;
  HANDLE m_hThread;
};

}  // namespace sim
