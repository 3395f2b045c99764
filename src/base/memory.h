// Memory of the monitor: zero-filled blocks of the process heap, and wide-string copies in them.
#pragma once

#include <windows.h>

#include <cstddef>
#include <memory>

// Allocates cb bytes, all zero. Returns null, with last error ERROR_NOT_ENOUGH_MEMORY, when the allocation fails;
// ReleaseMemory gives the block back.
void* AllocZeroed(std::size_t cb) noexcept;

// Releases a block of this file; null is fine.
void ReleaseMemory(void* pBlock) noexcept;

// Copies a wide string with its terminator. Null in gives null out; null also when the allocation fails.
wchar_t* DupWideString(const wchar_t* psz) noexcept;

// As DupWideString, but an empty string gives null too.
wchar_t* DupNonEmptyString(const wchar_t* psz) noexcept;

struct MemoryReleaser {
  void operator()(void* pBlock) const noexcept { ReleaseMemory(pBlock); }
};

// Owner of a block of this file.
template <class T>
using HeapPtr = std::unique_ptr<T, MemoryReleaser>;

// A zero-filled block of cb bytes, seen as T.
template <class T>
HeapPtr<T> AllocBlock(std::size_t cb) noexcept {
  return HeapPtr<T>(static_cast<T*>(AllocZeroed(cb)));
}
