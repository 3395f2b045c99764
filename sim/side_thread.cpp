#include "sim/side_thread.h"

namespace sim {

SideThread::SideThread(std::function<void()> act) : m_act(std::move(act)) {
  const auto run = [](LPVOID p) -> DWORD {
    static_cast<SideThread*>(p)->m_act();
    return 0;
  };
  DWORD dwThreadId = 0;
  m_hThread = CreateThread(nullptr, 0, run, this, 0, &dwThreadId);
}

void SideThread::Join() {
  if (m_hThread == nullptr) return;
  WaitForSingleObject(m_hThread, INFINITE);
  CloseHandle(m_hThread);
  m_hThread = nullptr;
}

}  // namespace sim
