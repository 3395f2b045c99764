#include "base/safe_path.h"

#include <cstring>
#include <cwchar>
#include <utility>

#include "base/folder_access.h"
#include "base/text.h"

namespace {

// FILE_TRAVERSE makes the share mode count: while it is held without FILE_SHARE_DELETE, nobody moves the folder away.
constexpr DWORD kFolderAccess = FILE_TRAVERSE | FILE_READ_ATTRIBUTES | SYNCHRONIZE;
constexpr DWORD kFolderShare = FILE_SHARE_READ | FILE_SHARE_WRITE;
constexpr DWORD kNotThroughLinks = FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS;

bool IsLink(const BY_HANDLE_FILE_INFORMATION& information) noexcept {
  return (information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}
bool IsFolder(const BY_HANDLE_FILE_INFORMATION& information) noexcept {
  return (information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

UniqueHandle OpenPath(const wchar_t* pszPath, DWORD dwAccess, DWORD dwShare, DWORD dwDisposition,
                      DWORD dwFlags) noexcept {
  const HANDLE hFile = CreateFileW(pszPath, dwAccess, dwShare, nullptr, dwDisposition, dwFlags, nullptr);
  return UniqueHandle(hFile != INVALID_HANDLE_VALUE ? hFile : nullptr);
}

}  // namespace

wchar_t* PathText::Reserve(std::size_t cch) noexcept {
  m_cch = 0;
  m_wszShort[0] = 0;
  m_pLong.reset();
  if (cch < kShortChars) return m_wszShort;
  m_pLong = AllocBlock<wchar_t>((cch + 1) * sizeof(wchar_t));
  return m_pLong.get();
}

bool PathText::Assign(const wchar_t* psz, std::size_t cch) noexcept {
  wchar_t* pszTo = Reserve(cch);
  if (pszTo == nullptr) return false;
  std::memcpy(pszTo, psz, cch * sizeof(wchar_t));
  pszTo[cch] = 0;
  m_cch = cch;
  return true;
}

bool PathText::Append(const wchar_t* pszName) noexcept {
  const std::size_t cchName = wcslen(pszName);
  const std::size_t cchBefore = m_cch;
  const bool bSeparator = cchBefore > 0 && Text()[cchBefore - 1] != L'\\';
  const std::size_t cch = cchBefore + (bSeparator ? 1 : 0) + cchName;
  wchar_t* pszTo = m_pLong ? nullptr : m_wszShort;
  HeapPtr<wchar_t> longer;
  if (pszTo == nullptr || cch >= kShortChars) {
    longer = AllocBlock<wchar_t>((cch + 1) * sizeof(wchar_t));
    if (!longer) return false;
    std::memcpy(longer.get(), Text(), cchBefore * sizeof(wchar_t));
    pszTo = longer.get();
  }
  if (bSeparator) pszTo[cchBefore] = L'\\';
  std::memcpy(pszTo + cch - cchName, pszName, (cchName + 1) * sizeof(wchar_t));
  if (longer) m_pLong = std::move(longer);
  m_cch = cch;
  return true;
}

bool PathText::AssignFinalPathOf(HANDLE hFile) noexcept {
  // A path that does not fit makes the call tell the room that it needs, terminator included.
  DWORD cch = GetFinalPathNameByHandleW(hFile, Reserve(0), kShortChars, VOLUME_NAME_NONE);
  if (cch >= kShortChars) {
    const DWORD cchRoom = cch;
    wchar_t* pszTo = Reserve(cchRoom);
    cch = pszTo != nullptr ? GetFinalPathNameByHandleW(hFile, pszTo, cchRoom + 1, VOLUME_NAME_NONE) : 0;
    if (cch > cchRoom) cch = 0;
  }
  m_cch = cch;
  return cch > 0;
}

bool SafePlace::Take(const SafePlace& other, const wchar_t* pszName) noexcept {
  m_dwVolume = other.m_dwVolume;
  return m_path.Assign(other.m_path.Text(), other.m_path.Length()) &&
         m_final.Assign(other.m_final.Text(), other.m_final.Length()) &&
         (pszName == nullptr || (m_path.Append(pszName) && m_final.Append(pszName)));
}

bool SafeRoot::Resolve(const wchar_t* pszFolder, std::size_t cch) noexcept {
  if (!m_path.Assign(pszFolder, cch)) return false;
  // A drive's name alone would stand for the device, not for the folder.
  if (cch > 0 && pszFolder[cch - 1] == L':' && !m_path.Append(L"")) return false;
  const UniqueHandle hFolder = OpenPath(m_path.Text(), FILE_READ_ATTRIBUTES, kFolderShare | FILE_SHARE_DELETE,
                                        OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
  BY_HANDLE_FILE_INFORMATION information;
  if (!hFolder || !GetFileInformationByHandle(hFolder.get(), &information) || !IsFolder(information)) return false;
  m_dwVolume = information.dwVolumeSerialNumber;
  return m_final.AssignFinalPathOf(hFolder.get());
}

bool SafeFolder::OpenRoot(const SafeRoot& root) noexcept {
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
  BY_HANDLE_FILE_INFORMATION information;
  const bool bKnown = GetFileInformationByHandle(m_hFolder.get(), &information) != FALSE;
  if (bKnown && IsFolder(information) && !IsLink(information) && information.dwVolumeSerialNumber == m_dwVolume)
    return SafeOpen::Opened;
  m_hFolder.reset();
  if (!bKnown || IsLink(information) || IsFolder(information)) return SafeOpen::Refused;
  SetLastError(ERROR_DIRECTORY);
  return SafeOpen::Missing;
}

SafeOpen SafeFolder::Make(const SafePlace& parent, const wchar_t* pszName, bool bForUsers) noexcept {
  // Somebody may be faster; whatever is there then is looked at like any other.
  const bool bMade = CreateDirectoryW(m_path.Text(), nullptr) != FALSE;
  if (!bMade || !bForUsers || Open(parent, pszName, READ_CONTROL | WRITE_DAC) != SafeOpen::Opened)
    return Open(parent, pszName);
  GrantUsersFullAccess(m_hFolder.get());
  return SafeOpen::Opened;
}

SafeOpen SafeFolder::OpenOrMake(const SafeRoot& root, const wchar_t* pszName, bool bForUsers) noexcept {
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
  return hKeeper ? Make(parent, pszName, bForUsers) : SafeOpen::Refused;
}

bool SafeFolder::IsInPlace(HANDLE hFile, const wchar_t* pszName,
                           const BY_HANDLE_FILE_INFORMATION& information) const noexcept {
  if (information.dwVolumeSerialNumber != m_dwVolume) return false;
  PathText expected;
  PathText final;
  return expected.Assign(m_final.Text(), m_final.Length()) && expected.Append(pszName) &&
         final.AssignFinalPathOf(hFile) && _wcsicmp(final.Text(), expected.Text()) == 0;
}

UniqueHandle SafeFolder::OpenFile(const wchar_t* pszName, DWORD dwAccess, bool bMake,
                                  BY_HANDLE_FILE_INFORMATION* pInformation) const noexcept {
  constexpr DWORD kFlags = FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT;
  PathText path;
  if (!path.Assign(m_path.Text(), m_path.Length()) || !path.Append(pszName)) return nullptr;
  dwAccess |= FILE_READ_ATTRIBUTES;
  bool bMade = false;
  UniqueHandle hFile = OpenPath(path.Text(), dwAccess, 0, OPEN_EXISTING, kFlags);
  if (!hFile && bMake && GetLastError() == ERROR_FILE_NOT_FOUND) {
    // With the right to take it away again: the folder may have been turned into a link meanwhile.
    hFile = OpenPath(path.Text(), dwAccess | DELETE, 0, OPEN_ALWAYS, kFlags);
    bMade = hFile != nullptr && GetLastError() != ERROR_ALREADY_EXISTS;
  }
  if (!hFile) return nullptr;
  BY_HANDLE_FILE_INFORMATION information;
  if (IsPlainFileInPlace(hFile.get(), pszName, information)) {
    if (pInformation != nullptr) *pInformation = information;
    return hFile;
  }
  const DWORD dwError = GetLastError();
  if (bMade) DeleteOpenFile(hFile.get());
  SetLastError(dwError);
  return nullptr;
}

UniqueHandle SafeFolder::MakePassingFile(const wchar_t* pszName) const noexcept {
  constexpr DWORD kFlags = FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_DELETE_ON_CLOSE;
  PathText path;
  if (!path.Assign(m_path.Text(), m_path.Length()) || !path.Append(pszName)) return nullptr;
  UniqueHandle hFile = OpenPath(path.Text(), DELETE | FILE_READ_ATTRIBUTES, 0, CREATE_NEW, kFlags);
  BY_HANDLE_FILE_INFORMATION information;
  if (hFile && !IsPlainFileInPlace(hFile.get(), pszName, information)) hFile.reset();
  return hFile;
}

// With last error ERROR_ACCESS_DENIED where what the handle tells is not what it should.
bool SafeFolder::IsPlainFileInPlace(HANDLE hFile, const wchar_t* pszName,
                                    BY_HANDLE_FILE_INFORMATION& information) const noexcept {
  if (!GetFileInformationByHandle(hFile, &information)) return false;
  const bool bInPlace = !IsFolder(information) && !IsLink(information) && information.nNumberOfLinks == 1 &&
                        IsInPlace(hFile, pszName, information);
  if (!bInPlace) SetLastError(ERROR_ACCESS_DENIED);
  return bInPlace;
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
  FILE_DISPOSITION_INFO disposition = {TRUE};
  return SetFileInformationByHandle(hFile, FileDispositionInfo, &disposition, sizeof disposition) != FALSE;
}

bool SafeFolder::DeleteEntry(const wchar_t* pszName) const noexcept {
  PathText path;
  if (!path.Assign(m_path.Text(), m_path.Length()) || !path.Append(pszName)) return false;
  const UniqueHandle hEntry = OpenPath(path.Text(), DELETE | FILE_READ_ATTRIBUTES, kFolderShare | FILE_SHARE_DELETE,
                                       OPEN_EXISTING, kNotThroughLinks);
  BY_HANDLE_FILE_INFORMATION information;
  return hEntry && GetFileInformationByHandle(hEntry.get(), &information) &&
         IsInPlace(hEntry.get(), pszName, information) && DeleteOpenFile(hEntry.get());
}

UniqueFind SafeFolder::List(const wchar_t* pszPattern, WIN32_FIND_DATAW& entry) const noexcept {
  PathText path;
  if (!path.Assign(m_path.Text(), m_path.Length()) || !path.Append(pszPattern)) return UniqueFind(INVALID_HANDLE_VALUE);
  return UniqueFind(FindFirstFileW(path.Text(), &entry));
}
