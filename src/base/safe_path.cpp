#include "base/safe_path.h"

#include <cstring>
#include <cwchar>
#include <utility>

#include "base/folder_access.h"
#include "base/open_path.h"
#include "base/text.h"

namespace {

// FILE_TRAVERSE makes the share mode count: while it is held without FILE_SHARE_DELETE, nobody moves the folder away.
constexpr DWORD kFolderAccess = FILE_TRAVERSE | FILE_READ_ATTRIBUTES | SYNCHRONIZE;
constexpr DWORD kFolderShare = FILE_SHARE_READ | FILE_SHARE_WRITE;
constexpr DWORD kNotThroughLinks = FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS;

// Deleting the way POSIX does it: the name goes with this handle, whoever else has the file open. Systems before Windows 10
// do not know it.
constexpr auto kDispositionEx = static_cast<FILE_INFO_BY_HANDLE_CLASS>(21);  // FileDispositionInfoEx
struct DispositionEx {
  DWORD dwFlags;
};
constexpr DWORD kDelete = 0x1, kPosixSemantics = 0x2;

}  // namespace

bool SafePlace::Take(const SafePlace& other, const wchar_t* pszName) noexcept {
  m_dwVolume = other.m_dwVolume;
  return m_path.Assign(other.m_path.Text(), other.m_path.Length()) &&
         m_final.Assign(other.m_final.Text(), other.m_final.Length()) &&
         (pszName == nullptr || (m_path.Append(pszName) && m_final.Append(pszName)));
}

bool TrustedStart::Resolve(const wchar_t* pszFolder, std::size_t cch) noexcept {
  // A drive's name alone would stand for the device, not for the folder.
  const bool bDrive = cch > 0 && pszFolder[cch - 1] == L':';
  if (!(bDrive ? m_path.Assign(pszFolder, cch) && m_path.Append(L"") : m_path.AssignFullPath(pszFolder, cch)))
    return false;
  constexpr DWORD kShareAll = kFolderShare | FILE_SHARE_DELETE;
  UniqueHandle hFolder = OpenPath(m_path.Text(), FILE_READ_ATTRIBUTES, kShareAll, OPEN_EXISTING, kNotThroughLinks);
  FileFacts facts;
  if (!hFolder || !facts.AskOf(hFolder.get())) return false;
  UniqueHandle hLink;
  if (IsLink(hFolder.get(), facts)) {
    // It leads where its owner says, so that must be the system or an administrator. Nobody moves it away meanwhile.
    constexpr DWORD kLinkAccess = FILE_TRAVERSE | FILE_READ_ATTRIBUTES | READ_CONTROL;
    hLink = OpenPath(m_path.Text(), kLinkAccess, kFolderShare, OPEN_EXISTING, kNotThroughLinks);
    if (!hLink || !BelongsToTheMachine(hLink.get())) {
      SetLastError(ERROR_ACCESS_DENIED);
      return false;
    }
    hFolder = OpenPath(m_path.Text(), FILE_READ_ATTRIBUTES, kShareAll, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
    if (!hFolder || !facts.AskOf(hFolder.get())) return false;
  }
  if (!facts.IsFolder()) {
    SetLastError(ERROR_DIRECTORY);
    return false;
  }
  m_dwVolume = facts.dwVolumeSerialNumber;
  return m_final.AssignFinalPathOf(hFolder.get());
}

bool SafeFolder::OpenRoot(const TrustedStart& root) noexcept {
  if (!Take(root)) return false;
  m_hFolder = OpenPath(m_path.Text(), kFolderAccess, kFolderShare, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
  return m_hFolder != nullptr;
}

// Opening changes nothing, so the final path is asked for only where something is made or deleted.
SafeOpen SafeFolder::Open(const SafePlace& parent, const wchar_t* pszName, DWORD dwMoreAccess) noexcept {
  m_hFolder.reset();
  if (!Take(parent, pszName)) return SafeOpen::Refused;
  m_hFolder = OpenPath(m_path.Text(), kFolderAccess | dwMoreAccess, kFolderShare, OPEN_EXISTING, kNotThroughLinks);
  if (!m_hFolder) {
    const DWORD dwError = GetLastError();
    return dwError == ERROR_FILE_NOT_FOUND || dwError == ERROR_PATH_NOT_FOUND ? SafeOpen::Missing : SafeOpen::Refused;
  }
  FileFacts facts;
  const bool bKnown = facts.AskOf(m_hFolder.get());
  const bool bLink = bKnown && IsLink(m_hFolder.get(), facts);
  if (bKnown && facts.IsFolder() && !bLink && facts.dwVolumeSerialNumber == m_dwVolume) return SafeOpen::Opened;
  m_hFolder.reset();
  if (!bKnown || bLink || facts.IsFolder()) return SafeOpen::Refused;
  SetLastError(ERROR_DIRECTORY);
  return SafeOpen::Missing;
}

SafeOpen SafeFolder::Make(const SafePlace& parent, const wchar_t* pszName, bool bForUsers) noexcept {
  // Somebody may be faster; whatever is there then is looked at like any other.
  const bool bMade = CreateDirectoryW(m_path.Text(), nullptr) != FALSE;
  const bool bNoRights = !bMade && GetLastError() == ERROR_ACCESS_DENIED;
  if (!bMade || !bForUsers || Open(parent, pszName, READ_CONTROL | WRITE_DAC) != SafeOpen::Opened) {
    const SafeOpen found = Open(parent, pszName);
    return found == SafeOpen::Missing && bNoRights ? SafeOpen::NotAllowed : found;
  }
  GrantUsersFullAccess(m_hFolder.get());
  return SafeOpen::Opened;
}

SafeOpen SafeFolder::OpenOrMake(const TrustedStart& root, const wchar_t* pszName, bool bForUsers) noexcept {
  const SafeOpen found = Open(root, pszName);
  return found != SafeOpen::Missing ? found : Make(root, pszName, bForUsers);
}

// What tells where a new folder lies is only a second call, so its parent must be the same in both: a folder that somebody
// turns into a link where it stands is empty, and this one holds a file meanwhile.
SafeOpen SafeFolder::OpenOrMake(const SafeFolder& parent, const wchar_t* pszName, bool bForUsers) noexcept {
  const SafeOpen found = Open(parent, pszName);
  if (found != SafeOpen::Missing) return found;
  wchar_t wszKeeper[16];
  FormatWide(wszKeeper, L"~%08x.tmp", GetCurrentProcessId());
  UniqueHandle hKeeper = parent.MakePassingFile(wszKeeper);
  if (!hKeeper && GetLastError() == ERROR_FILE_EXISTS) {  // somebody's: it will do as well, and goes too
    hKeeper = parent.OpenFile(wszKeeper, DELETE, false);
    if (hKeeper) DeleteOpenFile(hKeeper.get());
  }
  if (hKeeper) return Make(parent, pszName, bForUsers);
  return GetLastError() == ERROR_ACCESS_DENIED ? SafeOpen::NotAllowed : SafeOpen::Refused;
}

bool SafeFolder::IsInPlace(HANDLE hFile, const wchar_t* pszName, const FileFacts& facts) const noexcept {
  if (facts.dwVolumeSerialNumber != m_dwVolume) return false;
  PathText expected;
  PathText final;
  return expected.Assign(m_final.Text(), m_final.Length()) && expected.Append(pszName) &&
         final.AssignFinalPathOf(hFile) && _wcsicmp(final.Text(), expected.Text()) == 0;
}

// With last error ERROR_ACCESS_DENIED where what the handle tells is not what it should.
bool SafeFolder::IsPlainFileInPlace(HANDLE hFile, const wchar_t* pszName, FileFacts& facts) const noexcept {
  if (!facts.AskOf(hFile)) return false;
  const bool bInPlace =
      !facts.IsFolder() && !IsLink(hFile, facts) && facts.nNumberOfLinks == 1 && IsInPlace(hFile, pszName, facts);
  if (!bInPlace) SetLastError(ERROR_ACCESS_DENIED);
  return bInPlace;
}

UniqueHandle SafeFolder::OpenFile(const wchar_t* pszName, DWORD dwAccess, bool bMake,
                                  FileFacts* pFacts) const noexcept {
  PathText path;
  if (!path.Assign(m_path.Text(), m_path.Length()) || !path.Append(pszName)) return nullptr;
  bool bMade = false;
  UniqueHandle hFile = OpenPath(path.Text(), dwAccess, 0, OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT);
  if (!hFile && bMake && GetLastError() == ERROR_FILE_NOT_FOUND) {
    // With the right to take it away again: the folder may have been turned into a link meanwhile.
    hFile = OpenPath(path.Text(), dwAccess | DELETE, 0, OPEN_ALWAYS, FILE_FLAG_OPEN_REPARSE_POINT);
    bMade = hFile != nullptr && GetLastError() != ERROR_ALREADY_EXISTS;
  }
  FileFacts facts;
  if (!hFile) return nullptr;
  bool bRight = IsPlainFileInPlace(hFile.get(), pszName, facts);
  if (bRight && facts.HasReparsePoint()) {
    // One that the system keeps elsewhere or otherwise: it is opened like any other, and must be the same.
    hFile.reset();
    hFile = OpenPath(path.Text(), dwAccess, 0, OPEN_EXISTING, 0);
    FileFacts again;
    bRight = hFile != nullptr && IsPlainFileInPlace(hFile.get(), pszName, again) &&
             again.nFileIndexHigh == facts.nFileIndexHigh && again.nFileIndexLow == facts.nFileIndexLow;
  }
  if (bRight) {
    if (pFacts != nullptr) *pFacts = facts;
    return hFile;
  }
  const DWORD dwError = GetLastError();
  if (bMade && hFile) DeleteOpenFile(hFile.get());
  SetLastError(dwError);
  return nullptr;
}

UniqueHandle SafeFolder::MakePassingFile(const wchar_t* pszName) const noexcept {
  PathText path;
  if (!path.Assign(m_path.Text(), m_path.Length()) || !path.Append(pszName)) return nullptr;
  UniqueHandle hFile =
      OpenPath(path.Text(), DELETE, 0, CREATE_NEW, FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_DELETE_ON_CLOSE);
  FileFacts facts;
  if (hFile && !IsPlainFileInPlace(hFile.get(), pszName, facts)) hFile.reset();
  return hFile;
}

bool SafeFolder::RenameFile(HANDLE hFile, const wchar_t* pszNewName) const noexcept {
  PathText path;
  if (!path.Assign(m_path.Text(), m_path.Length()) || !path.Append(pszNewName)) return false;
  const std::size_t cbName = path.Length() * sizeof(wchar_t);
  const std::size_t cb = sizeof(FILE_RENAME_INFO) + cbName;
  const auto rename = AllocBlock<FILE_RENAME_INFO>(cb);
  if (!rename) return false;
  rename->ReplaceIfExists = FALSE;
  rename->FileNameLength = static_cast<DWORD>(cbName);
  std::memcpy(rename->FileName, path.Text(), cbName);
  return SetFileInformationByHandle(hFile, FileRenameInfo, rename.get(), static_cast<DWORD>(cb)) != FALSE;
}

bool SafeFolder::DeleteOpenFile(HANDLE hFile) noexcept {
  DispositionEx posix = {kDelete | kPosixSemantics};
  if (SetFileInformationByHandle(hFile, kDispositionEx, &posix, sizeof posix)) return true;
  const DWORD dwError = GetLastError();
  if (dwError != ERROR_INVALID_PARAMETER && dwError != ERROR_INVALID_FUNCTION && dwError != ERROR_NOT_SUPPORTED)
    return false;
  FILE_DISPOSITION_INFO disposition = {TRUE};
  return SetFileInformationByHandle(hFile, FileDispositionInfo, &disposition, sizeof disposition) != FALSE;
}

bool SafeFolder::DeleteEntry(const wchar_t* pszName) const noexcept {
  PathText path;
  if (!path.Assign(m_path.Text(), m_path.Length()) || !path.Append(pszName)) return false;
  const UniqueHandle hEntry = OpenPath(path.Text(), DELETE | FILE_READ_ATTRIBUTES, kFolderShare | FILE_SHARE_DELETE,
                                       OPEN_EXISTING, kNotThroughLinks);
  FileFacts facts;
  return hEntry && facts.AskOf(hEntry.get()) && IsInPlace(hEntry.get(), pszName, facts) && DeleteOpenFile(hEntry.get());
}

UniqueFind SafeFolder::List(const wchar_t* pszPattern, WIN32_FIND_DATAW& entry) const noexcept {
  PathText path;
  if (!path.Assign(m_path.Text(), m_path.Length()) || !path.Append(pszPattern)) return UniqueFind(INVALID_HANDLE_VALUE);
  return UniqueFind(FindFirstFileW(path.Text(), &entry));
}
