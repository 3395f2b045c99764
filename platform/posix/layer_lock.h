// A lock of the layer's own tables. Who holds one makes no platform call: there the thread may be sent to wait while others
// run, and one of those would wait for the lock for ever, unseen by the scheduler. Such a call ends the process with a
// message.
#pragma once

#include <mutex>

namespace w32 {

inline thread_local int t_nLayerLocks = 0;

class LayerLock {
 public:
  explicit LayerLock(std::mutex& mutex) : m_mutex(mutex) { Lock(); }
  ~LayerLock() { Unlock(); }
  LayerLock(const LayerLock&) = delete;
  LayerLock& operator=(const LayerLock&) = delete;
  void Lock() {
    m_mutex.lock();
    ++t_nLayerLocks;
  }
  void Unlock() {
    --t_nLayerLocks;
    m_mutex.unlock();
  }

 private:
  std::mutex& m_mutex;
};

}  // namespace w32
