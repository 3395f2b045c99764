// The one way in which files and folders are opened where others may meddle with them.
#pragma once

#include <windows.h>

#include "base/owners.h"

// As CreateFileW, with a full path (GetFullPathNameW) and three differences: it never waits for the holder of an opportunistic
// lock, which need not ever give it up: such an open is refused with ERROR_SHARING_VIOLATION. Where the path leads to a pipe,
// its server may learn who we are and not act for us. And null stands for a failure.
//   dwDisposition  CREATE_NEW, OPEN_EXISTING or OPEN_ALWAYS
//   dwFlags        FILE_FLAG_BACKUP_SEMANTICS, FILE_FLAG_OPEN_REPARSE_POINT and FILE_FLAG_DELETE_ON_CLOSE count
// On success the last error is 0, or ERROR_ALREADY_EXISTS where OPEN_ALWAYS found the file. Any thread.
UniqueHandle OpenPath(const wchar_t* pszPath, DWORD dwAccess, DWORD dwShare, DWORD dwDisposition,
                      DWORD dwFlags) noexcept;

// What is known of an open file or folder, by one question to its handle.
struct FileFacts : BY_HANDLE_FILE_INFORMATION {
  // Null and a last error when the handle tells nothing.
  bool AskOf(HANDLE hFile) noexcept { return GetFileInformationByHandle(hFile, this) != FALSE; }
  bool IsFolder() const noexcept { return (dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
  bool HasReparsePoint() const noexcept { return (dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0; }
  bool IsEmpty() const noexcept { return nFileSizeHigh == 0 && nFileSizeLow == 0; }
};

// The index of an open file on its volume, by a question of its own that costs little everywhere. False when it is not told.
bool FileIndexOf(HANDLE hFile, ULONGLONG& ullIndex) noexcept;

// Whether a reparse point stands for another place (documented: the name surrogate bit of its tag). Placeholders of cloud
// storage, deduplicated and compressed files are none of these.
inline bool IsNameSurrogate(DWORD dwReparseTag) noexcept { return (dwReparseTag & 0x20000000u) != 0; }
// The same of what was opened without going through it; true as well when its tag cannot be read.
bool IsLink(HANDLE hFile, const FileFacts& facts) noexcept;
