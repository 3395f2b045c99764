// Where the log files lie, what they are called and how long they stay.
//
//   <common application data>\Kelvane\Logs\<module folder>\YYYYMMDD.log
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>

#include "base/safe_path.h"

// What every log file begins with; the purge deletes no file that does not.
inline constexpr char kLogHeader[] = "Kelvane Thermal Printer Log\r\n\r\n";

// The name of a log file.
struct LogName {
  wchar_t wsz[40];
};

// "YYYYMMDD.log"
void MakeDayFileName(LogName& file, const SYSTEMTIME& stLine) noexcept;

// The module's log folder and those above it, held open for one line. Every user may write to these places: none of them,
// and no file in them, is ever reached through a link.
struct LogFolder {
  SafeFolder kelvane;
  SafeFolder logs;
  SafeFolder module;
};

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

  // Opens the module folder, made if it is missing and writable for the Users group then. TRUE with folder.module closed:
  // the folder is there and could not be opened, or it is a link. After one failed creation no line is written for the
  // life of the process, unless only this thread, which acts for a client, lacks the rights.
  bool CreateLogFolder(const char* pszModule, LogFolder& folder) noexcept;

  // Makes the full path of a file in the module folder. FALSE while none is chosen, or when memory is short.
  bool MakeFilePath(PathText& path, const LogName& file) noexcept;

  // Moves a full file aside, to "YYYYMMDD_hhmmss(mmm).log". A failure is left to the next line: another process may have
  // just opened the file.
  void Rotate(const LogName& file, const SYSTEMTIME& stLine) noexcept;

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
  SafeOpen OpenBaseFolder(LogFolder& folder) noexcept;
  bool OpenModuleFolder(LogFolder& folder) noexcept;  // one that is there
  void ChooseFolder(const char* pszModule) noexcept;

  CRITICAL_SECTION m_csFolder;  // guards all down to the atomics, and the creation of the folder
  FolderState m_state = FolderState::None;
  char m_szModuleTag[32] = {};       // written once, at process attach
  wchar_t m_wszModule[17] = {};      // name of the module folder; empty: none is to be made any more
  wchar_t m_wszData[MAX_PATH] = {};  // common application data; constant after construction
  TrustedStart m_root;
  bool m_bRootKnown = false;
  std::atomic<std::uint64_t> m_ullLine{0};  // newest line: packed date (high), high word of its file time (low)
  std::atomic<DWORD> m_dwLastPurge{0};      // packed line date at the last purge run
  std::atomic<LONG> m_nLastPurgeLifeDays{0};
};
