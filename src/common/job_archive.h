// The job archive: a copy of every job's data, one file a job, in day folders under a root that the queue names.
//
//   <root>\YYYYMMDD\hhmm_ss(mmm).prn
//
// Every failure is local to the archive: the job prints whatever happens here, and the thread's last-error code stays.
#pragma once

#include <windows.h>

#include <atomic>

#include "base/known_file.h"

// What a job knows of its own file, from one write to the next; all zero at first.
struct ArchivedFile {
  KnownFile known;
  bool bRetried;  // it was waited for once
};

// Process-wide settings of the archive, as the queue that started a job last has them, and its operations.
class CJob {
 public:
  CJob() noexcept { InitializeCriticalSection(&csJob); }
  ~CJob() { DeleteCriticalSection(&csJob); }
  CJob(const CJob&) = delete;
  CJob& operator=(const CJob&) = delete;

  // Reads the queue's archive settings and makes the job's file name; the file itself appears with the first write.
  // The caller holds csJob.
  //   hPrinter        the job's printer handle
  //   stStart         local time of the job's start
  //   ppszDataPath    in/out: archive root, owned by the job; null afterwards when there is none
  //   ppszFilePath    in/out: the job's file, owned by the job; null afterwards when it gets none
  //   bLogSettingFlags  the model keeps its settings in "LogSettingFlags"
  // Returns TRUE when the job gets an archive file.
  BOOL MakeSettings(HANDLE hPrinter, const SYSTEMTIME& stStart, wchar_t** ppszDataPath, wchar_t** ppszFilePath,
                    BOOL bLogSettingFlags) noexcept;

  // Appends bytes to a job's file: one open, append and close. Needs no lock. Returns TRUE when they were appended.
  //   file  of the job; the first write finds the file carefully, the others know it again
  BOOL OutputJobFile(const wchar_t* pszFilePath, const BYTE* pBuf, DWORD cbBuf, ArchivedFile& file) const noexcept;
  BOOL OutputJobFile(const wchar_t* pszFilePath, const BYTE* pBuf, DWORD cbBuf) const noexcept {
    ArchivedFile file = {};
    return OutputJobFile(pszFilePath, pBuf, cbBuf, file);
  }

  // Deletes the folders of a root whose last write is older than the retention at a time. Without a root, nothing.
  void DeleteOldJobFolders(ULONGLONG ullNow, const wchar_t* pszRoot) const noexcept;

  // The whole ageing at a job's end: when the last run is about a day back, deletes old folders, advances the
  // last-ageing word and stores it for the queue. Without csJob, on the job's thread.
  void AgeAtJobEnd(HANDLE hPrinter, const wchar_t* pszRoot) noexcept;

  // Stores and reads the last-ageing word in the queue's registry value "ChkJobFileTime" (a 4-byte REG_DWORD, whatever
  // name and size are passed). GetJobReg returns 0 when the word was read or when the queue has no "UtilityGUID".
  // SetJobReg returns false when the user's hive does not take it.
  bool SetJobReg(HANDLE hPrinter, const wchar_t* pszName, DWORD dwValue, DWORD cbValue) const noexcept;
  DWORD GetJobReg(HANDLE hPrinter, const wchar_t* pszName, void* pValue, DWORD* pcbValue) const noexcept;

  CRITICAL_SECTION csJob;                  // held by a job start around MakeSettings
  std::atomic<LONG> nJobValidDays{0};      // retention of day folders in days
  std::atomic<DWORD> dwChkJobFileTime{0};  // last-ageing word: high 32 bits of a file time

 private:
  std::atomic<bool> m_bWordInProcess{false};  // the user's hive did not take the word: it is remembered here alone
};

// The one instance, constructed when the module is loaded.
extern CJob gJob;
