// The shared dated file: opened, appended to and closed again for each line, under a machine-wide mutex, by every process
// that logs. What cannot be written is held in memory until the file can be opened again.
#pragma once

#include <windows.h>

#include <atomic>

#include "base/owners.h"
#include "log/log_folder.h"
#include "log/log_message.h"

class CLogStream {
 public:
  // Creates (or opens) the machine-wide mutexes "Global\Kelvane_SDK_LOGS2" and "Global\Kelvane_SDK_BIN2" with an access
  // list that lets every account use them.
  CLogStream() noexcept;
  ~CLogStream() { DeleteCriticalSection(&m_csPending); }
  CLogStream(const CLogStream&) = delete;
  CLogStream& operator=(const CLogStream&) = delete;

  // Opens the day's file in an open folder; a new one gets header, system information and column titles. Held texts go in
  // first. On true the thread owns the mutex until Close; on false it does not, and Write holds its texts. A mutex that
  // somebody does not give back is waited for once, for 60 s; after that only looked at until it can be had again.
  bool Open(LogThreadBuffers& buffers, const SafeFolder& folder, const LogName& file) noexcept;
  // Appends a text, or holds it with a leading "*" when the file is not open. Returns the bytes written to the file.
  DWORD Write(LogThreadBuffers& buffers, const char* pszText) noexcept;
  // Closes the file and gives the mutex back. Returns the file's size before; 0 when no file was open.
  LONGLONG Close(LogThreadBuffers& buffers) noexcept;

 private:
  void WriteSystemInfo(LogThreadBuffers& buffers) noexcept;
  DWORD Append(HANDLE hFile, const char* pBytes, DWORD cb) noexcept;
  // Ends a last line that its writer did not live to end, so that the next one stands by itself.
  void EndTornLine(HANDLE hFile) noexcept;

  UniqueHandle m_hLogMutex;
  UniqueHandle m_hBinMutex;                        // belongs to a dump facility of other modules; only kept alive here
  std::atomic<bool> m_bMutexHeldElsewhere{false};  // the last wait for the log mutex timed out
  std::atomic<bool> m_bWriteFailed{false};         // a text was neither written nor held since the last successful open
  std::atomic<bool> m_bEndLookedAt{false};         // this process has looked at the end of a file
  CRITICAL_SECTION m_csPending;                    // guards the two below
  char m_szPending[1024] = {};
  DWORD m_cbPending = 0;
};
