// CSdk: the monitor's binding to the maker's device-access library, one object a port.
//
// Two auto-reset events order the threads that share it: the send lane is held by Send alone, for the whole library call;
// the control lane by Cancel and Reset, so that a cancel can overtake a blocked send; both together by everything that
// loads, opens, locks or closes. No wait has a time limit and neither lane is re-entrant. Read takes none.
// All methods run in the spooler's own security context.
#pragma once

#include <windows.h>

#include <atomic>

struct DevData;

// Lane selectors.
inline constexpr DWORD SYNC_ALL = 0;
inline constexpr DWORD SYNC_SEND = 1;
inline constexpr DWORD SYNC_CTRL = 2;

// Flags of CSdk::Read.
inline constexpr DWORD kReadResponse = 0;  // the library's raw response data
inline constexpr DWORD kReadClear = 0x20;  // the same, clearing what is left

// Entry points of the library, ordinals 1 to 3. Results are Win32 error codes, 0 for success.
using PFN_SDK_OPENW = DWORD(WINAPI*)(LPCWSTR pszPrinterName, DWORD* pdwSessionId);
using PFN_SDK_CLOSE = DWORD(WINAPI*)(DWORD dwSessionId);
using PFN_SDK_DEVIOCTRL = DWORD(WINAPI*)(DWORD dwSessionId, LPCWSTR pszRequest, const void* pIn, DWORD cbIn,
                                         DWORD* pdwWritten, void* pOut, DWORD cbOut, DWORD* pdwValue,
                                         DWORD dwTimeoutMs);

class CSdk {
 public:
  // Creates the two lanes; Usable tells whether both are there.
  CSdk() noexcept;
  // Closes the lanes, then unloads the library. An open session is not closed.
  ~CSdk();
  CSdk(const CSdk&) = delete;
  CSdk& operator=(const CSdk&) = delete;

  bool Usable() const noexcept { return hEventSend != nullptr && hEventCtrl != nullptr; }

  // Loads the library from the current folder and takes its entry points. FALSE when that fails, with last error 1 when
  // an entry point is missing, and when it is loaded already (it stays loaded).
  BOOL LoadDll() noexcept;
  void UnloadDll() noexcept;

  // Opens a session for a printer, unless one is open.
  //   bSync      take the lanes; FALSE for a caller that holds them
  //   ppDevData  in/out: the model's record, looked up when it is null; may itself be null
  // Returns the library's code, 0 = a session is open; a failure is also the last error. After a failure no session is
  // open.
  DWORD Open(const wchar_t* pszPrinterName, BOOL bSync, const DevData** ppDevData) noexcept;
  // Opens a session if need be, locks the device for a job and repeats a serial synchronisation that failed before. TRUE
  // when the device is ready for the job. A refused lock gives last error ERROR_BUSY.
  BOOL OpenAndLock(const wchar_t* pszPrinterName, const DevData** ppDevData) noexcept;
  // Releases the job's lock; the session stays open. TRUE also without a session or a lock.
  BOOL UnlockJob(BOOL bSync) noexcept;
  // Releases the lock and closes the session; one that cannot be unlocked or closed stays open.
  BOOL UnlockAndClose() noexcept;

  // Sends bytes straight from the caller's buffer. TRUE on success and on the library's time-out: *pdwWritten tells how
  // many bytes the printer took. May block for dwTimeoutMs.
  BOOL Send(const BYTE* pBuf, DWORD cbBuf, DWORD* pdwWritten, DWORD dwTimeoutMs) noexcept;
  // The same with its result in *pbSent, unless bStop is set when its turn has come: false then, and nothing was sent.
  bool SendUnless(const std::atomic<bool>& bStop, const BYTE* pBuf, DWORD cbBuf, DWORD* pdwWritten, DWORD dwTimeoutMs,
                  BOOL* pbSent) noexcept;
  // Whether a send may be in the library, or may still come there. False: one that begins now finds its bStop set, if that was
  // set before this was asked. Any thread.
  bool IsSending() const noexcept { return m_bSending; }
  // Reads what the printer answered; the library waits 3,000 ms at most. Returns the library's code, 87 for wrong flags.
  DWORD Read(BYTE* pBuf, DWORD cbBuf, DWORD* pdwRead, DWORD dwFlags) noexcept;
  // Aborts pending transfers, a blocked Send among them.
  BOOL Cancel() noexcept;
  // Resets the printer.
  BOOL Reset() noexcept;
  // Hands the model's serial settings to the library. 0 on success and for a port that is not a physical serial one.
  DWORD SetSyncComm(const DevData* pDevData) noexcept;

  void SetSync(DWORD dwLane) noexcept;
  void ClrSync(DWORD dwLane) noexcept;

  DWORD dwSessionId = 0;  // 0 while no session is open
  HMODULE hSdkDll = nullptr;
  PFN_SDK_OPENW pOpenW = nullptr;
  PFN_SDK_CLOSE pClose = nullptr;
  PFN_SDK_DEVIOCTRL pDevIoCtrl = nullptr;
  HANDLE hEventSend = nullptr;  // auto-reset, signalled while the send lane is free
  HANDLE hEventCtrl = nullptr;  // auto-reset, signalled while the control lane is free
  LONG nCommSync = -1;          // -1 not attempted, 0 to be done again, 1 done for the open session

 private:
  std::atomic<bool> m_bSending{false};  // set before bStop is looked at; one sender at a time, by its lane
  class Lane;
  BOOL SendInLane(const BYTE* pBuf, DWORD cbBuf, DWORD* pdwWritten, DWORD dwTimeoutMs) noexcept;
  // A request without data.
  DWORD Request(const wchar_t* pszRequest, DWORD* pdwValue, DWORD dwTimeoutMs) noexcept;
};
