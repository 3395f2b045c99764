// The process heap.
#include "scheduler.h"

#include <malloc.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstdlib>

using namespace w32;

namespace {

std::atomic<std::uint64_t> g_ullHeap{0};
std::atomic<std::uint64_t> g_ullPeak{0};

void* Counted(void* pBlock) {
  if (pBlock == nullptr) return nullptr;
  const std::uint64_t ull = g_ullHeap += malloc_usable_size(pBlock);
  std::uint64_t ullPeak = g_ullPeak;
  while (ull > ullPeak && !g_ullPeak.compare_exchange_weak(ullPeak, ull)) {
  }
  return pBlock;
}

}  // namespace

namespace w32 {

HeapCount HeapBytes() noexcept { return {g_ullHeap, g_ullPeak}; }
void ResetHeapPeak() noexcept { g_ullPeak = g_ullHeap.load(); }

}  // namespace w32

extern "C" {

HANDLE WINAPI GetProcessHeap() { return reinterpret_cast<HANDLE>(0x10000); }

LPVOID WINAPI HeapAlloc(HANDLE, DWORD dwFlags, SIZE_T dwBytes) {
  PlatformCall();
  if (FaultCode("HeapAlloc", ERROR_NOT_ENOUGH_MEMORY) != ERROR_SUCCESS)
    return nullptr;  // the last error stays, as documented
  const SIZE_T cb = dwBytes == 0 ? 1 : dwBytes;
  void* pBlock = (dwFlags & HEAP_ZERO_MEMORY) != 0 ? std::calloc(1, cb) : std::malloc(cb);
  if (pBlock != nullptr) Book(Account::HeapBlocks, 1);
  return Counted(pBlock);
}

BOOL WINAPI HeapFree(HANDLE, DWORD, LPVOID lpMem) {
  if (lpMem == nullptr) return TRUE;
  Book(Account::HeapBlocks, -1);
  g_ullHeap -= malloc_usable_size(lpMem);
  std::free(lpMem);
  return TRUE;
}

HLOCAL WINAPI LocalFree(HLOCAL hMem) {
  if (hMem != nullptr) Book(Account::LocalBlocks, -1);
  std::free(hMem);
  return nullptr;
}

// Through the kernel, which refuses what is not there.
BOOL WINAPI ReadProcessMemory(HANDLE hProcess, LPCVOID lpBaseAddress, LPVOID lpBuffer, SIZE_T nSize,
                              SIZE_T* lpNumberOfBytesRead) {
  if (hProcess != GetCurrentProcess()) Unsupported("reading the memory of another process");
  PlatformCall();
  const iovec to = {lpBuffer, nSize};
  const iovec from = {const_cast<void*>(lpBaseAddress), nSize};
  const ssize_t n = process_vm_readv(getpid(), &to, 1, &from, 1, 0);
  *lpNumberOfBytesRead = n > 0 ? static_cast<SIZE_T>(n) : 0;
  if (n == static_cast<ssize_t>(nSize)) return TRUE;
  SetLastError(ERROR_NOACCESS);
  return FALSE;
}

}  // extern "C"
