// Critical sections: recursive locks inside the process.
#include "scheduler.h"

#include <windows.h>

#include <atomic>
#include <thread>

namespace w32 {
namespace {

// For free threads a host mutex, so that the thread sanitizer sees this lock and no other, unless one has to wait: that
// it does under the world lock, since the clock has to know. In simulated time an owner and a count under the world lock.
struct CriticalSection {
  std::recursive_mutex mutex;
  std::atomic<int> nWaiting{0};
  std::atomic<bool> bOwned{false};
  Thread* pOwner = nullptr;
  int nDepth = 0;
};

void EnterFree(CriticalSection& section) {
  Scheduler& scheduler = Scheduler::Get();
  if (!section.mutex.try_lock()) {
    ++section.nWaiting;
    do {
      std::unique_lock<std::mutex> lock(scheduler.WorldLock());
      scheduler.WaitUntil(
          lock, "critical section", [&] { return !section.bOwned; }, INFINITE);
    } while (!section.mutex.try_lock());
    --section.nWaiting;
  }
  section.bOwned = true;
  ++section.nDepth;
}

// Nothing of the section is touched behind the unlock: its next owner may delete it.
void LeaveFree(CriticalSection& section) {
  bool bAwaited = false;
  if (--section.nDepth == 0) {
    section.bOwned = false;
    bAwaited = section.nWaiting != 0;
  }
  section.mutex.unlock();
  if (!bAwaited) return;
  Scheduler& scheduler = Scheduler::Get();
  std::lock_guard<std::mutex> lock(scheduler.WorldLock());
  scheduler.Changed();
}

Touched Lock(const void* pLock) { return {reinterpret_cast<std::uintptr_t>(pLock)}; }

CriticalSection& Of(LPCRITICAL_SECTION pSection) {
  if (pSection->pState == nullptr) Unsupported("use of a critical section that is not initialised");
  return *static_cast<CriticalSection*>(pSection->pState);
}

}  // namespace
}  // namespace w32

using namespace w32;

extern "C" {

VOID WINAPI InitializeCriticalSection(LPCRITICAL_SECTION lpCriticalSection) {
  lpCriticalSection->pState = new CriticalSection;
  Book(Account::CriticalSections, 1);
}

VOID WINAPI EnterCriticalSection(LPCRITICAL_SECTION lpCriticalSection) {
  CriticalSection& section = Of(lpCriticalSection);
  Scheduler& scheduler = Scheduler::Get();
  if (scheduler.Mode() == TimeMode::Free) {
    EnterFree(section);
    return;
  }
  scheduler.Call(__func__, Lock(lpCriticalSection));
  Thread& self = scheduler.Self();
  std::unique_lock<std::mutex> lock(scheduler.WorldLock());
  scheduler.WaitUntil(
      lock, "critical section", [&] { return section.pOwner == nullptr || section.pOwner == &self; }, INFINITE);
  section.pOwner = &self;
  if (section.nDepth++ == 0) ++self.nSections;
}

VOID WINAPI LeaveCriticalSection(LPCRITICAL_SECTION lpCriticalSection) {
  CriticalSection& section = Of(lpCriticalSection);
  Scheduler& scheduler = Scheduler::Get();
  if (scheduler.Mode() == TimeMode::Free) {
    LeaveFree(section);
    return;
  }
  Thread& self = scheduler.Self();
  std::unique_lock<std::mutex> lock(scheduler.WorldLock());
  if (section.pOwner != &self) Unsupported("leaving a critical section that another thread owns");
  if (--section.nDepth != 0) return;
  section.pOwner = nullptr;
  --self.nSections;
  lock.unlock();
  scheduler.Call(__func__, Lock(lpCriticalSection));  // what stands behind the release may be overtaken
}

VOID WINAPI DeleteCriticalSection(LPCRITICAL_SECTION lpCriticalSection) {
  CriticalSection& section = Of(lpCriticalSection);
  if (section.nDepth != 0) Unsupported("deleting a critical section that is owned");
  delete &section;
  lpCriticalSection->pState = nullptr;
  Book(Account::CriticalSections, -1);
}

VOID WINAPI AcquireSRWLockExclusive(PSRWLOCK SRWLock) {
  Scheduler& scheduler = Scheduler::Get();
  if (scheduler.Mode() == TimeMode::Free) {
    std::atomic_ref<PVOID> word(SRWLock->Ptr);
    for (PVOID pFree = nullptr; !word.compare_exchange_weak(pFree, SRWLock, std::memory_order_acquire); pFree = nullptr)
      std::this_thread::yield();
    return;
  }
  scheduler.Call(__func__, Lock(SRWLock));
  Thread& self = scheduler.Self();
  std::unique_lock<std::mutex> lock(scheduler.WorldLock());
  if (SRWLock->Ptr == &self) Unsupported("taking a slim lock that the thread holds");
  scheduler.WaitUntil(
      lock, "slim lock", [&] { return SRWLock->Ptr == nullptr; }, INFINITE);
  SRWLock->Ptr = &self;
}

VOID WINAPI ReleaseSRWLockExclusive(PSRWLOCK SRWLock) {
  Scheduler& scheduler = Scheduler::Get();
  if (scheduler.Mode() == TimeMode::Free) {
    std::atomic_ref<PVOID>(SRWLock->Ptr).store(nullptr, std::memory_order_release);
    return;
  }
  {
    std::unique_lock<std::mutex> lock(scheduler.WorldLock());
    SRWLock->Ptr = nullptr;
  }
  scheduler.Call(__func__, Lock(SRWLock));
}

}  // extern "C"
