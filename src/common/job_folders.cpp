#include "common/job_folders.h"

#include <shlwapi.h>

#include <cwchar>
#include <memory>
#include <new>

#include "base/folder_access.h"
#include "base/memory.h"
#include "base/owners.h"
#include "base/text.h"
#include "common/log_module.h"

namespace {

constexpr std::size_t kLongestListedPath = 259;

}  // namespace

// Through its handle, and not through a link that somebody has put in its place meanwhile.
static void GrantUsersAccessTo(const wchar_t* pszPath) noexcept {
  PathText path;
  if (!path.AssignFullPath(pszPath, wcslen(pszPath))) return;
  const UniqueHandle hFolder = OpenPath(path.Text(), READ_CONTROL | WRITE_DAC, 0, OPEN_EXISTING,
                                        FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT);
  FileFacts facts;
  if (hFolder && facts.AskOf(hFolder.get()) && facts.IsFolder() && !IsLink(hFolder.get(), facts))
    GrantUsersFullAccess(hFolder.get());
}

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
  GrantUsersAccessTo(pszPath);
  return TRUE;
}

namespace {

// A folder on the way down, held open while it is walked, so that what is found in it is deleted in it.
struct Level {
  Level* pUp;
  SafeFolder folder;
  UniqueFind hFind;
  WIN32_FIND_DATAW entry;
};

// A folder that is no link to another one.
bool IsFolder(const WIN32_FIND_DATAW& entry) noexcept {
  const bool bLink = (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 && IsNameSurrogate(entry.dwReserved0);
  return (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 && !bLink;
}

// Goes down into a folder and finds its first entry; null when there is none to be walked. bSkipped: it stays as it is.
Level* GoDown(Level* pUp, const SafeFolder& parent, const wchar_t* pszName, bool& bSkipped) noexcept {
  bSkipped = wcslen(parent.Path()) + 1 + wcslen(pszName) > kLongestListedPath;
  if (bSkipped) return nullptr;
  void* pBlock = AllocZeroed(sizeof(Level));
  bSkipped = pBlock == nullptr;
  if (bSkipped) return nullptr;
  auto* pLevel = new (pBlock) Level{pUp, {}, UniqueFind(INVALID_HANDLE_VALUE), {}};
  if (pLevel->folder.Open(parent, pszName) == SafeOpen::Opened)
    pLevel->hFind = pLevel->folder.List(L"*.*", pLevel->entry);
  return pLevel;
}

Level* GoUp(Level* pLevel) noexcept {
  Level* pUp = pLevel->pUp;
  std::destroy_at(pLevel);
  ReleaseMemory(pLevel);
  return pUp;
}

}  // namespace

// The way down is kept on the heap: how deep a user's folders lie must not decide what the spooler's stack has to hold.
unsigned DeleteFolderTree(const SafeFolder& parent, const wchar_t* pszName) noexcept {
  unsigned nSkipped = 0;
  bool bSkipped = false;
  Level* pLevel = GoDown(nullptr, parent, pszName, bSkipped);
  if (bSkipped) return 1;
  bool bEntry = pLevel->hFind.get() != INVALID_HANDLE_VALUE;
  while (true) {
    if (!bEntry) {  // the folder is done with; its own entry in the one above is what comes next
      const Level* pUp = pLevel->pUp;
      pLevel = GoUp(pLevel);
      (pUp != nullptr ? pUp->folder : parent).DeleteEntry(pUp != nullptr ? pUp->entry.cFileName : pszName);
      if (pLevel == nullptr) return nSkipped;
    } else {
      const bool bFolder = (pLevel->entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
      const bool bStays = bFolder && pLevel->entry.cFileName[0] == L'.';
      if (!bStays && IsFolder(pLevel->entry)) {
        Level* pDown = GoDown(pLevel, pLevel->folder, pLevel->entry.cFileName, bSkipped);
        if (!bSkipped) {
          pLevel = pDown;
          bEntry = pLevel->hFind.get() != INVALID_HANDLE_VALUE;
          continue;
        }
        ++nSkipped;
      } else if (!bStays) {
        pLevel->folder.DeleteEntry(pLevel->entry.cFileName);
      }
    }
    bEntry = FindNextFileW(pLevel->hFind.get(), &pLevel->entry) != FALSE;
  }
}

unsigned DeleteListed(const SafeFolder& folder, const WIN32_FIND_DATAW& entry) noexcept {
  if (IsFolder(entry)) return DeleteFolderTree(folder, entry.cFileName);
  folder.DeleteEntry(entry.cFileName);
  return 0;
}
