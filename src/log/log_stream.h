// The shared dated file: opened, appended to and closed again for each line, under a machine-wide mutex, by every process
// that logs. What cannot be written is held in memory until the file can be opened again.
#pragma once

#include <windows.h>

#include <atomic>

#include "base/known_file.h"
#include "base/owners.h"
#include "log/log_folder.h"
#include "log/log_message.h"
#include "log/mutex_patience.h"

class CLogStream {
 public:
  // Creates (or opens) the machine-wide mutexes "Global\Kelvane_SDK_LOGS2" and "Global\Kelvane_SDK_BIN2" with an access
  // list that lets every account use them.
  CLogStream() noexcept;
  ~CLogStream() { DeleteCriticalSection(&m_csPending); }
  CLogStream(const CLogStream&) = delete;
  CLogStream& operator=(const CLogStream&) = delete;

  // Waits for the machine-wide mutex, as long as MutexPatience allows. On true the thread owns it until Close.
  bool TakeTurn() noexcept;
  // With the mutex: opens the day's file by the quick way, if it is the one that was written to before. False: the careful
  // way has to be taken.
  bool OpenKnown(LogThreadBuffers& buffers, const wchar_t* pszFullPath) noexcept;
  // With the mutex: opens the day's file in an open folder, carefully; a new one gets header, system information and column
  // titles. Held texts go in first. False: it cannot be had, the mutex is given back, and Write holds the texts.
  bool Open(LogThreadBuffers& buffers, const SafeFolder& folder, const LogName& file) noexcept;
  // Gives the mutex back where no file was opened.
  void GiveUp() noexcept { ReleaseMutex(m_hLogMutex.get()); }
  // Appends a text, or holds it with a leading "*" when the file is not open. Returns the bytes written to the file.
  DWORD Write(LogThreadBuffers& buffers, const char* pszText) noexcept;
  // Closes the file and gives the mutex back. Returns the file's size before; 0 when no file was open.
  LONGLONG Close(LogThreadBuffers& buffers) noexcept;

 private:
  void WriteSystemInfo(LogThreadBuffers& buffers) noexcept;
  DWORD Append(HANDLE hFile, const char* pBytes, DWORD cb) noexcept;
  void WriteHeld(LogThreadBuffers& buffers) noexcept;
  UniqueHandle OpenPatiently(const SafeFolder& folder, const LogName& file, DWORD dwAccess, FileFacts& facts) noexcept;
  // Ends a last line that its writer did not live to end, so that the next one stands by itself.
  void EndTornLine(HANDLE hFile) noexcept;

  UniqueHandle m_hLogMutex;
  UniqueHandle m_hBinMutex;  // belongs to a dump facility of other modules; only kept alive here
  MutexPatience m_patience;
  KnownFile m_known;                        // guarded by the mutex
  std::atomic<bool> m_bAbandoned{false};    // the mutex's last owner died
  std::atomic<DWORD> m_dwLastRetry{0};      // tick count; 0: never
  std::atomic<bool> m_bWriteFailed{false};  // a text was neither written nor held since the last successful open
  std::atomic<bool> m_bEndLookedAt{false};  // this process has looked at the end of a file
  CRITICAL_SECTION m_csPending;             // guards the two below
  char m_szPending[1024] = {};
  std::atomic<DWORD> m_cbPending{0};  // looked at without it
};
