#include "scheduler.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace w32 {
namespace {

constexpr std::int64_t kTicksPerMs = 10'000;
// What one platform call costs in simulated time: small, but enough that a loop without a pause lets time pass.
constexpr std::int64_t kTicksPerCall = 100;
// One platform call in this many hands over in simulated time.
constexpr std::uint64_t kCallsPerHandOver = 8;
// 18 November 2026, 09:00:00: where simulated time starts.
constexpr std::uint64_t kSimulatedStart = 134'394'660'000'000'000ULL;
constexpr std::uint64_t kUnixEpochTicks = 116'444'736'000'000'000ULL;

thread_local std::shared_ptr<Thread> t_pSelf;

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
  if (pszTime != nullptr && std::strcmp(pszTime, "real") == 0) m_mode = TimeMode::Real;
  const char* pszSpeed = std::getenv("W32_SPEED");
  if (pszSpeed != nullptr && std::atoi(pszSpeed) > 0) m_nSpeed = std::atoi(pszSpeed);
  const char* pszSeed = std::getenv("W32_SEED");
  Seed(pszSeed != nullptr ? std::strtoull(pszSeed, nullptr, 10) : 1);
  if (m_mode == TimeMode::Simulated) {
    m_ullEpoch = kSimulatedStart;
  } else {
    using namespace std::chrono;
    const auto sinceEpoch = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
    m_ullEpoch = kUnixEpochTicks + static_cast<std::uint64_t>(sinceEpoch) * 10;
    m_llRealStart = RealTicks();
  }
}

std::int64_t Scheduler::RealTicks() const {
  using namespace std::chrono;
  return duration_cast<nanoseconds>(steady_clock::now().time_since_epoch()).count() / 100;
}

Thread& Scheduler::Self() {
  if (t_pSelf) return *t_pSelf;
  const std::shared_ptr<Thread> pThread = NewThread();
  t_pSelf = pThread;
  if (m_mode == TimeMode::Simulated) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_pRunning != nullptr) Unsupported("a call from a thread that CreateThread did not make, in simulated time");
    m_pRunning = pThread.get();
  }
  Enlist(pThread);
  return *t_pSelf;
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
  t_pSelf = pThread;
  std::unique_lock<std::mutex> lock(m_mutex);
  if (m_mode == TimeMode::Simulated) pThread->turn.wait(lock, [&] { return m_pRunning == pThread.get(); });
}

void Scheduler::ThreadEnds() {
  std::unique_lock<std::mutex> lock(m_mutex);
  Thread& self = *t_pSelf;
  if (self.nSections != 0) Unsupported("a thread that ends while it owns a critical section");
  self.bEnded = true;
  std::erase_if(m_threads, [&](const std::shared_ptr<Thread>& p) { return p.get() == &self; });
  if (m_mode == TimeMode::Real) {
    Changed();
    return;
  }
  HandOver(lock, self, true);
}

Thread* Scheduler::PickNext(std::unique_lock<std::mutex>&) {
  for (;;) {
    std::vector<Thread*> canRun;
    Thread* pEarliest = nullptr;
    for (const auto& pThread : m_threads) {
      const bool bTimedOut = pThread->bHasDeadline && pThread->llDeadline <= m_llNow;
      if (pThread->pReady == nullptr || bTimedOut || (*pThread->pReady)()) canRun.push_back(pThread.get());
      if (pThread->bHasDeadline && (pEarliest == nullptr || pThread->llDeadline < pEarliest->llDeadline))
        pEarliest = pThread.get();
    }
    if (!canRun.empty()) return canRun[canRun.size() == 1 ? 0 : Random() % canRun.size()];
    if (pEarliest == nullptr) ReportDeadlock();
    m_llNow = pEarliest->llDeadline;
  }
}

void Scheduler::HandOver(std::unique_lock<std::mutex>& lock, Thread& self, bool bEnding) {
  Thread* pNext = PickNext(lock);
  if (pNext == &self) return;
  m_pRunning = pNext;
  pNext->turn.notify_one();
  if (!bEnding) self.turn.wait(lock, [&] { return m_pRunning == &self; });
}

void Scheduler::ReportDeadlock() {
  std::fprintf(stderr, "platform/posix: deadlock, no thread can run and none has a time-out:\n");
  for (const auto& pThread : m_threads)
    std::fprintf(stderr, "  thread %08x waits for %s\n", pThread->dwId, pThread->strWaitsFor.c_str());
  std::abort();
}

bool Scheduler::WaitUntil(std::unique_lock<std::mutex>& lock, const char* pszWhat, const std::function<bool()>& bReady,
                          DWORD dwMilliseconds) {
  const bool bForever = dwMilliseconds == INFINITE;
  if (m_mode == TimeMode::Real) {
    if (bReady() || dwMilliseconds == 0) return bReady();
    lock.unlock();
    Thread& self = Self();
    lock.lock();
    self.pReady = &bReady;
    bool bDone = true;
    if (bForever) {
      self.turn.wait(lock, bReady);
    } else {
      const auto wait = std::chrono::nanoseconds(static_cast<std::int64_t>(dwMilliseconds) * 1'000'000 / m_nSpeed);
      bDone = self.turn.wait_for(lock, wait, bReady);
    }
    self.pReady = nullptr;
    return bDone;
  }
  if (!t_pSelf) {  // the main thread's first call may be a wait
    lock.unlock();
    Self();
    lock.lock();
  }
  Thread& self = *t_pSelf;
  const std::int64_t llDeadline = m_llNow + static_cast<std::int64_t>(dwMilliseconds) * kTicksPerMs;
  while (!bReady()) {
    if (!bForever && m_llNow >= llDeadline) return false;
    self.pReady = &bReady;
    self.bHasDeadline = !bForever;
    self.llDeadline = llDeadline;
    self.strWaitsFor = pszWhat;
    HandOver(lock, self, false);
    self.pReady = nullptr;
    self.bHasDeadline = false;
  }
  return true;
}

void Scheduler::Changed() {
  if (m_mode != TimeMode::Real) return;
  for (const auto& pThread : m_threads)
    if (pThread->pReady != nullptr && (*pThread->pReady)()) pThread->turn.notify_one();
}

void Scheduler::Call() {
  if (m_mode == TimeMode::Real) return;
  Thread& self = Self();
  std::unique_lock<std::mutex> lock(m_mutex);
  m_llNow += kTicksPerCall;
  if (m_threads.size() > 1 && Random() % kCallsPerHandOver == 0) HandOver(lock, self, false);
}

std::int64_t Scheduler::NowTicks() {
  if (m_mode == TimeMode::Real) return (RealTicks() - m_llRealStart) * m_nSpeed;
  std::lock_guard<std::mutex> lock(m_mutex);
  return m_llNow;
}

std::uint64_t Scheduler::LocalTicks() { return m_ullEpoch + static_cast<std::uint64_t>(NowTicks()); }

DWORD Scheduler::TickCount() { return m_dwTickBase + static_cast<DWORD>(NowTicks() / kTicksPerMs); }

void Scheduler::Advance(std::int64_t llTicks) {
  if (m_mode == TimeMode::Real) Unsupported("moving the clock in real time");
  std::lock_guard<std::mutex> lock(m_mutex);
  m_llNow += llTicks;
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

TimeMode CurrentTimeMode() noexcept { return Scheduler::Get().Mode(); }
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

// The clock's own units.
BOOL WINAPI QueryPerformanceCounter(PLARGE_INTEGER lpPerformanceCount) {
  lpPerformanceCount->QuadPart = Scheduler::Get().NowTicks();
  return TRUE;
}
BOOL WINAPI QueryPerformanceFrequency(PLARGE_INTEGER lpFrequency) {
  lpFrequency->QuadPart = 10'000'000;
  return TRUE;
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
