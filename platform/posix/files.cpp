// Files: opened with share modes that hold inside the process and, for exclusive opens, between processes.
#include "files.h"

#include <shlobj.h>
#include <shlwapi.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>

namespace w32 {

std::mutex g_openMutex;

namespace {

std::set<File*>& OpenFiles() {
  static auto* pFiles = new std::set<File*>;
  return *pFiles;
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

// Whether an open with these rights goes together with those that are in force.
bool Compatible(const std::string& strPath, DWORD dwAccess, DWORD dwShare) {
  const auto needs = [](DWORD dw) {
    return ((dw & (GENERIC_READ | FILE_LIST_DIRECTORY | FILE_TRAVERSE)) ? FILE_SHARE_READ : 0u) |
           ((dw & GENERIC_WRITE) ? FILE_SHARE_WRITE : 0u) | ((dw & DELETE) ? FILE_SHARE_DELETE : 0u);
  };
  for (const File* pFile : OpenFiles()) {
    if (pFile->strHostPath != strPath) continue;
    if ((needs(dwAccess) & ~pFile->dwShare) != 0 || (needs(pFile->dwAccess) & ~dwShare) != 0) return false;
  }
  return true;
}

// Whether another process holds the file in a way that keeps this one out.
bool HeldElsewhere(int nFile, DWORD dwShare) { return flock(nFile, (dwShare == 0 ? LOCK_EX : LOCK_SH) | LOCK_NB) != 0; }

// A file or folder about to be deleted or moved must not be open without the right to be deleted, nor anything below it be
// open at all.
bool FreeToGo(const std::string& strPath) {
  {
    std::lock_guard<std::mutex> lock(g_openMutex);
    if (!Compatible(strPath, DELETE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE)) return false;
    for (const File* pFile : OpenFiles())
      if (pFile->strHostPath.starts_with(strPath + "/")) return false;
  }
  struct stat status {};
  if (lstat(strPath.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return true;
  const int nFile = open(strPath.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
  if (nFile < 0) return true;
  const bool bHeld = HeldElsewhere(nFile, FILE_SHARE_READ);
  close(nFile);
  return !bHeld;
}

int HostFile(HANDLE hFile) {
  const auto pFile = FindObject<File>(hFile);
  return pFile ? pFile->nFile : -1;
}

}  // namespace

File::~File() {
  std::lock_guard<std::mutex> lock(g_openMutex);
  OpenFiles().erase(this);
  close(nFile);
  if (strDeleteAtClose.empty()) return;
  if (unlink(strDeleteAtClose.c_str()) != 0) rmdir(strDeleteAtClose.c_str());
  StampWithClock(ParentOf(strDeleteAtClose));
}

void DropFilesOfTheDead() {
  std::lock_guard<std::mutex> lock(g_openMutex);
  for (const File* pFile : OpenFiles())
    if (!pFile->strDeleteAtClose.empty() && unlink(pFile->strDeleteAtClose.c_str()) != 0)
      rmdir(pFile->strDeleteAtClose.c_str());
}

BOOL Fails(DWORD dwError) {
  SetLastError(dwError);
  return FALSE;
}

bool IsEmptyFolder(const std::string& strHostPath) {
  std::error_code ignored;
  return std::filesystem::is_empty(strHostPath, ignored);
}

}  // namespace w32

using namespace w32;

extern "C" {

HANDLE WINAPI CreateFileW(LPCWSTR lpFileName, DWORD dwDesiredAccess, DWORD dwShareMode, LPSECURITY_ATTRIBUTES,
                          DWORD dwCreationDisposition, DWORD dwFlagsAndAttributes, HANDLE hTemplateFile) {
  if (hTemplateFile != nullptr) Unsupported("CreateFileW with a template");
  PlatformCall();
  if (FaultHere("CreateFileW", ERROR_ACCESS_DENIED)) return INVALID_HANDLE_VALUE;
  std::lock_guard<std::mutex> lock(g_openMutex);
  const MappedPath path = MapPath(lpFileName);
  const auto fail = [](DWORD dwError) {
    SetLastError(dwError);
    return INVALID_HANDLE_VALUE;
  };
  if (path.dwError != ERROR_SUCCESS) return fail(path.dwError);

  struct stat target = path.status;
  bool bExisted = path.bThere;
  const bool bThroughLink = bExisted && S_ISLNK(target.st_mode);
  if (bThroughLink) bExisted = stat(path.strHost.c_str(), &target) == 0;
  const bool bLink = bThroughLink && (dwFlagsAndAttributes & FILE_FLAG_OPEN_REPARSE_POINT) != 0;
  const bool bFolder = bExisted && S_ISDIR(target.st_mode);
  if (bFolder && (dwFlagsAndAttributes & FILE_FLAG_BACKUP_SEMANTICS) == 0) return fail(ERROR_ACCESS_DENIED);
  if (bExisted && !bFolder && (dwDesiredAccess & GENERIC_WRITE) != 0 && (target.st_mode & S_IWUSR) == 0)
    return fail(ERROR_ACCESS_DENIED);
  bExisted = bExisted || bLink;

  int nFlags = O_CLOEXEC | (bFolder || (dwDesiredAccess & GENERIC_WRITE) == 0 ? O_RDONLY : O_RDWR);
  switch (dwCreationDisposition) {
    case CREATE_NEW: nFlags |= O_CREAT | O_EXCL; break;
    case CREATE_ALWAYS:
    case OPEN_ALWAYS: nFlags |= O_CREAT; break;
    case OPEN_EXISTING: break;
    default: Unsupported("CreateFileW with this disposition");
  }
  if (bLink) nFlags = O_CLOEXEC | O_PATH | O_NOFOLLOW;
  if (bExisted && !Compatible(path.strHost, dwDesiredAccess, dwShareMode)) return fail(ERROR_SHARING_VIOLATION);
  const int nFile = open(path.strHost.c_str(), nFlags, 0666);
  if (nFile < 0) return fail(errno == ENOENT ? NotFound(path.strHost) : FromErrno(errno));
  if (!bFolder && !bLink && HeldElsewhere(nFile, dwShareMode)) {
    close(nFile);
    return fail(ERROR_SHARING_VIOLATION);
  }
  if (dwCreationDisposition == CREATE_ALWAYS && ftruncate(nFile, 0) != 0) Unsupported("truncating a host file");
  if (!bExisted) {
    StampWithClock(path.strHost);
    StampWithClock(ParentOf(path.strHost));
  }
  auto pFile = std::make_shared<File>(nFile, dwDesiredAccess, dwShareMode, path.strHost);
  if ((dwFlagsAndAttributes & FILE_FLAG_DELETE_ON_CLOSE) != 0) pFile->strDeleteAtClose = HostPathOf(*pFile);
  OpenFiles().insert(pFile.get());
  SetLastError(bExisted && dwCreationDisposition != OPEN_EXISTING ? ERROR_ALREADY_EXISTS : ERROR_SUCCESS);
  return NewHandle(std::move(pFile));
}

BOOL WINAPI ReadFile(HANDLE hFile, LPVOID lpBuffer, DWORD nNumberOfBytesToRead, LPDWORD lpNumberOfBytesRead, LPVOID) {
  PlatformCall();
  *lpNumberOfBytesRead = 0;
  if (FaultHere("ReadFile", ERROR_GEN_FAILURE)) return FALSE;
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
  const off_t n = lseek(HostFile(hFile), lDistanceToMove, nWhence);
  if (n < 0) {
    SetLastError(ERROR_INVALID_HANDLE);
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
  lpFileSize->QuadPart = status.st_size;
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

BOOL WINAPI DeleteFileW(LPCWSTR lpFileName) {
  PlatformCall();
  if (FaultHere("DeleteFileW", ERROR_ACCESS_DENIED)) return FALSE;
  const MappedPath path = MapPath(lpFileName);
  if (path.dwError != ERROR_SUCCESS) return Fails(path.dwError);
  if (IsFolder(path.strHost) || IsReadOnly(path.strHost)) return Fails(ERROR_ACCESS_DENIED);
  if (!FreeToGo(path.strHost)) return Fails(ERROR_SHARING_VIOLATION);
  if (unlink(path.strHost.c_str()) != 0) return Fails(FromErrno(errno));
  StampWithClock(ParentOf(path.strHost));
  return TRUE;
}

BOOL WINAPI MoveFileW(LPCWSTR lpExistingFileName, LPCWSTR lpNewFileName) {
  PlatformCall();
  if (FaultHere("MoveFileW", ERROR_ACCESS_DENIED)) return FALSE;
  const MappedPath from = MapPath(lpExistingFileName);
  const MappedPath to = MapPath(lpNewFileName);
  if (from.dwError != ERROR_SUCCESS) return Fails(from.dwError);
  if (to.dwError != ERROR_SUCCESS) return Fails(to.dwError);
  if (!FreeToGo(from.strHost)) return Fails(IsFolder(from.strHost) ? ERROR_ACCESS_DENIED : ERROR_SHARING_VIOLATION);
  if (access(to.strHost.c_str(), F_OK) == 0) return Fails(ERROR_ALREADY_EXISTS);
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
  std::lock_guard<std::mutex> lock(g_openMutex);
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
  if (path.dwError != ERROR_SUCCESS) return Fails(path.dwError);
  const bool bLink = path.bThere && S_ISLNK(path.status.st_mode);
  if (!FreeToGo(path.strHost)) return Fails(ERROR_SHARING_VIOLATION);
  if ((bLink ? unlink(path.strHost.c_str()) : rmdir(path.strHost.c_str())) != 0) return Fails(FromErrno(errno));
  StampWithClock(ParentOf(path.strHost));
  return TRUE;
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
