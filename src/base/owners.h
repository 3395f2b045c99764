// Owners of platform resources: each releases in its destructor what it holds.
#pragma once

#include <windows.h>
#include <winspool.h>

#include <memory>

struct HandleCloser {
  using pointer = HANDLE;
  void operator()(HANDLE h) const noexcept {
    if (h != INVALID_HANDLE_VALUE) CloseHandle(h);
  }
};
// A kernel handle; null and INVALID_HANDLE_VALUE are not closed.
using UniqueHandle = std::unique_ptr<void, HandleCloser>;

struct FindCloser {
  using pointer = HANDLE;
  void operator()(HANDLE h) const noexcept {
    if (h != INVALID_HANDLE_VALUE) FindClose(h);
  }
};
// A listing of a folder; INVALID_HANDLE_VALUE is not closed.
using UniqueFind = std::unique_ptr<void, FindCloser>;

struct PrinterCloser {
  using pointer = HANDLE;
  void operator()(HANDLE h) const noexcept { ClosePrinter(h); }
};
// A printer handle of the spooler.
using UniquePrinter = std::unique_ptr<void, PrinterCloser>;

struct KeyCloser {
  using pointer = HKEY;
  void operator()(HKEY h) const noexcept { RegCloseKey(h); }
};
// An open registry key.
using UniqueKey = std::unique_ptr<HKEY__, KeyCloser>;

// Holds a critical section for a scope. The section is recursive: the same thread may hold it already.
class SectionLock {
 public:
  explicit SectionLock(CRITICAL_SECTION& cs) noexcept : m_cs(cs) { EnterCriticalSection(&m_cs); }
  ~SectionLock() { LeaveCriticalSection(&m_cs); }
  SectionLock(const SectionLock&) = delete;
  SectionLock& operator=(const SectionLock&) = delete;

 private:
  CRITICAL_SECTION& m_cs;
};

// Restores the thread's last-error code at the end of a scope.
class KeepLastError {
 public:
  KeepLastError() noexcept : m_dwError(GetLastError()) {}
  ~KeepLastError() { SetLastError(m_dwError); }
  KeepLastError(const KeepLastError&) = delete;
  KeepLastError& operator=(const KeepLastError&) = delete;

 private:
  const DWORD m_dwError;
};
