#include "base/memory.h"

#include <cstring>

void* AllocZeroed(std::size_t cb) noexcept {
  void* pBlock = HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, cb);
  if (pBlock == nullptr) SetLastError(ERROR_NOT_ENOUGH_MEMORY);  // the heap says nothing
  return pBlock;
}

void ReleaseMemory(void* pBlock) noexcept {
  if (pBlock != nullptr) HeapFree(GetProcessHeap(), 0, pBlock);
}

wchar_t* DupWideString(const wchar_t* psz) noexcept {
  if (psz == nullptr) return nullptr;
  const std::size_t cb = (wcslen(psz) + 1) * sizeof(wchar_t);
  void* pCopy = AllocZeroed(cb);
  if (pCopy != nullptr) std::memcpy(pCopy, psz, cb);
  return static_cast<wchar_t*>(pCopy);
}

wchar_t* DupNonEmptyString(const wchar_t* psz) noexcept {
  return psz == nullptr || *psz == 0 ? nullptr : DupWideString(psz);
}
