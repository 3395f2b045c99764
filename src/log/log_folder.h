// Where the log files lie, what they are called and how long they stay.
//
//   <common application data>\Kelvane\Logs\<module folder>\YYYYMMDD.log
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>

// A path of the log; longer ones are cut.
struct LogPath {
  wchar_t wsz[520];
};

// "<folder>\YYYYMMDD.log"
void MakeDayFileName(LogPath& file, const LogPath& folder, const SYSTEMTIME& stLine) noexcept;

class CLogfile {
 public:
  // Makes the base folder; it is never made again later.
  CLogfile() noexcept;
  ~CLogfile() { DeleteCriticalSection(&m_csFolder); }
  CLogfile(const CLogfile&) = delete;
  CLogfile& operator=(const CLogfile&) = delete;

  // Chooses the module folder by a module pair (tag, NUL, folder name of 1 to 16 characters, NUL). The first valid pair
  // is final; before it "Undefined" is chosen. Creates nothing.
  void SetModuleFolder(const char* pszModule) noexcept;

  // Makes the module folder if it is missing, writable for the Users group, and tells its path. After one failed creation
  // no line is written for the life of the process.
  bool CreateLogFolder(const char* pszModule, LogPath& folder) noexcept;

  // The name that a full file is moved to: "<folder>\YYYYMMDD_hhmmss(mmm).log", at most 259 characters.
  static void MakeRenameName(LogPath& file, const LogPath& folder, const SYSTEMTIME& stLine) noexcept;

  // Remembers the date of the newest line, by which the purge works.
  void NoteLineTime(const SYSTEMTIME& stLine) noexcept;

  // Deletes old log files: once a day, after the day's first line, and when nLifeDays has changed. Takes no lock while it
  // works: deletions stand alone, and a file in use is skipped. On any other call, two comparisons.
  void PurgeOldLogs(LONG nLifeDays) noexcept;

  // The tag remembered with the first choice; empty when none was.
  const char* ModuleTag() const noexcept { return m_szModuleTag; }

 private:
  enum class FolderState : DWORD { None = 0, Undefined = 1, Chosen = 3 };

  void CreateBaseFolder() noexcept;
  void ChooseFolder(const char* pszModule) noexcept;

  CRITICAL_SECTION m_csFolder;  // guards the folder choice and the creation of the folder
  FolderState m_state = FolderState::None;
  char m_szModuleTag[32] = {};  // written once, at process attach
  LogPath m_moduleFolder = {};
  wchar_t m_wszBaseFolder[260] = {};        // constant after construction
  std::atomic<std::uint64_t> m_ullLine{0};  // newest line: packed date (high), high word of its file time (low)
  std::atomic<DWORD> m_dwLastPurge{0};      // packed line date at the last purge run
  std::atomic<LONG> m_nLastPurgeLifeDays{0};
};
