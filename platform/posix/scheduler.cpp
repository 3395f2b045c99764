#include "scheduler.h"

#include "files.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <utility>

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
thread_local int t_nOneStep = 0;
// A thread that makes so many calls in a row without waiting for anything goes round in circles.
constexpr unsigned kMostCallsInARow = 5000;
unsigned g_nCallsInARow = 0;

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

void Scheduler::SwitchTo(std::unique_lock<std::mutex>& lock, Thread& self, Thread& next, bool bEnding) {
  if (&next == &self) return;
  m_pRunning = &next;
  next.turn.notify_one();
  if (!bEnding) self.turn.wait(lock, [&] { return m_pRunning == &self; });
}

void Scheduler::HandOver(std::unique_lock<std::mutex>& lock, Thread& self, bool bEnding) {
  if (m_choose) {
    Cross(lock, self, bEnding ? "its end" : self.strWaitsFor.c_str(), bEnding);
    return;
  }
  const std::vector<Thread*>& canRun = WhoCanRun();
  SwitchTo(lock, self, *canRun[canRun.size() == 1 ? 0 : Random() % canRun.size()], bEnding);
}

void Scheduler::Cross(std::unique_lock<std::mutex>& lock, Thread& self, const char* pszApi, bool bEnding,
                      Touched touched) {
  constexpr std::size_t kMost = 16;
  std::array<Choice, kMost> choices;
  std::array<Thread*, kMost> threads;
  std::size_t nChoices = 0;
  const auto add = [&](Thread& thread, Choice::Kind kind, bool bPreempts) {
    if (nChoices == kMost) Unsupported("an exploration of so many threads");
    choices[nChoices] = {thread.strName.c_str(), kind, bPreempts};
    threads[nChoices++] = &thread;
  };
  const bool bSelfGoes = !bEnding && self.pReady == nullptr && !self.bAwaitsMoment;
  const auto isReady = [&](Thread& thread) {
    const bool bTimeIsUp = thread.bHasDeadline && thread.llDeadline <= m_llNow;
    if (thread.bAwaitsMoment) return bTimeIsUp;
    return thread.pReady == nullptr || bTimeIsUp || (*thread.pReady)();
  };
  // In the order of their creation, beginning behind the one that is here.
  std::size_t nSelf = 0;
  while (nSelf < m_threads.size() && m_threads[nSelf].get() != &self) ++nSelf;
  const std::size_t nFirst = nSelf < m_threads.size() ? nSelf + 1 : 0;
  const auto thread = [&](std::size_t n) -> Thread& { return *m_threads[(nFirst + n) % m_threads.size()]; };

  Thread* pInterrupted = bSelfGoes ? nullptr : m_pInterrupted;
  m_pInterrupted = nullptr;
  std::int64_t llEarliest = kNever;
  std::int64_t llEarliestMoment = kNever;
  bool bInterruptedGoes = false;
  if (bSelfGoes) add(self, Choice::Kind::Goes, false);
  for (std::size_t n = 0; n < m_threads.size(); ++n)
    bInterruptedGoes |= &thread(n) == pInterrupted && isReady(thread(n));
  if (bInterruptedGoes) add(*pInterrupted, Choice::Kind::Goes, false);
  const bool bAnybodyGoes = nChoices > 0;
  for (std::size_t n = 0; n < m_threads.size(); ++n) {
    Thread& other = thread(n);
    if (&other == &self && bSelfGoes) continue;
    if (&other == pInterrupted && bInterruptedGoes) continue;
    if (isReady(other)) {
      if (!other.bAwaitsMoment) add(other, Choice::Kind::Goes, bAnybodyGoes);
    } else if (other.bHasDeadline) {
      std::int64_t& llOf = other.bAwaitsMoment ? llEarliestMoment : llEarliest;
      llOf = std::min(llOf, other.llDeadline);
    }
  }
  const bool bNobodyGoes = nChoices == 0;
  for (std::size_t n = 0; n < m_threads.size() && bNobodyGoes; ++n)  // the time for their moment is over
    if (thread(n).bAwaitsMoment && isReady(thread(n))) add(thread(n), Choice::Kind::Goes, nChoices > 0);
  const bool bIdle = nChoices == 0;
  if (bIdle) llEarliest = std::min(llEarliest, llEarliestMoment);
  for (std::size_t n = 0; n < m_threads.size() && llEarliest != kNever; ++n) {
    Thread& other = thread(n);
    const bool bIsNext = other.bHasDeadline && other.llDeadline == llEarliest && !isReady(other);
    if (bIsNext && (bIdle || !other.bAwaitsMoment)) add(other, Choice::Kind::TimeIsUp, !bIdle);
  }
  for (std::size_t n = 0; n < m_threads.size(); ++n)
    if (thread(n).bAwaitsMoment && !(bNobodyGoes && isReady(thread(n)))) add(thread(n), Choice::Kind::Happens, false);
  if (nChoices == 0) ReportDeadlock();

  const std::span<const Choice> all(choices.data(), nChoices);
  const std::size_t nChosen =
      m_choose({self.strName.c_str(), pszApi, touched, !bSelfGoes, std::exchange(self.bNoted, false), all});
  if (nChosen >= nChoices) Unsupported("a choice that is none");
  Thread& next = *threads[nChosen];
  if (choices[nChosen].kind == Choice::Kind::TimeIsUp) {
    if (choices[nChosen].bPreempts)
      m_ullLateTicks += static_cast<std::uint64_t>(std::max<std::int64_t>(0, llEarliest - m_llNow));
    m_llNow = std::max<std::int64_t>(m_llNow, llEarliest);
  }
  if (choices[nChosen].kind == Choice::Kind::Happens) {
    if (bSelfGoes) m_pInterrupted = &self;
  }
  if (&next != &self) g_nCallsInARow = 0;
  SwitchTo(lock, self, next, bEnding);
}

void Scheduler::AwaitMoment(DWORD dwMilliseconds) {
  if (!m_choose) return;
  Thread& self = Self();
  std::unique_lock<std::mutex> lock(m_mutex);
  self.bAwaitsMoment = true;
  self.bHasDeadline = dwMilliseconds != INFINITE;
  self.llDeadline = m_llNow + static_cast<std::int64_t>(dwMilliseconds) * kTicksPerMs;
  Cross(lock, self, "its moment", false);
  self.bAwaitsMoment = false;
  self.bHasDeadline = false;
}

void Scheduler::DieAt(std::uint64_t ullPlace, std::function<void()> lastAct) {
  m_ullPlacesToDie = 0;
  m_ullDieAt = ullPlace;
  m_lastAct = std::move(lastAct);
}

void Scheduler::Die() {
  m_ullDieAt = 0;
  BeginStep();
  if (m_lastAct) m_lastAct();
  DropFilesOfTheDead();
  _exit(kDeathStatus);
}

bool Scheduler::DiesHere() { return ++m_ullPlacesToDie == m_ullDieAt; }

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
    g_nCallsInARow = 0;
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

void Scheduler::Call(const char* pszApi, Touched touched) {
  if (t_nLayerLocks != 0) Unsupported("a platform call while a lock of the layer is held");
  Thread& self = Self();
  if (m_mode == TimeMode::Simulated && t_nOneStep == 0 && DiesHere()) Die();
  if (m_mode == TimeMode::Free) {
    const std::int64_t llNow = m_llNow.fetch_add(kTicksPerCall, std::memory_order_relaxed) + kTicksPerCall;
    if (llNow < m_llEarliest.load(std::memory_order_relaxed)) return;
    std::lock_guard<std::mutex> lock(m_mutex);
    WakeFree();
    return;
  }
  std::unique_lock<std::mutex> lock(m_mutex);
  m_llNow += kTicksPerCall;
  if (m_choose) {
    if (t_nOneStep != 0) return;
    if (++g_nCallsInARow > kMostCallsInARow) Unsupported("a thread that makes calls without end and waits for nothing");
    Cross(lock, self, pszApi, false, touched);
    return;
  }
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
void PlatformCall(const char* pszApi, Touched touched) noexcept { Scheduler::Get().Call(pszApi, touched); }

void ExploreBy(std::function<std::size_t(const Crossing&)> choose) { Scheduler::Get().ExploreBy(std::move(choose)); }
void NameThread(const char* pszName) { Scheduler::Get().Self().strName = pszName; }
void AwaitMoment(DWORD dwMilliseconds) { Scheduler::Get().AwaitMoment(dwMilliseconds); }
std::uint64_t LateMilliseconds() noexcept { return Scheduler::Get().LateMs(); }
void NoteStep() noexcept { Scheduler::Get().Self().bNoted = true; }
void BeginStep() noexcept { ++t_nOneStep; }
void EndStep() noexcept { --t_nOneStep; }
void DieAt(std::uint64_t ullPlace, std::function<void()> lastAct) {
  Scheduler::Get().DieAt(ullPlace, std::move(lastAct));
}
std::uint64_t PlacesToDie() noexcept { return Scheduler::Get().PlacesToDie(); }

}  // namespace w32

using w32::Scheduler;

extern "C" {

VOID WINAPI Sleep(DWORD dwMilliseconds) {
  Scheduler& scheduler = Scheduler::Get();
  scheduler.Call("Sleep");
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
