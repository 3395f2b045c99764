// Files: opened with share modes that hold inside the process and, for exclusive opens, between processes.
#include "files.h"

#include <shlobj.h>
#include <shlwapi.h>
#include <winternl.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>

namespace w32 {

std::mutex g_openMutex;

namespace {

// All of it under g_openMutex.
std::set<File*>& OpenFiles() {
  static auto* pFiles = new std::set<File*>;
  return *pFiles;
}
std::set<FileId>& Deleted() {  // that still have a handle
  static auto* pFiles = new std::set<FileId>;
  return *pFiles;
}
struct Oddities {
  std::set<FileId> oplocks;
  std::map<FileId, DWORD> reparseTags;
  std::map<FileId, OwnedBy> owners;
  std::map<FileId, std::int64_t> refusedUntil;
  bool bNoNormalizedNames = false;
};
Oddities& TheOddities() {
  static auto* pOddities = new Oddities;
  return *pOddities;
}
FileId IdOfPath(const wchar_t* pszPath) {
  struct stat status {};
  if (lstat(HostPath(pszPath).c_str(), &status) != 0) Unsupported("an oddity of a file that is not there");
  return IdOf(status);
}

DWORD FromErrno(int nError) {
  switch (nError) {
    case ENOENT: return ERROR_FILE_NOT_FOUND;
    case ENOTDIR: return ERROR_PATH_NOT_FOUND;
    case EEXIST: return ERROR_FILE_EXISTS;
    case ENOTEMPTY: return ERROR_DIR_NOT_EMPTY;
    case ENOSPC: return ERROR_DISK_FULL;
    default: return ERROR_ACCESS_DENIED;
  }
}

std::string ParentOf(const std::string& strPath) { return strPath.substr(0, strPath.rfind('/')); }
bool IsFolder(const std::string& strPath) {
  struct stat status {};
  return stat(strPath.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}
bool IsReadOnly(const std::string& strPath) {
  struct stat status {};
  return stat(strPath.c_str(), &status) == 0 && !S_ISDIR(status.st_mode) && (status.st_mode & S_IWUSR) == 0;
}
DWORD NotFound(const std::string& strPath) {
  return IsFolder(ParentOf(strPath)) ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
}

// The share modes that a handle with these rights needs from the others. One that asks for attributes alone needs none, and
// does not count.
DWORD SharesNeeded(DWORD dwAccess) {
  constexpr DWORD kReads = GENERIC_READ | FILE_READ_DATA | FILE_TRAVERSE;
  constexpr DWORD kWrites = GENERIC_WRITE | FILE_WRITE_DATA | FILE_APPEND_DATA;
  return ((dwAccess & kReads) != 0 ? FILE_SHARE_READ : 0u) | ((dwAccess & kWrites) != 0 ? FILE_SHARE_WRITE : 0u) |
         ((dwAccess & DELETE) != 0 ? FILE_SHARE_DELETE : 0u);
}

// Whether an open with these rights goes together with those that are in force.
bool Compatible(const FileId& id, DWORD dwAccess, DWORD dwShare) {
  const DWORD dwNeeds = SharesNeeded(dwAccess);
  if (dwNeeds == 0) return true;
  for (const File* pFile : OpenFiles()) {
    const DWORD dwNeeded = SharesNeeded(pFile->dwAccess);
    if (pFile->id != id || dwNeeded == 0) continue;
    if ((dwNeeds & ~pFile->dwShare) != 0 || (dwNeeded & ~dwShare) != 0) return false;
  }
  return true;
}

// Whether another process holds the file in a way that keeps this one out.
bool HeldElsewhere(int nFile, DWORD dwShare) { return flock(nFile, (dwShare == 0 ? LOCK_EX : LOCK_SH) | LOCK_NB) != 0; }

// A file or folder about to be deleted or moved must not be open without the right to be deleted, nor anything below it be
// open at all.
bool FreeToGo(const std::string& strPath) {
  struct stat status {};
  const bool bThere = lstat(strPath.c_str(), &status) == 0;
  {
    const LayerLock lock(g_openMutex);
    if (bThere && !Compatible(IdOf(status), DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE))
      return false;
    if (bThere && S_ISDIR(status.st_mode))
      for (const File* pFile : OpenFiles())
        if (HostPathOf(*pFile).starts_with(strPath + "/")) return false;
  }
  if (!bThere || !S_ISREG(status.st_mode)) return true;
  const int nFile = open(strPath.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  if (nFile < 0) return true;
  const bool bHeld = HeldElsewhere(nFile, FILE_SHARE_READ);
  close(nFile);
  return !bHeld;
}

void Unlink(const std::string& strPath) {
  if (unlink(strPath.c_str()) != 0) rmdir(strPath.c_str());
  StampWithClock(ParentOf(strPath));
}

bool IsDeleted(const FileId& id) {
  const LayerLock lock(g_openMutex);
  return Deleted().count(id) != 0;
}

bool IsOpen(const FileId& id) {
  for (const File* pFile : OpenFiles())
    if (pFile->id == id) return true;
  return false;
}

int HostFile(HANDLE hFile) {
  const auto pFile = FindObject<File>(hFile);
  return pFile ? pFile->nFile : -1;
}

}  // namespace

File::~File() {
  const LayerLock lock(g_openMutex);
  OpenFiles().erase(this);
  const bool bLast = Deleted().count(id) != 0 && !IsOpen(id);
  const std::string strPath = bLast || bDeleteAtClose ? HostPathOf(*this) : std::string();
  close(nFile);
  if (strPath.empty()) return;
  struct stat status {};
  if (lstat(strPath.c_str(), &status) == 0 && IdOf(status) == id) Unlink(strPath);
  if (bLast) Deleted().erase(id);
}

void MarkDeleted(const FileId& id) {
  const LayerLock lock(g_openMutex);
  Deleted().insert(id);
}

void DropFilesOfTheDead() {
  const LayerLock lock(g_openMutex);
  for (const File* pFile : OpenFiles())
    if (pFile->bDeleteAtClose || Deleted().count(pFile->id) != 0) Unlink(HostPathOf(*pFile));
}

DWORD ReparseTagOf(const FileId& id) {
  const LayerLock lock(g_openMutex);
  const auto it = TheOddities().reparseTags.find(id);
  return it != TheOddities().reparseTags.end() ? it->second : 0;
}
OwnedBy OwnerOf(const FileId& id) {
  const LayerLock lock(g_openMutex);
  const auto it = TheOddities().owners.find(id);
  return it != TheOddities().owners.end() ? it->second : OwnedBy::System;
}
bool NormalizedNamesAreRefused() { return TheOddities().bNoNormalizedNames; }

void HoldOplock(const wchar_t* pszPath) {
  const FileId id = IdOfPath(pszPath);
  const LayerLock lock(g_openMutex);
  TheOddities().oplocks.insert(id);
}
void DropOplocks() {
  {
    const LayerLock lock(g_openMutex);
    TheOddities().oplocks.clear();
  }
  std::lock_guard<std::mutex> lock(Scheduler::Get().WorldLock());
  Scheduler::Get().Changed();
}
void RefuseSharing(const wchar_t* pszPath, DWORD dwMilliseconds) {
  const FileId id = IdOfPath(pszPath);
  const LayerLock lock(g_openMutex);
  TheOddities().refusedUntil[id] =
      Scheduler::Get().NowTicks() + static_cast<std::int64_t>(dwMilliseconds) * kTicksPerMs;
}
void SetReparseTag(const wchar_t* pszPath, DWORD dwTag) {
  const FileId id = IdOfPath(pszPath);
  const LayerLock lock(g_openMutex);
  TheOddities().reparseTags[id] = dwTag;
}
void GiveToAUser(const wchar_t* pszPath) {
  const FileId id = IdOfPath(pszPath);
  const LayerLock lock(g_openMutex);
  TheOddities().owners[id] = OwnedBy::User;
}
void RefuseNormalizedNames(bool bRefuse) { TheOddities().bNoNormalizedNames = bRefuse; }

BOOL Fails(DWORD dwError) {
  SetLastError(dwError);
  return FALSE;
}

bool IsEmptyFolder(const std::string& strHostPath) {
  std::error_code ignored;
  return std::filesystem::is_empty(strHostPath, ignored);
}

}  // namespace w32

namespace w32 {
namespace {

struct OpenRequest {
  DWORD dwAccess;
  DWORD dwShare;
  DWORD dwDisposition;
  DWORD dwFlags;
  bool bNeverWaits;  // for the holder of an opportunistic lock
};

bool IsOplocked(const FileId& id) {
  const LayerLock lock(g_openMutex);
  return TheOddities().oplocks.count(id) != 0;
}

// Opens or makes a file. bBreaking: somebody's opportunistic lock is being broken, and the open did not wait for that.
HANDLE Open(const wchar_t* pszPath, const OpenRequest& request, bool& bBreaking) {
  const auto fail = [](DWORD dwError) {
    SetLastError(dwError);
    return INVALID_HANDLE_VALUE;
  };
  LayerLock lock(g_openMutex);
  const MappedPath path = MapPath(pszPath);
  if (path.dwError != ERROR_SUCCESS) return fail(path.dwError);
  const std::size_t cch = wcslen(pszPath);
  const bool bBackup = (request.dwFlags & FILE_FLAG_BACKUP_SEMANTICS) != 0;
  const bool bCut = cch > 0 && (pszPath[cch - 1] == '\\' || pszPath[cch - 1] == '/');
  if (bCut && !(bBackup && path.bThere && IsFolder(path.strHost))) return fail(ERROR_INVALID_NAME);

  const bool bNotThrough = (request.dwFlags & FILE_FLAG_OPEN_REPARSE_POINT) != 0;
  struct stat target = path.status;
  bool bExisted = path.bThere;
  const bool bThroughLink = bExisted && S_ISLNK(target.st_mode);
  const bool bLink = bThroughLink && bNotThrough;
  if (bThroughLink && !bNotThrough) bExisted = stat(path.strHost.c_str(), &target) == 0;
  struct stat led {};
  const bool bFolder =
      bLink ? stat(path.strHost.c_str(), &led) == 0 && S_ISDIR(led.st_mode) : bExisted && S_ISDIR(target.st_mode);
  const bool bWrites = (SharesNeeded(request.dwAccess) & FILE_SHARE_WRITE) != 0;
  if (bExisted && Deleted().count(IdOf(target)) != 0) return fail(ERROR_ACCESS_DENIED);
  if (bExisted && request.dwDisposition == CREATE_NEW) return fail(ERROR_FILE_EXISTS);
  if (bFolder && !bBackup) return fail(ERROR_ACCESS_DENIED);
  if (bExisted && !bFolder && bWrites && !bLink && (target.st_mode & S_IWUSR) == 0) return fail(ERROR_ACCESS_DENIED);

  int nFlags = O_CLOEXEC | (bFolder || !bWrites ? O_RDONLY : O_RDWR);
  switch (request.dwDisposition) {
    case CREATE_NEW: nFlags |= O_CREAT | O_EXCL; break;
    case CREATE_ALWAYS:
    case OPEN_ALWAYS: nFlags |= bFolder ? 0 : O_CREAT; break;
    case OPEN_EXISTING: break;
    default: Unsupported("CreateFileW with this disposition");
  }
  if (bLink) nFlags = O_CLOEXEC | O_PATH | O_NOFOLLOW;
  if (bExisted) {
    const auto refused = TheOddities().refusedUntil.find(IdOf(target));
    if (refused != TheOddities().refusedUntil.end() && Scheduler::Get().NowTicks() < refused->second)
      return fail(ERROR_SHARING_VIOLATION);
    if (!Compatible(IdOf(target), request.dwAccess, request.dwShare)) return fail(ERROR_SHARING_VIOLATION);
    if (TheOddities().oplocks.count(IdOf(target)) != 0 && (SharesNeeded(request.dwAccess) != 0)) {
      bBreaking = request.bNeverWaits;
      if (!bBreaking) {
        const FileId id = IdOf(target);
        lock.Unlock();
        {
          Scheduler& scheduler = Scheduler::Get();
          std::unique_lock<std::mutex> world(scheduler.WorldLock());
          scheduler.WaitUntil(
              world, "an opportunistic lock", [&] { return !IsOplocked(id); }, INFINITE);
        }
        lock.Lock();
      }
    }
  }
  const int nFile = open(path.strHost.c_str(), nFlags, 0666);
  if (nFile < 0) return fail(errno == ENOENT ? NotFound(path.strHost) : FromErrno(errno));
  if (!bFolder && !bLink && SharesNeeded(request.dwAccess) != 0 && HeldElsewhere(nFile, request.dwShare)) {
    close(nFile);
    return fail(ERROR_SHARING_VIOLATION);
  }
  if (request.dwDisposition == CREATE_ALWAYS && ftruncate(nFile, 0) != 0) Unsupported("truncating a host file");
  struct stat status {};
  if (fstat(nFile, &status) != 0) Unsupported("a host file that tells nothing");
  if (!bExisted) {
    StampWithClock(path.strHost);
    StampWithClock(ParentOf(path.strHost));
  }
  auto pFile = std::make_shared<File>(nFile, request.dwAccess, request.dwShare, bNotThrough, status);
  OpenFiles().insert(pFile.get());
  if ((request.dwFlags & FILE_FLAG_DELETE_ON_CLOSE) != 0) pFile->bDeleteAtClose = true;
  SetLastError(bExisted && request.dwDisposition != OPEN_EXISTING ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
  return NewHandle(std::move(pFile));
}

// A status that stands for a Win32 code (documented: facility 7).
LONG StatusOf(DWORD dwError) { return static_cast<LONG>(0xC0070000u | dwError); }

LONG WINAPI CreateNative(PHANDLE phFile, ACCESS_MASK access, OBJECT_ATTRIBUTES* pAttributes, IO_STATUS_BLOCK* pResult,
                         LARGE_INTEGER*, ULONG, ULONG ulShare, ULONG ulDisposition, ULONG ulOptions, void*, ULONG) {
  constexpr ULONG kSynchronous = 0x20, kNonDirectory = 0x40, kCompleteIfOplocked = 0x100, kDeleteOnClose = 0x1000,
                  kForBackup = 0x4000, kOpenReparsePoint = 0x200000;
  PlatformCall("CreateFileW");
  if (const DWORD dwFault = FaultCode("CreateFileW", ERROR_ACCESS_DENIED)) return StatusOf(dwFault);
  const std::u16string strName(reinterpret_cast<const char16_t*>(pAttributes->ObjectName->Buffer),
                               pAttributes->ObjectName->Length / sizeof(wchar_t));
  if (!strName.starts_with(u"\\??\\")) return StatusOf(ERROR_PATH_NOT_FOUND);
  constexpr ULONG kKnown =
      kSynchronous | kNonDirectory | kCompleteIfOplocked | kDeleteOnClose | kForBackup | kOpenReparsePoint;
  if ((ulOptions & ~kKnown) != 0 || (ulOptions & kSynchronous) == 0) Unsupported("NtCreateFile with these options");
  OpenRequest request = {access, ulShare, 0, 0, (ulOptions & kCompleteIfOplocked) != 0};
  request.dwDisposition = ulDisposition == 2 ? CREATE_NEW : ulDisposition == 3 ? OPEN_ALWAYS : OPEN_EXISTING;
  if ((ulOptions & kForBackup) != 0) request.dwFlags |= FILE_FLAG_BACKUP_SEMANTICS;
  if ((ulOptions & kOpenReparsePoint) != 0) request.dwFlags |= FILE_FLAG_OPEN_REPARSE_POINT;
  if ((ulOptions & kDeleteOnClose) != 0) request.dwFlags |= FILE_FLAG_DELETE_ON_CLOSE;
  bool bBreaking = false;
  const DWORD dwBefore = GetLastError();
  const HANDLE hFile = Open(reinterpret_cast<const wchar_t*>(strName.c_str() + 4), request, bBreaking);
  const DWORD dwError = GetLastError();
  SetLastError(dwBefore);
  if (hFile == INVALID_HANDLE_VALUE) return StatusOf(dwError);
  *phFile = hFile;
  pResult->Information = dwError == ERROR_ALREADY_EXISTS || ulDisposition == 1 ? 1 : 2;
  return bBreaking ? 0x108 : 0;  // STATUS_OPLOCK_BREAK_IN_PROGRESS
}

LONG WINAPI QueryNative(HANDLE hFile, IO_STATUS_BLOCK*, void* pInformation, ULONG, ULONG ulClass) {
  if (ulClass != 6) Unsupported("NtQueryInformationFile of this kind");
  PlatformCall("NtQueryInformationFile");
  if (const DWORD dwFault = FaultCode("NtQueryInformationFile", ERROR_GEN_FAILURE)) return StatusOf(dwFault);
  const auto pFile = FindObject<File>(hFile);
  if (!pFile) return StatusOf(ERROR_INVALID_HANDLE);
  *static_cast<ULONGLONG*>(pInformation) = pFile->id.nInode;
  return 0;
}

ULONG WINAPI StatusToError(LONG lStatus) { return static_cast<ULONG>(lStatus) & 0xFFFF; }

}  // namespace

FARPROC NativeRoutine(const char* pszName) {
  if (std::strcmp(pszName, "NtCreateFile") == 0)
    return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&CreateNative));
  if (std::strcmp(pszName, "NtQueryInformationFile") == 0)
    return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&QueryNative));
  if (std::strcmp(pszName, "RtlNtStatusToDosError") == 0)
    return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&StatusToError));
  return nullptr;
}

}  // namespace w32

using namespace w32;

extern "C" {

HANDLE WINAPI CreateFileW(LPCWSTR lpFileName, DWORD dwDesiredAccess, DWORD dwShareMode, LPSECURITY_ATTRIBUTES,
                          DWORD dwCreationDisposition, DWORD dwFlagsAndAttributes, HANDLE hTemplateFile) {
  if (hTemplateFile != nullptr) Unsupported("CreateFileW with a template");
  PlatformCall();
  if (FaultHere("CreateFileW", ERROR_ACCESS_DENIED)) return INVALID_HANDLE_VALUE;
  bool bBreaking = false;
  return Open(lpFileName, {dwDesiredAccess, dwShareMode, dwCreationDisposition, dwFlagsAndAttributes, false},
              bBreaking);
}

BOOL WINAPI ReadFile(HANDLE hFile, LPVOID lpBuffer, DWORD nNumberOfBytesToRead, LPDWORD lpNumberOfBytesRead, LPVOID) {
  PlatformCall();
  *lpNumberOfBytesRead = 0;
  if (FaultHere("ReadFile", ERROR_GEN_FAILURE)) return FALSE;
  const auto pFile = FindObject<File>(hFile);
  if (pFile && (pFile->dwAccess & (GENERIC_READ | FILE_READ_DATA)) == 0) return Fails(ERROR_ACCESS_DENIED);
  if (pFile && pFile->bFolder) return Fails(ERROR_INVALID_FUNCTION);
  const ssize_t n = read(HostFile(hFile), lpBuffer, nNumberOfBytesToRead);
  if (n < 0) return Fails(ERROR_INVALID_HANDLE);
  *lpNumberOfBytesRead = static_cast<DWORD>(n);
  return TRUE;
}

BOOL WINAPI WriteFile(HANDLE hFile, LPCVOID lpBuffer, DWORD nNumberOfBytesToWrite, LPDWORD lpNumberOfBytesWritten,
                      LPVOID) {
  PlatformCall();
  *lpNumberOfBytesWritten = 0;
  if (FaultHere("WriteFile", ERROR_DISK_FULL)) return FALSE;
  const auto pFile = FindObject<File>(hFile);
  if (!pFile) return Fails(ERROR_INVALID_HANDLE);
  if ((pFile->dwAccess & (GENERIC_WRITE | FILE_WRITE_DATA | FILE_APPEND_DATA)) == 0) return Fails(ERROR_ACCESS_DENIED);
  if (pFile->bAsReparsePoint && ReparseTagOf(pFile->id) != 0) return Fails(ERROR_CANT_ACCESS_FILE);
  const auto* pBytes = static_cast<const char*>(lpBuffer);
  if (Scheduler::Get().Mode() == TimeMode::Simulated && Scheduler::Get().DiesHere() &&
      write(pFile->nFile, pBytes, nNumberOfBytesToWrite / 2) >= 0)
    Scheduler::Get().Die();
  while (*lpNumberOfBytesWritten < nNumberOfBytesToWrite) {
    const ssize_t n =
        write(pFile->nFile, pBytes + *lpNumberOfBytesWritten, nNumberOfBytesToWrite - *lpNumberOfBytesWritten);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return Fails(errno == EBADF ? ERROR_ACCESS_DENIED : FromErrno(errno));
    *lpNumberOfBytesWritten += static_cast<DWORD>(n);
  }
  StampWithClock(pFile->nFile);
  return TRUE;
}

DWORD WINAPI SetFilePointer(HANDLE hFile, LONG lDistanceToMove, PLONG lpDistanceToMoveHigh, DWORD dwMoveMethod) {
  if (lpDistanceToMoveHigh != nullptr) Unsupported("SetFilePointer with a 64-bit distance");
  PlatformCall();
  if (FaultHere("SetFilePointer", ERROR_GEN_FAILURE)) return INVALID_SET_FILE_POINTER;
  const int nWhence = dwMoveMethod == FILE_BEGIN ? SEEK_SET : dwMoveMethod == FILE_CURRENT ? SEEK_CUR : SEEK_END;
  const auto pFile = FindObject<File>(hFile);
  // A folder has no bytes, whatever the host says of its size.
  const off_t n =
      lseek(HostFile(hFile), lDistanceToMove, pFile && pFile->bFolder && nWhence == SEEK_END ? SEEK_SET : nWhence);
  if (n < 0) {
    SetLastError(errno == EINVAL ? ERROR_NEGATIVE_SEEK : ERROR_INVALID_HANDLE);
    return INVALID_SET_FILE_POINTER;
  }
  SetLastError(ERROR_SUCCESS);
  return static_cast<DWORD>(n);
}

BOOL WINAPI SetEndOfFile(HANDLE hFile) {
  const int nFile = HostFile(hFile);
  if (nFile < 0 || ftruncate(nFile, lseek(nFile, 0, SEEK_CUR)) != 0) return Fails(ERROR_INVALID_HANDLE);
  return TRUE;
}

BOOL WINAPI GetFileSizeEx(HANDLE hFile, PLARGE_INTEGER lpFileSize) {
  PlatformCall();
  if (FaultHere("GetFileSizeEx", ERROR_GEN_FAILURE)) return FALSE;
  struct stat status {};
  if (fstat(HostFile(hFile), &status) != 0) return Fails(ERROR_INVALID_HANDLE);
  lpFileSize->QuadPart = S_ISDIR(status.st_mode) ? 0 : status.st_size;
  return TRUE;
}

BOOL WINAPI SetFileTime(HANDLE hFile, const FILETIME*, const FILETIME*, const FILETIME* lpLastWriteTime) {
  if (lpLastWriteTime == nullptr) return TRUE;
  const std::uint64_t ullTicks =
      (static_cast<std::uint64_t>(lpLastWriteTime->dwHighDateTime) << 32) | lpLastWriteTime->dwLowDateTime;
  if (futimens(HostFile(hFile), HostStamp(ullTicks).data()) != 0) return Fails(ERROR_INVALID_HANDLE);
  return TRUE;
}

DWORD WINAPI GetFileAttributesW(LPCWSTR lpFileName) {
  PlatformCall();
  const MappedPath path = MapPath(lpFileName);
  struct stat status = path.status;
  const bool bThere = path.bThere && (!S_ISLNK(status.st_mode) || stat(path.strHost.c_str(), &status) == 0);
  if (path.dwError != ERROR_SUCCESS || !bThere) {
    SetLastError(path.dwError != ERROR_SUCCESS ? path.dwError : NotFound(path.strHost));
    return INVALID_FILE_ATTRIBUTES;
  }
  if (S_ISDIR(status.st_mode)) return FILE_ATTRIBUTE_DIRECTORY;
  return (status.st_mode & S_IWUSR) == 0 ? FILE_ATTRIBUTE_READONLY : FILE_ATTRIBUTE_NORMAL;
}

BOOL WINAPI SetFileAttributesW(LPCWSTR lpFileName, DWORD dwFileAttributes) {
  const mode_t mode = (dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0 ? 0444 : 0666;
  if (chmod(HostPath(lpFileName).c_str(), mode) != 0) return Fails(ERROR_FILE_NOT_FOUND);
  return TRUE;
}

// A path as the calls take it that need something to be there: FALSE with the fitting error when there is nothing.
static bool IsThere(const MappedPath& path) {
  if (path.dwError != ERROR_SUCCESS) return Fails(path.dwError);
  return path.bThere || Fails(NotFound(path.strHost));
}

BOOL WINAPI DeleteFileW(LPCWSTR lpFileName) {
  PlatformCall();
  if (FaultHere("DeleteFileW", ERROR_ACCESS_DENIED)) return FALSE;
  const MappedPath path = MapPath(lpFileName);
  if (!IsThere(path)) return FALSE;
  const FileId id = IdOf(path.status);
  if (IsDeleted(id) || IsFolder(path.strHost) || IsReadOnly(path.strHost)) return Fails(ERROR_ACCESS_DENIED);
  if (!FreeToGo(path.strHost)) return Fails(ERROR_SHARING_VIOLATION);
  {
    const LayerLock lock(g_openMutex);
    if (IsOpen(id)) {  // its name stays until the last handle is closed
      Deleted().insert(id);
      return TRUE;
    }
  }
  if (unlink(path.strHost.c_str()) != 0) return Fails(FromErrno(errno));
  StampWithClock(ParentOf(path.strHost));
  return TRUE;
}

BOOL WINAPI MoveFileW(LPCWSTR lpExistingFileName, LPCWSTR lpNewFileName) {
  PlatformCall();
  if (FaultHere("MoveFileW", ERROR_ACCESS_DENIED)) return FALSE;
  const MappedPath from = MapPath(lpExistingFileName);
  const MappedPath to = MapPath(lpNewFileName);
  if (!IsThere(from)) return FALSE;
  if (IsDeleted(IdOf(from.status))) return Fails(ERROR_ACCESS_DENIED);
  if (!FreeToGo(from.strHost)) return Fails(IsFolder(from.strHost) ? ERROR_ACCESS_DENIED : ERROR_SHARING_VIOLATION);
  if (to.dwError != ERROR_SUCCESS) return Fails(to.dwError);
  if (!IsFolder(ParentOf(to.strHost))) return Fails(ERROR_PATH_NOT_FOUND);
  if (to.bThere && IdOf(to.status) != IdOf(from.status)) return Fails(ERROR_ALREADY_EXISTS);
  if (rename(from.strHost.c_str(), to.strHost.c_str()) != 0) return Fails(FromErrno(errno));
  return TRUE;
}

BOOL WINAPI CreateDirectoryW(LPCWSTR lpPathName, LPSECURITY_ATTRIBUTES) {
  constexpr std::size_t kLongestFolder = 248;  // the documented limit leaves room for a file name
  PlatformCall();
  if (FaultHere("CreateDirectoryW", ERROR_ACCESS_DENIED)) return FALSE;
  const MappedPath path = MapPath(lpPathName);
  if (path.dwError != ERROR_SUCCESS) return Fails(path.dwError);
  if (wcslen(lpPathName) >= kLongestFolder) return Fails(ERROR_FILENAME_EXCED_RANGE);
  const LayerLock lock(g_openMutex);
  if (mkdir(path.strHost.c_str(), 0777) != 0) {
    return Fails(errno == EEXIST ? ERROR_ALREADY_EXISTS : errno == ENOENT ? ERROR_PATH_NOT_FOUND : FromErrno(errno));
  }
  StampWithClock(path.strHost);
  StampWithClock(ParentOf(path.strHost));
  return TRUE;
}

BOOL WINAPI RemoveDirectoryW(LPCWSTR lpPathName) {
  PlatformCall();
  if (FaultHere("RemoveDirectoryW", ERROR_ACCESS_DENIED)) return FALSE;
  const MappedPath path = MapPath(lpPathName);
  if (!IsThere(path)) return FALSE;
  const bool bLink = S_ISLNK(path.status.st_mode);
  if (!bLink && !S_ISDIR(path.status.st_mode)) return Fails(ERROR_DIRECTORY);
  if (!FreeToGo(path.strHost)) return Fails(ERROR_SHARING_VIOLATION);
  if ((bLink ? unlink(path.strHost.c_str()) : rmdir(path.strHost.c_str())) != 0) return Fails(FromErrno(errno));
  StampWithClock(ParentOf(path.strHost));
  return TRUE;
}

DWORD WINAPI GetFullPathNameW(LPCWSTR lpFileName, DWORD nBufferLength, LPWSTR lpBuffer, LPWSTR* lpFilePart) {
  if (lpFilePart != nullptr) Unsupported("GetFullPathNameW with the file's part");
  PlatformCall();
  if (FaultHere("GetFullPathNameW", ERROR_INVALID_NAME)) return 0;
  const std::u16string strFull = FullPath(lpFileName);
  if (strFull.empty()) return static_cast<DWORD>(Fails(ERROR_INVALID_NAME));
  if (strFull.size() >= nBufferLength) return static_cast<DWORD>(strFull.size() + 1);
  std::memcpy(lpBuffer, strFull.c_str(), (strFull.size() + 1) * sizeof(wchar_t));
  return static_cast<DWORD>(strFull.size());
}

BOOL WINAPI PathIsDirectoryW(LPCWSTR pszPath) {
  PlatformCall();
  const MappedPath path = MapPath(pszPath);
  return path.dwError == ERROR_SUCCESS && IsFolder(path.strHost) ? FILE_ATTRIBUTE_DIRECTORY : FALSE;
}

BOOL WINAPI PathFileExistsW(LPCWSTR pszPath) { return GetFileAttributesW(pszPath) != INVALID_FILE_ATTRIBUTES; }

BOOL WINAPI SHGetSpecialFolderPathW(HWND, LPWSTR pszPath, int csidl, BOOL fCreate) {
  if (csidl != CSIDL_COMMON_APPDATA || fCreate) Unsupported("this special folder");
  PlatformCall();
  if (FaultHere("SHGetSpecialFolderPathW", ERROR_PATH_NOT_FOUND)) return FALSE;
  constexpr wchar_t kFolder[] = L"C:\\ProgramData";
  std::memcpy(pszPath, kFolder, sizeof kFolder);
  return TRUE;
}

}  // extern "C"
