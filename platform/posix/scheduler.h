// The heart of the layer: who runs, what the time is, who waits for what.
//
// One mutex, the world lock, guards every waitable object's state. In simulated time exactly one thread runs: it keeps
// the baton until it blocks or a platform call decides, by the seed, to hand over. Free threads run as the machine lets
// them and a change of any object wakes those whose wait it ends; a call that does not wait takes no lock then, since
// that would hide a race from the thread sanitizer. Either way the clock jumps only when nobody can run.
#pragma once

#include "control.h"
#include "layer_lock.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace w32 {

// The clock's unit is 100 ns.
constexpr std::int64_t kTicksPerMs = 10'000;

enum class TimeMode { Simulated, Free };

struct Thread {
  DWORD dwId = 0;
  std::weak_ptr<Thread> pThis;
  bool bEnded = false;                            // world lock
  std::condition_variable turn;                   // signalled when this thread may run
  const std::function<bool()>* pReady = nullptr;  // what the thread waits for; null while it can run
  bool bHasDeadline = false;
  std::int64_t llDeadline = 0;  // 100-ns units of the scheduler's clock
  std::string strWaitsFor;
  std::string strName;         // for people
  bool bAwaitsMoment = false;  // exploration: goes on only when it is chosen
  int nSections = 0;           // critical sections that it owns; simulated time
  unsigned nMade = 0;          // events
  bool bNoted = false;         // see NoteStep
};

class Scheduler {
 public:
  static Scheduler& Get();

  std::mutex& WorldLock() { return m_mutex; }
  TimeMode Mode() const { return m_mode; }

  // The calling thread's record.
  Thread& Self();
  std::shared_ptr<Thread> NewThread();
  // Makes a new thread known, so that it can be picked to run.
  void Enlist(const std::shared_ptr<Thread>& pThread);
  // First and last acts of a thread made with NewThread; a free thread that is not of our making ends like one.
  void ThreadBegins(const std::shared_ptr<Thread>& pThread);
  void ThreadEnds();

  // Blocks until bReady() holds or the time has passed; the lock is held on entry and on return.
  bool WaitUntil(std::unique_lock<std::mutex>& lock, const char* pszWhat, const std::function<bool()>& bReady,
                 DWORD dwMilliseconds);
  // To be called, with the world lock held, after a change that may satisfy a waiter.
  void Changed();

  // A platform call: time moves on a little and, by the seed or the explored schedule, another thread may run.
  void Call(const char* pszApi, Touched touched = {});

  // See control.h.
  void ExploreBy(std::function<std::size_t(const Crossing&)> choose) { m_choose = std::move(choose); }
  bool Explores() const { return m_choose != nullptr; }
  void AwaitMoment(DWORD dwMilliseconds);
  void DieAt(std::uint64_t ullPlace, std::function<void()> lastAct);
  std::uint64_t PlacesToDie() const { return m_ullPlacesToDie; }
  // Whether the process is to die here: before a call, or in the middle of one that takes effect in parts.
  bool DiesHere();
  [[noreturn]] void Die();
  std::uint64_t LateMs() const { return m_ullLateTicks / kTicksPerMs; }

  std::int64_t NowTicks();     // 100-ns units since process start
  std::uint64_t LocalTicks();  // 100-ns units since 1601
  DWORD TickCount();
  void Advance(std::int64_t llTicks);
  void SetLocal(std::uint64_t ullTicks);
  void SetTickBase(DWORD dwBase) { m_dwTickBase = dwBase; }
  void Seed(std::uint64_t ullSeed);
  // Next pseudo-random number; in simulated time the sequence depends on the seed alone.
  std::uint64_t Random();

 private:
  Scheduler();
  // Those that can run now, at least one: the clock jumps for it. Good until the world lock is let go.
  const std::vector<Thread*>& WhoCanRun();
  void HandOver(std::unique_lock<std::mutex>& lock, Thread& self, bool bEnding);
  // The exploration's hand-over: whoever can run, whoever's time could come, and whatever awaits its moment.
  void Cross(std::unique_lock<std::mutex>& lock, Thread& self, const char* pszApi, bool bEnding, Touched touched = {});
  void SwitchTo(std::unique_lock<std::mutex>& lock, Thread& self, Thread& next, bool bEnding);
  void WakeFree();
  [[noreturn]] void ReportDeadlock();

  std::mutex m_mutex;
  std::vector<std::shared_ptr<Thread>> m_threads;
  std::vector<Thread*> m_canRun;
  Thread* m_pRunning = nullptr;
  TimeMode m_mode = TimeMode::Simulated;
  std::atomic<std::int64_t> m_llNow{0};
  std::atomic<std::int64_t> m_llEarliest{0};  // free threads: no wait's time is over before
  std::atomic<std::uint64_t> m_ullEpoch{0};
  std::atomic<DWORD> m_dwTickBase{0};
  std::uint64_t m_ullRandom = 1;
  std::atomic<DWORD> m_dwNextId{0};

  std::function<std::size_t(const Crossing&)> m_choose;
  Thread* m_pInterrupted = nullptr;  // by something that happened at its call: it goes on next
  std::uint64_t m_ullLateTicks = 0;
  std::uint64_t m_ullPlacesToDie = 0;
  std::uint64_t m_ullDieAt = 0;
  std::function<void()> m_lastAct;
};

// The client that the calling thread acts for.
unsigned Client() noexcept;

// Whether the calling thread is subject to faults.
bool SubjectToFaults();

// Ends the process with a message: an argument or a situation that the layer does not support.
[[noreturn]] void Unsupported(const char* pszWhat);

}  // namespace w32
