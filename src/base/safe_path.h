// Files and folders below a root that others may write to, reached without ever following a link.
//
// The root is the administrator's and may lie behind links. Below it every folder on the way is opened by itself and not
// through a link, checked by its handle, and stays open without the right for others to move or delete it. No handle keeps
// an empty folder from being turned into a link where it stands: so a file counts only when its own handle says that it
// lies in its place, and a folder is made only in one that holds something. Names below the root are single names, never
// paths.
// Nothing here logs or reports: the log itself lives on this.
#pragma once

#include <windows.h>

#include <cstddef>

#include "base/open_path.h"
#include "base/owners.h"
#include "base/path_text.h"

// A folder by its names: how the calls reach it and what a handle to it must tell.
class SafePlace {
 public:
  SafePlace(const SafePlace&) = delete;
  SafePlace& operator=(const SafePlace&) = delete;
  const wchar_t* Path() const noexcept { return m_path.Text(); }

 protected:
  SafePlace() noexcept = default;
  ~SafePlace() = default;
  // Becomes the place of another one, or of what has a name in it.
  bool Take(const SafePlace& other, const wchar_t* pszName = nullptr) noexcept;

  PathText m_path;
  PathText m_final;
  DWORD m_dwVolume = 0;
};

// The root: the folder that is trusted as it stands, wherever the way to it leads.
class TrustedStart : public SafePlace {
 public:
  // Finds out where a folder really lies; its path is the first cch characters of a text. FALSE when it cannot be opened, or
  // is a link of somebody other than the system and the administrators, with the last-error code of the step that failed.
  bool Resolve(const wchar_t* pszFolder, std::size_t cch) noexcept;
};

enum class SafeOpen {
  Opened,
  Missing,     // there is no such folder: nothing has this name, or a file has it
  Refused,     // it could not be opened, or what was opened is a link or lies elsewhere
  NotAllowed,  // it is missing, and the thread has not the right to make it
};

// A folder below a root (or the root itself), held open.
class SafeFolder : public SafePlace {
 public:
  // Opens the root itself.
  bool OpenRoot(const TrustedStart& root) noexcept;
  // Opens a folder in the root, or in a folder that stays open meanwhile. dwMoreAccess: rights beside those that every use
  // needs.
  SafeOpen Open(const SafePlace& parent, const wchar_t* pszName, DWORD dwMoreAccess = 0) noexcept;
  // The same, and makes the folder when it is missing. bForUsers: one that it made gets the access rule of those that every
  // user's programs write to.
  SafeOpen OpenOrMake(const TrustedStart& root, const wchar_t* pszName, bool bForUsers = false) noexcept;
  SafeOpen OpenOrMake(const SafeFolder& parent, const wchar_t* pszName, bool bForUsers = false) noexcept;

  // Opens a file in the folder: a plain file with one name, not shared with anybody. bMake: makes one that is missing.
  // Null when that fails. pFacts receives what the handle tells, the size among it.
  UniqueHandle OpenFile(const wchar_t* pszName, DWORD dwAccess, bool bMake, FileFacts* pFacts = nullptr) const noexcept;
  // Makes a file that goes when its handle is closed, also by the end of the process. Null when there is one already.
  UniqueHandle MakePassingFile(const wchar_t* pszName) const noexcept;
  // Renames a file that was opened here with the right DELETE; an existing file is not replaced.
  bool RenameFile(HANDLE hFile, const wchar_t* pszNewName) const noexcept;
  // Deletes a file that was opened here with the right DELETE; it is gone when its handle is closed.
  static bool DeleteOpenFile(HANDLE hFile) noexcept;
  // Deletes an entry of the folder: a file, an empty folder, or a link, never what a link leads to.
  bool DeleteEntry(const wchar_t* pszName) const noexcept;
  // Starts a listing; INVALID_HANDLE_VALUE when nothing matches. The folder stays open while the listing is used.
  UniqueFind List(const wchar_t* pszPattern, WIN32_FIND_DATAW& entry) const noexcept;

  explicit operator bool() const noexcept { return m_hFolder != nullptr; }

 private:
  SafeOpen Make(const SafePlace& parent, const wchar_t* pszName, bool bForUsers) noexcept;
  bool IsPlainFileInPlace(HANDLE hFile, const wchar_t* pszName, FileFacts& facts) const noexcept;
  bool IsInPlace(HANDLE hFile, const wchar_t* pszName, const FileFacts& facts) const noexcept;

  UniqueHandle m_hFolder;
};
