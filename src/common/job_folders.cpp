#include "common/job_folders.h"

#include <shlwapi.h>

#include <cwchar>

#include "base/folder_access.h"
#include "base/memory.h"
#include "base/owners.h"
#include "base/text.h"

namespace {

constexpr std::size_t kLongestListedPath = 259;
constexpr std::size_t kPathChars = 520;

}  // namespace

BOOL CreateJobFolder(const wchar_t* pszPath) noexcept {
  if (pszPath == nullptr || *pszPath == 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  if (!PathIsDirectoryW(pszPath)) {
    const std::size_t cch = wcslen(pszPath) + 16;
    const auto path = AllocBlock<wchar_t>(cch * sizeof(wchar_t));
    if (!path) return FALSE;
    CopyIfFits({path.get(), cch}, pszPath);
    for (wchar_t* p = path.get();; ++p) {
      if (*p != L'\\' && *p != 0) continue;
      const wchar_t wchEnd = *p;
      *p = 0;
      const bool bThere = PathIsDirectoryW(path.get()) || CreateDirectoryW(path.get(), nullptr);
      *p = wchEnd;
      if (!bThere || wchEnd == 0) break;
    }
    if (!PathIsDirectoryW(pszPath)) return FALSE;
  }
  GrantUsersFullAccess(pszPath);
  return TRUE;
}

void DeleteFolderTree(const wchar_t* pszPath) noexcept {
  const std::size_t cchPath = wcslen(pszPath);
  if (cchPath > kLongestListedPath) return;
  wchar_t wszChild[kPathChars];
  FormatWide(wszChild, L"%s\\*.*", pszPath);
  {
    WIN32_FIND_DATAW entry;
    const UniqueFind hFind(FindFirstFileW(wszChild, &entry));
    if (hFind.get() != INVALID_HANDLE_VALUE) {
      do {
        const bool bFolder = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        if (bFolder && entry.cFileName[0] == L'.') continue;
        if (!FormatWide(wszChild, L"%s\\%s", pszPath, entry.cFileName)) continue;
        if (!bFolder) {
          DeleteFileW(wszChild);
        } else if ((entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
          RemoveDirectoryW(wszChild);
        } else {
          DeleteFolderTree(wszChild);
        }
      } while (FindNextFileW(hFind.get(), &entry));
    }
  }
  RemoveDirectoryW(pszPath);
}
