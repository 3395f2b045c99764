#include "scheduler.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace w32 {
namespace {

constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();
// What one platform call costs in simulated time: small, but enough that a loop without a pause lets time pass.
constexpr std::int64_t kTicksPerCall = 100;
// One platform call in this many hands over in simulated time.
constexpr std::uint64_t kCallsPerHandOver = 8;
// 18 November 2026, 09:00:00: where simulated time starts.
constexpr std::uint64_t kSimulatedStart = 134'394'660'000'000'000ULL;

// A free thread that CreateThread did not make (a benchmark's) leaves the list when it ends.
struct OwnRecord {
  std::shared_ptr<Thread> p;
  ~OwnRecord() {
    if (p && !p->bEnded && Scheduler::Get().Mode() == TimeMode::Free) Scheduler::Get().ThreadEnds();
  }
};
thread_local OwnRecord t_self;

}  // namespace

void Unsupported(const char* pszWhat) {
  std::fprintf(stderr, "platform/posix: not supported: %s\n", pszWhat);
  std::abort();
}

Scheduler& Scheduler::Get() {
  static Scheduler* pScheduler = new Scheduler;  // never destroyed: threads may outlive main
  return *pScheduler;
}

Scheduler::Scheduler() {
  const char* pszTime = std::getenv("W32_TIME");
  if (pszTime != nullptr && std::strcmp(pszTime, "free") == 0) m_mode = TimeMode::Free;
  const char* pszSeed = std::getenv("W32_SEED");
  Seed(pszSeed != nullptr ? std::strtoull(pszSeed, nullptr, 10) : 1);
  m_ullEpoch = kSimulatedStart;
}

Thread& Scheduler::Self() {
  if (t_self.p) return *t_self.p;
  const std::shared_ptr<Thread> pThread = NewThread();
  t_self.p = pThread;
  if (m_mode == TimeMode::Simulated) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_pRunning != nullptr) Unsupported("a call from a thread that CreateThread did not make, in simulated time");
    m_pRunning = pThread.get();
  }
  Enlist(pThread);
  return *pThread;
}

std::shared_ptr<Thread> Scheduler::NewThread() {
  auto pThread = std::make_shared<Thread>();
  pThread->dwId = 0x100 + 4 * m_dwNextId.fetch_add(1, std::memory_order_relaxed);
  pThread->pThis = pThread;
  return pThread;
}

void Scheduler::Enlist(const std::shared_ptr<Thread>& pThread) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_threads.push_back(pThread);
}

void Scheduler::ThreadBegins(const std::shared_ptr<Thread>& pThread) {
  t_self.p = pThread;
  std::unique_lock<std::mutex> lock(m_mutex);
  if (m_mode == TimeMode::Simulated) pThread->turn.wait(lock, [&] { return m_pRunning == pThread.get(); });
}

void Scheduler::ThreadEnds() {
  std::unique_lock<std::mutex> lock(m_mutex);
  Thread& self = *t_self.p;
  if (self.nSections != 0) Unsupported("a thread that ends while it owns a critical section");
  self.bEnded = true;
  std::erase_if(m_threads, [&](const std::shared_ptr<Thread>& p) { return p.get() == &self; });
  if (m_mode == TimeMode::Simulated) {
    HandOver(lock, self, true);
  } else if (!m_threads.empty()) {
    WakeFree();
  }
}

const std::vector<Thread*>& Scheduler::WhoCanRun() {
  for (;;) {
    m_canRun.clear();
    std::int64_t llEarliest = kNever;
    for (const auto& pThread : m_threads) {
      const bool bTimedOut = pThread->bHasDeadline && pThread->llDeadline <= m_llNow;
      if (pThread->pReady == nullptr || bTimedOut || (*pThread->pReady)()) {
        m_canRun.push_back(pThread.get());
      } else if (pThread->bHasDeadline) {
        llEarliest = std::min(llEarliest, pThread->llDeadline);
      }
    }
    m_llEarliest = llEarliest;
    if (!m_canRun.empty()) return m_canRun;
    if (llEarliest == kNever) ReportDeadlock();
    m_llNow = llEarliest;
  }
}

void Scheduler::HandOver(std::unique_lock<std::mutex>& lock, Thread& self, bool bEnding) {
  const std::vector<Thread*>& canRun = WhoCanRun();
  Thread* pNext = canRun[canRun.size() == 1 ? 0 : Random() % canRun.size()];
  if (pNext == &self) return;
  m_pRunning = pNext;
  pNext->turn.notify_one();
  if (!bEnding) self.turn.wait(lock, [&] { return m_pRunning == &self; });
}

void Scheduler::WakeFree() {
  for (Thread* pThread : WhoCanRun())
    if (pThread->pReady != nullptr) pThread->turn.notify_one();
}

void Scheduler::ReportDeadlock() {
  std::fprintf(stderr, "platform/posix: deadlock, no thread can run and none has a time-out:\n");
  for (const auto& pThread : m_threads)
    std::fprintf(stderr, "  thread %08x waits for %s\n", pThread->dwId, pThread->strWaitsFor.c_str());
  std::abort();
}

bool Scheduler::WaitUntil(std::unique_lock<std::mutex>& lock, const char* pszWhat, const std::function<bool()>& bReady,
                          DWORD dwMilliseconds) {
  if (!t_self.p) {  // a thread's first call may be a wait
    lock.unlock();
    Self();
    lock.lock();
  }
  Thread& self = *t_self.p;
  const bool bForever = dwMilliseconds == INFINITE;
  const std::int64_t llDeadline = m_llNow + static_cast<std::int64_t>(dwMilliseconds) * kTicksPerMs;
  while (!bReady()) {
    if (!bForever && m_llNow >= llDeadline) return false;
    self.pReady = &bReady;
    self.bHasDeadline = !bForever;
    self.llDeadline = llDeadline;
    self.strWaitsFor = pszWhat;
    if (m_mode == TimeMode::Simulated) {
      HandOver(lock, self, false);
    } else {
      WakeFree();
      if (bForever || m_llNow < llDeadline) self.turn.wait(lock);
    }
    self.pReady = nullptr;
    self.bHasDeadline = false;
  }
  return true;
}

void Scheduler::Changed() {
  if (m_mode == TimeMode::Simulated) return;
  for (const auto& pThread : m_threads)
    if (pThread->pReady != nullptr && (*pThread->pReady)()) pThread->turn.notify_one();
}

void Scheduler::Call() {
  Thread& self = Self();
  if (m_mode == TimeMode::Free) {
    const std::int64_t llNow = m_llNow.fetch_add(kTicksPerCall, std::memory_order_relaxed) + kTicksPerCall;
    if (llNow < m_llEarliest.load(std::memory_order_relaxed)) return;
    std::lock_guard<std::mutex> lock(m_mutex);
    WakeFree();
    return;
  }
  std::unique_lock<std::mutex> lock(m_mutex);
  m_llNow += kTicksPerCall;
  if (m_threads.size() > 1 && Random() % kCallsPerHandOver == 0) HandOver(lock, self, false);
}

std::int64_t Scheduler::NowTicks() { return m_llNow.load(std::memory_order_relaxed); }

std::uint64_t Scheduler::LocalTicks() { return m_ullEpoch + static_cast<std::uint64_t>(NowTicks()); }

DWORD Scheduler::TickCount() { return m_dwTickBase + static_cast<DWORD>(NowTicks() / kTicksPerMs); }

void Scheduler::Advance(std::int64_t llTicks) {
  m_llNow += llTicks;
  if (m_mode == TimeMode::Simulated) return;
  std::lock_guard<std::mutex> lock(m_mutex);
  if (!m_threads.empty()) WakeFree();
}

void Scheduler::SetLocal(std::uint64_t ullTicks) { m_ullEpoch = ullTicks - static_cast<std::uint64_t>(NowTicks()); }

void Scheduler::Seed(std::uint64_t ullSeed) { m_ullRandom = ullSeed * 2 + 1; }

std::uint64_t Scheduler::Random() {
  // splitmix64
  std::uint64_t z = (m_ullRandom += 0x9E3779B97F4A7C15ULL);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
  return z ^ (z >> 31);
}

void SetSeed(std::uint64_t ullSeed) noexcept { Scheduler::Get().Seed(ullSeed); }
void AdvanceClock(std::uint64_t ullMilliseconds) noexcept {
  Scheduler::Get().Advance(static_cast<std::int64_t>(ullMilliseconds) * kTicksPerMs);
}
std::uint64_t ClockTicks() noexcept { return Scheduler::Get().LocalTicks(); }
void SetTickBase(DWORD dwBase) noexcept { Scheduler::Get().SetTickBase(dwBase); }
void SetClock(const SYSTEMTIME& stLocal) noexcept {
  FILETIME ft{};
  if (!SystemTimeToFileTime(&stLocal, &ft)) Unsupported("SetClock with an impossible date");
  Scheduler::Get().SetLocal((static_cast<std::uint64_t>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime);
}
void PlatformCall() noexcept { Scheduler::Get().Call(); }

}  // namespace w32

using w32::Scheduler;

extern "C" {

VOID WINAPI Sleep(DWORD dwMilliseconds) {
  Scheduler& scheduler = Scheduler::Get();
  scheduler.Call();
  std::unique_lock<std::mutex> lock(scheduler.WorldLock());
  scheduler.WaitUntil(
      lock, "Sleep", [] { return false; }, dwMilliseconds);
}

DWORD WINAPI GetTickCount() { return Scheduler::Get().TickCount(); }

DWORD WINAPI GetCurrentThreadId() { return Scheduler::Get().Self().dwId; }

// As cheap as on Windows; a forked child asks anew.
DWORD WINAPI GetCurrentProcessId() {
  static std::atomic<DWORD> dwId = [] {
    pthread_atfork(nullptr, nullptr, [] { dwId = static_cast<DWORD>(getpid()); });
    return static_cast<DWORD>(getpid());
  }();
  return dwId.load(std::memory_order_relaxed);
}

HANDLE WINAPI GetCurrentProcess() { return INVALID_HANDLE_VALUE; }

}  // extern "C"
