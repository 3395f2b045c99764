// The quick way to a file that the careful way has found before: one open by its full path and one question to the handle.
//
// It counts only when it is the very same file, by its index and its volume, with one name and no link itself. Then it does not
// matter where a folder on the way leads by now: it is ours. Everything else is for the careful way (safe_path.h). The volume is
// asked for once a second at most, since some systems look it up at length: on another one a file with the same name and the
// same index could only be there on purpose.
#pragma once

#include <windows.h>

#include "base/open_path.h"
#include "base/owners.h"

// Which file it was. Not for two threads at once.
class KnownFile {
 public:
  // Opens it for writing, not shared, never made and never through a link at its last name. Null when it cannot be opened,
  // with the last error of the open, or when it is not the same file (ERROR_FILE_INVALID). cbFile receives its size.
  UniqueHandle Open(const wchar_t* pszFullPath, ULONGLONG& cbFile) noexcept;
  // Remembers a file that was found to lie in its place.
  void Remember(const FileFacts& facts) noexcept;
  bool IsKnown() const noexcept { return m_bKnown; }

 private:
  bool IsSame(HANDLE hFile, ULONGLONG& cbFile) noexcept;

  bool m_bKnown = false;
  DWORD m_dwVolume = 0;
  DWORD m_dwVolumeAsked = 0;  // tick count
  ULONGLONG m_ullIndex = 0;
};
