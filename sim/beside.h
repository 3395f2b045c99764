// A thread beside the caller's.
#pragma once

#include <windows.h>

#include <functional>

namespace sim {

// Something that another thread does meanwhile; it ends before this object does.
class Beside {
 public:
  explicit Beside(std::function<void()> act);
  ~Beside() { Join(); }
  Beside(const Beside&) = delete;
  Beside& operator=(const Beside&) = delete;
  bool Ends(DWORD dwMilliseconds) { return WaitForSingleObject(m_hThread, dwMilliseconds) == WAIT_OBJECT_0; }
  void Join();

 private:
  std::function<void()> m_act;
  HANDLE m_hThread;
};

}  // namespace sim
