#include "common/job_folders.h"

#include <shlwapi.h>

#include <cwchar>

#include "base/folder_access.h"
#include "base/memory.h"
#include "base/owners.h"
#include "base/text.h"
#include "common/log_module.h"

namespace {

constexpr std::size_t kLongestListedPath = 259;

}  // namespace

BOOL CreateJobFolder(const wchar_t* pszPath) noexcept {
  if (pszPath == nullptr || *pszPath == 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  if (!PathIsDirectoryW(pszPath)) {
    const std::size_t cch = wcslen(pszPath) + 16;
    const auto path = AllocBlock<wchar_t>(cch * sizeof(wchar_t));
    if (!path) {
      AssertHere();
      return FALSE;
    }
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

// The folder stays open while it is walked, so that what is found in it is deleted in it.
static void DeleteContent(const SafeFolder& folder) noexcept {
  WIN32_FIND_DATAW entry;
  const UniqueFind hFind = folder.List(L"*.*", entry);
  if (hFind.get() == INVALID_HANDLE_VALUE) return;
  do {
    const bool bFolder = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    if (!bFolder || entry.cFileName[0] != L'.') DeleteListed(folder, entry);
  } while (FindNextFileW(hFind.get(), &entry));
}

void DeleteFolderTree(const SafeFolder& parent, const wchar_t* pszName) noexcept {
  if (wcslen(parent.Path()) + 1 + wcslen(pszName) > kLongestListedPath) return;
  {
    SafeFolder folder;
    if (folder.Open(parent, pszName) == SafeOpen::Opened) DeleteContent(folder);
  }
  parent.DeleteEntry(pszName);
}

void DeleteListed(const SafeFolder& folder, const WIN32_FIND_DATAW& entry) noexcept {
  const DWORD dwKind = entry.dwFileAttributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT);
  if (dwKind == FILE_ATTRIBUTE_DIRECTORY) {
    DeleteFolderTree(folder, entry.cFileName);
  } else {
    folder.DeleteEntry(entry.cFileName);
  }
}
