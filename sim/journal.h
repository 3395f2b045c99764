// What the monitor does to the outside, in order; and the lock and fault points that the simulated world is built with.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace sim {

// A lock that the platform's scheduler knows. What is done while it is held is one step: an exploration of the order of
// events does not interfere.
class Lock {
 public:
  Lock() { InitializeCriticalSection(&m_cs); }
  ~Lock() { DeleteCriticalSection(&m_cs); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
  void Enter();
  void Leave();

 private:
  CRITICAL_SECTION m_cs;
};

class Guard {
 public:
  explicit Guard(Lock& lock) : m_lock(lock) { m_lock.Enter(); }
  ~Guard() { m_lock.Leave(); }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;

 private:
  Lock& m_lock;
};

class Journal {
 public:
  struct Event {
    std::string strText;
    std::string strQueue;  // whose; empty where that does not matter
    DWORD dwTime;          // GetTickCount
  };
  void Add(const std::string& strText, const std::string& strQueue = {});
  // All that happened to one queue.
  std::vector<Event> EventsOf(const std::string& strQueue) const;
  std::vector<std::string> Entries() const;
  // Entries that begin with a text.
  std::vector<std::string> Of(const std::string& strStart) const;
  std::size_t Count(const std::string& strStart) const { return Of(strStart).size(); }
  void Clear();

 private:
  mutable Lock m_lock;
  std::vector<Event> m_events;
};

// One numbered fault point of the platform layer: true when the call must fail, with the last-error code set. On Windows,
// where the platform is the real one, nothing fails here.
bool FaultHere(const char* pszApi, DWORD dwUsualError);
DWORD FaultCode(const char* pszApi, DWORD dwUsualError);

// Tells the platform layer which client the thread acts for; 0: nobody.
void ActFor(unsigned nClient);

// Books printer and service handles in the platform layer's accounts.
enum class Owned { PrinterHandle, ServiceHandle };
void Book(Owned owned, int nChange);

}  // namespace sim
