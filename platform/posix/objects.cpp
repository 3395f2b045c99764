// Events, mutexes, threads and the waits on them.
#include "objects.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <map>
#include <thread>

namespace w32 {
namespace {

// A handle is a slot number times four; a slot keeps its object alive until it is closed.
constexpr std::size_t kSlots = 65536;
std::array<std::atomic<std::shared_ptr<Object>*>, kSlots> g_slots;
std::atomic<std::size_t> g_nextSlot{0};

// Readers copy the slot's pointer while a concurrent CloseHandle may free it: the table lock keeps the two apart.
std::mutex& TableLock() {
  static std::mutex* pMutex = new std::mutex;
  return *pMutex;
}

std::size_t SlotOf(HANDLE hObject) {
  const auto ull = reinterpret_cast<std::uintptr_t>(hObject);
  return ull % 4 == 0 && ull / 4 <= kSlots ? ull / 4 : 0;
}

class Event : public Object {
 public:
  Event(bool bManualReset, bool bSet) : m_bManualReset(bManualReset), m_bSet(bSet) {
    Thread& maker = Scheduler::Get().Self();
    m_ullName = std::hash<std::string>()(maker.strName) + ++maker.nMade;
  }
  bool Waitable() const override { return true; }
  bool Ready(const Thread&) override { return m_bSet; }
  DWORD Take(Thread&) override {
    if (!m_bManualReset) m_bSet = false;
    return WAIT_OBJECT_0;
  }
  Touched Touch() const override { return {m_ullName}; }
  void Put(bool bSet) { m_bSet = bSet; }

 private:
  const bool m_bManualReset;
  bool m_bSet;
  std::uint64_t m_ullName;  // its maker's n-th
};

// A mutex; a named one is shared with other processes through a lock file that its owner holds.
class Mutex : public Object {
 public:
  explicit Mutex(const std::string& strLockFile) {
    if (!strLockFile.empty()) m_nFile = open(strLockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  }
  ~Mutex() override {
    if (m_nFile >= 0) close(m_nFile);
  }
  bool Waitable() const override { return true; }
  bool Ready(const Thread& thread) override {
    return m_pOwner == nullptr || m_pOwner.get() == &thread || m_pOwner->bEnded;
  }
  DWORD Take(Thread& thread) override {
    const bool bAbandoned = m_pOwner != nullptr && m_pOwner->bEnded;
    if (m_pOwner.get() != &thread) {
      // The other processes' turn: the file lock is only ever held for a few system calls, so the wait for it needs no
      // scheduling. It is held already when a thread of this process ended as the owner.
      if (m_nFile >= 0 && !bAbandoned) {
        while (flock(m_nFile, LOCK_EX) != 0 && errno == EINTR) {
        }
      }
      m_nDepth = 0;
      m_pOwner = thread.pThis.lock();
    }
    ++m_nDepth;
    return bAbandoned ? WAIT_ABANDONED : WAIT_OBJECT_0;
  }
  bool Release(const Thread& thread) {
    if (m_pOwner.get() != &thread) return false;
    if (--m_nDepth == 0) {
      m_pOwner.reset();
      if (m_nFile >= 0) flock(m_nFile, LOCK_UN);
    }
    return true;
  }

 private:
  std::shared_ptr<Thread> m_pOwner;
  int m_nDepth = 0;
  int m_nFile = -1;
};

class ThreadObject : public Object {
 public:
  explicit ThreadObject(std::shared_ptr<Thread> pThread) : m_pThread(std::move(pThread)) {}
  bool Waitable() const override { return true; }
  bool Ready(const Thread&) override { return m_pThread->bEnded; }

 private:
  std::shared_ptr<Thread> m_pThread;
};

// Named mutexes of this process: one object a name, while any handle to it is open.
std::map<std::string, std::weak_ptr<Mutex>>& NamedMutexes() {
  static auto* pMap = new std::map<std::string, std::weak_ptr<Mutex>>;
  return *pMap;
}

// "Global\Name" holds for every process that shares the sandbox.
std::string LockFileOf(const std::string& strName) {
  std::string strFile = strName;
  for (char& c : strFile)
    if (c == '\\' || c == '/') c = '_';
  return SandboxRoot() + "/" + strFile + ".lock";
}

struct StartBlock {
  std::shared_ptr<Thread> pThread;
  LPTHREAD_START_ROUTINE pfnStart;
  LPVOID pArgument;
  bool bSubjectToFaults;
};

void* ThreadMain(void* pArgument) {
  StartBlock start = *static_cast<StartBlock*>(pArgument);
  delete static_cast<StartBlock*>(pArgument);
  Scheduler::Get().ThreadBegins(start.pThread);
  {
    FaultsOn faults(start.bSubjectToFaults);
    start.pfnStart(start.pArgument);
  }
  Book(Account::Threads, -1);
  Scheduler::Get().ThreadEnds();
  return nullptr;
}

// What a call with this handle touches; asked for the exploration alone.
Touched TouchOf(HANDLE hObject) {
  const auto pObject = Scheduler::Get().Explores() ? FindObject(hObject) : nullptr;
  return pObject ? pObject->Touch() : Touched{};
}

DWORD WaitFor(DWORD nCount, const HANDLE* phObjects, bool bAll, DWORD dwMilliseconds) {
  Scheduler& scheduler = Scheduler::Get();
  scheduler.Call(nCount == 1 ? "WaitForSingleObject" : "WaitForMultipleObjects",
                 nCount == 1 ? TouchOf(*phObjects) : Touched{});
  std::vector<std::shared_ptr<Object>> objects;
  for (DWORD n = 0; n < nCount; ++n) {
    auto pObject = FindObject(phObjects[n]);
    if (!pObject || !pObject->Waitable()) {
      SetLastError(ERROR_INVALID_HANDLE);
      return WAIT_FAILED;
    }
    objects.push_back(std::move(pObject));
  }
  if (FaultHere(nCount == 1 ? "WaitForSingleObject" : "WaitForMultipleObjects", ERROR_INVALID_HANDLE))
    return WAIT_FAILED;

  Thread& self = scheduler.Self();
  std::unique_lock<std::mutex> lock(scheduler.WorldLock());
  const auto ready = [&]() -> bool {
    std::size_t nReady = 0;
    for (const auto& pObject : objects) nReady += pObject->Ready(self) ? 1 : 0;
    return bAll ? nReady == objects.size() : nReady > 0;
  };
  std::string strWhat = "handle";
  for (DWORD n = 0; n < nCount; ++n)
    strWhat.append(" ").append(std::to_string(reinterpret_cast<std::uintptr_t>(phObjects[n])));
  if (!scheduler.WaitUntil(lock, strWhat.c_str(), ready, dwMilliseconds)) return WAIT_TIMEOUT;
  DWORD dwResult = WAIT_OBJECT_0;
  for (std::size_t n = 0; n < objects.size(); ++n) {
    if (!bAll && !objects[n]->Ready(self)) continue;
    const DWORD dwTaken = objects[n]->Take(self);
    if (!bAll) return dwTaken + static_cast<DWORD>(n);
    if (dwTaken != WAIT_OBJECT_0) dwResult = dwTaken;
  }
  return dwResult;
}

}  // namespace

HANDLE NewHandle(std::shared_ptr<Object> pObject) {
  auto* pHolder = new std::shared_ptr<Object>(std::move(pObject));
  for (std::size_t nTry = 0; nTry < kSlots; ++nTry) {
    // Slots are reused late, so that a stale handle is found out.
    const std::size_t nSlot = g_nextSlot.fetch_add(1, std::memory_order_relaxed) % kSlots;
    std::shared_ptr<Object>* pFree = nullptr;
    if (g_slots[nSlot].compare_exchange_strong(pFree, pHolder)) {
      Book(Account::Handles, 1);
      return reinterpret_cast<HANDLE>((nSlot + 1) * 4);
    }
  }
  Unsupported("more than 65536 open handles");
}

std::shared_ptr<Object> FindObject(HANDLE hObject) {
  const std::size_t nSlot = SlotOf(hObject);
  if (nSlot == 0) return nullptr;
  const LayerLock lock(TableLock());
  const auto* pHolder = g_slots[nSlot - 1].load();
  return pHolder != nullptr ? *pHolder : nullptr;
}

}  // namespace w32

using namespace w32;

extern "C" {

BOOL WINAPI CloseHandle(HANDLE hObject) {
  PlatformCall("CloseHandle", TouchOf(hObject));
  const std::size_t nSlot = SlotOf(hObject);
  std::shared_ptr<Object>* pHolder = nullptr;
  if (nSlot != 0) {
    const LayerLock lock(TableLock());
    pHolder = g_slots[nSlot - 1].exchange(nullptr);
  }
  if (pHolder == nullptr) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  Book(Account::Handles, -1);
  delete pHolder;
  return TRUE;
}

HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES, BOOL bManualReset, BOOL bInitialState, LPCWSTR lpName) {
  if (lpName != nullptr) Unsupported("a named event");
  PlatformCall();
  if (FaultHere("CreateEventW", ERROR_NOT_ENOUGH_MEMORY)) return nullptr;
  return NewHandle(std::make_shared<Event>(bManualReset != FALSE, bInitialState != FALSE));
}

// The change comes first: whoever it wakes may run before the caller goes on.
static BOOL PutEvent(HANDLE hEvent, bool bSet) {
  const auto pEvent = FindObject<Event>(hEvent);
  if (!pEvent) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  Scheduler& scheduler = Scheduler::Get();
  if (scheduler.Explores())
    scheduler.Call(bSet ? "SetEvent" : "ResetEvent", pEvent->Touch());  // … or go before it is set
  {
    std::lock_guard<std::mutex> lock(scheduler.WorldLock());
    pEvent->Put(bSet);
    scheduler.Changed();
  }
  PlatformCall(bSet ? "(set)" : "(reset)");
  return TRUE;
}

BOOL WINAPI SetEvent(HANDLE hEvent) { return PutEvent(hEvent, true); }
BOOL WINAPI ResetEvent(HANDLE hEvent) { return PutEvent(hEvent, false); }

HANDLE WINAPI CreateMutexW(LPSECURITY_ATTRIBUTES, BOOL bInitialOwner, LPCWSTR lpName) {
  if (bInitialOwner) Unsupported("a mutex that starts owned");
  PlatformCall();
  if (FaultHere("CreateMutexW", ERROR_ACCESS_DENIED)) return nullptr;
  if (lpName == nullptr) return NewHandle(std::make_shared<Mutex>(""));
  const std::string strName = ToUtf8(lpName);
  const std::string strFile = LockFileOf(strName);
  std::lock_guard<std::mutex> lock(Scheduler::Get().WorldLock());
  std::shared_ptr<Mutex> pMutex = NamedMutexes()[strName].lock();
  const bool bExisted = pMutex != nullptr;
  if (!bExisted) {
    pMutex = std::make_shared<Mutex>(strFile);
    NamedMutexes()[strName] = pMutex;
  }
  const HANDLE hMutex = NewHandle(pMutex);
  SetLastError(bExisted ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
  return hMutex;
}

BOOL WINAPI ReleaseMutex(HANDLE hMutex) {
  const auto pMutex = FindObject<Mutex>(hMutex);
  if (!pMutex) {
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  Scheduler& scheduler = Scheduler::Get();
  Thread& self = scheduler.Self();
  {
    std::lock_guard<std::mutex> lock(scheduler.WorldLock());
    if (!pMutex->Release(self)) {
      SetLastError(ERROR_NOT_OWNER);
      return FALSE;
    }
    scheduler.Changed();
  }
  PlatformCall();
  return TRUE;
}

HANDLE WINAPI CreateThread(LPSECURITY_ATTRIBUTES, SIZE_T dwStackSize, LPTHREAD_START_ROUTINE lpStartAddress,
                           LPVOID lpParameter, DWORD dwCreationFlags, LPDWORD lpThreadId) {
  if ((dwCreationFlags & ~STACK_SIZE_PARAM_IS_A_RESERVATION) != 0) Unsupported("a thread that starts suspended");
  PlatformCall();
  if (FaultHere("CreateThread", ERROR_NOT_ENOUGH_MEMORY)) return nullptr;
  Scheduler& scheduler = Scheduler::Get();
  scheduler.Self();
  const std::shared_ptr<Thread> pThread = scheduler.NewThread();
  pThread->strName = scheduler.Self().strName + "'s watcher";
  scheduler.Enlist(pThread);
  auto* pStart = new StartBlock{pThread, lpStartAddress, lpParameter, SubjectToFaults()};
  pthread_t thread{};
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  if ((dwCreationFlags & STACK_SIZE_PARAM_IS_A_RESERVATION) != 0) pthread_attr_setstacksize(&attributes, dwStackSize);
  const int nError = pthread_create(&thread, &attributes, ThreadMain, pStart);
  pthread_attr_destroy(&attributes);
  if (nError != 0) Unsupported("the host has no room for another thread");
  Book(Account::Threads, 1);
  if (lpThreadId != nullptr) *lpThreadId = pThread->dwId;
  return NewHandle(std::make_shared<ThreadObject>(pThread));
}

DWORD WINAPI WaitForSingleObject(HANDLE hHandle, DWORD dwMilliseconds) {
  return WaitFor(1, &hHandle, true, dwMilliseconds);
}

DWORD WINAPI WaitForMultipleObjects(DWORD nCount, const HANDLE* lpHandles, BOOL bWaitAll, DWORD dwMilliseconds) {
  if (nCount == 0 || nCount > MAXIMUM_WAIT_OBJECTS || lpHandles == nullptr) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return WAIT_FAILED;
  }
  return WaitFor(nCount, lpHandles, bWaitAll != FALSE, dwMilliseconds);
}

}  // extern "C"
