// What a handle tells of its file or folder, and what can be done to it by handle; links.
#include "files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <filesystem>
#include <functional>

namespace w32 {

std::string HostPathOf(const File& file) {
  char szPath[PATH_MAX];
  const ssize_t n = readlink(("/proc/self/fd/" + std::to_string(file.nFile)).c_str(), szPath, sizeof szPath);
  std::string strPath(szPath, n > 0 ? static_cast<std::size_t>(n) : 0);
  constexpr char kGone[] = " (deleted)";  // the host's own remark
  if (strPath.ends_with(kGone)) strPath.resize(strPath.size() - (sizeof kGone - 1));
  return strPath;
}

// The folder itself waits beside the drives, so that handles to it stay what they are; the two change places in one step.
static std::string TurnedFolder(const std::string& strHostPath) {
  return SandboxRoot() + "/turned" + std::to_string(std::hash<std::string>()(strHostPath));
}

static void ChangePlaces(const std::string& strHostPath, const std::string& strOther) {
  if (renameat2(AT_FDCWD, strHostPath.c_str(), AT_FDCWD, strOther.c_str(), RENAME_EXCHANGE) != 0)
    Unsupported("a host that cannot exchange two names");
}

bool TurnIntoLink(const wchar_t* pszFolder, const wchar_t* pszTarget) {
  PlatformCall();
  const LayerLock lock(g_openMutex);
  const std::string strHost = HostPath(pszFolder);
  struct stat status {};
  if (lstat(strHost.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) || !IsEmptyFolder(strHost)) return false;
  if (symlink(HostPath(pszTarget).c_str(), TurnedFolder(strHost).c_str()) != 0) return false;
  ChangePlaces(strHost, TurnedFolder(strHost));
  return true;
}

void TurnIntoFolder(const wchar_t* pszLink) {
  PlatformCall();
  const std::string strHost = HostPath(pszLink);
  struct stat status {};
  if (lstat(strHost.c_str(), &status) == 0 && S_ISLNK(status.st_mode)) ChangePlaces(strHost, TurnedFolder(strHost));
  std::error_code ignored;
  std::filesystem::remove(TurnedFolder(strHost), ignored);
}

}  // namespace w32

using namespace w32;

namespace {

// The names of the sandbox's drives begin behind it.
const std::string& RealRoot() {
  static std::mutex mutex;
  static auto* pKnown = new std::map<std::string, std::string>;  // by the sandbox: it may move
  const LayerLock lock(mutex);
  std::string& strReal = (*pKnown)[SandboxRoot()];
  char szPath[PATH_MAX];
  if (strReal.empty()) strReal = realpath(SandboxRoot().c_str(), szPath) != nullptr ? szPath : SandboxRoot();
  return strReal;
}

DWORD AttributesOf(const File& file, const struct stat& status) {
  struct stat target {};
  if (S_ISLNK(status.st_mode)) {
    const bool bToFolder = stat(HostPathOf(file).c_str(), &target) == 0 && S_ISDIR(target.st_mode);
    return FILE_ATTRIBUTE_REPARSE_POINT | (bToFolder ? FILE_ATTRIBUTE_DIRECTORY : 0u);
  }
  const DWORD dwReparse = ReparseTagOf(file.id) != 0 ? FILE_ATTRIBUTE_REPARSE_POINT : 0u;
  if (S_ISDIR(status.st_mode)) return FILE_ATTRIBUTE_DIRECTORY | dwReparse;
  if ((status.st_mode & S_IWUSR) == 0) return FILE_ATTRIBUTE_READONLY | dwReparse;
  return dwReparse != 0 ? dwReparse : FILE_ATTRIBUTE_NORMAL;
}

bool ParentIsFolder(const std::string& strPath) {
  struct stat status {};
  return stat(strPath.substr(0, strPath.rfind('/')).c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

BOOL Rename(const File& file, const FILE_RENAME_INFO& info) {
  if (info.ReplaceIfExists || info.RootDirectory != nullptr) Unsupported("this kind of rename by handle");
  std::u16string strName(info.FileNameLength / sizeof(wchar_t), u'\0');
  std::memcpy(strName.data(), info.FileName, info.FileNameLength);
  const MappedPath to = MapPath(reinterpret_cast<const wchar_t*>(strName.c_str()));
  if (to.dwError != ERROR_SUCCESS) return Fails(to.dwError);
  if (!ParentIsFolder(to.strHost)) return Fails(ERROR_PATH_NOT_FOUND);
  if (to.bThere && IdOf(to.status) != file.id) return Fails(ERROR_ALREADY_EXISTS);
  if (rename(HostPathOf(file).c_str(), to.strHost.c_str()) != 0) return Fails(ERROR_ACCESS_DENIED);
  return TRUE;
}

// Its name goes with the last handle, or, the way POSIX does it, with this one.
BOOL MarkForDeletion(File& file, bool bPosix) {
  struct stat status {};
  if (fstat(file.nFile, &status) != 0) return Fails(ERROR_INVALID_HANDLE);
  if (S_ISREG(status.st_mode) && (status.st_mode & S_IWUSR) == 0) return Fails(ERROR_ACCESS_DENIED);
  if (S_ISDIR(status.st_mode) && !IsEmptyFolder(HostPathOf(file))) return Fails(ERROR_DIR_NOT_EMPTY);
  if (bPosix) {
    file.bDeleteAtClose = true;
  } else {
    MarkDeleted(file.id);
  }
  return TRUE;
}

}  // namespace

extern "C" {

BOOL WINAPI GetFileInformationByHandle(HANDLE hFile, LPBY_HANDLE_FILE_INFORMATION lpFileInformation) {
  PlatformCall();
  if (FaultHere("GetFileInformationByHandle", ERROR_GEN_FAILURE)) return FALSE;
  const auto pFile = FindObject<File>(hFile);
  struct stat status {};
  if (!pFile || fstat(pFile->nFile, &status) != 0) return Fails(ERROR_INVALID_HANDLE);
  *lpFileInformation = {};
  lpFileInformation->dwFileAttributes = AttributesOf(*pFile, status);
  lpFileInformation->ftLastWriteTime = FileTimeOf(status.st_mtim);
  lpFileInformation->dwVolumeSerialNumber = 0x1234;
  lpFileInformation->nFileSizeHigh = static_cast<DWORD>(static_cast<std::uint64_t>(status.st_size) >> 32);
  lpFileInformation->nFileSizeLow = static_cast<DWORD>(status.st_size);
  lpFileInformation->nNumberOfLinks = S_ISDIR(status.st_mode) ? 1 : static_cast<DWORD>(status.st_nlink);
  lpFileInformation->nFileIndexHigh = static_cast<DWORD>(static_cast<std::uint64_t>(status.st_ino) >> 32);
  lpFileInformation->nFileIndexLow = static_cast<DWORD>(status.st_ino);
  return TRUE;
}

DWORD WINAPI GetFinalPathNameByHandleW(HANDLE hFile, LPWSTR lpszFilePath, DWORD cchFilePath, DWORD dwFlags) {
  if ((dwFlags & ~FILE_NAME_OPENED) != VOLUME_NAME_NONE) Unsupported("a final path with its volume");
  PlatformCall();
  if (dwFlags == VOLUME_NAME_NONE && NormalizedNamesAreRefused()) return static_cast<DWORD>(Fails(ERROR_NOT_SUPPORTED));
  if (FaultHere("GetFinalPathNameByHandleW", ERROR_ACCESS_DENIED)) return 0;
  const auto pFile = FindObject<File>(hFile);
  if (!pFile) return static_cast<DWORD>(Fails(ERROR_INVALID_HANDLE));
  const std::string strHost = HostPathOf(*pFile);
  std::string strPath = strHost;
  // The sandbox's drives are "volumes"; what a link led out of it keeps its host path, which is none of them.
  const std::string strRoot = RealRoot() + "/";
  if (strHost.starts_with(strRoot)) strPath = strHost.substr(std::min(strRoot.size() + 1, strHost.size()));
  if (strPath.empty()) strPath.push_back('/');
  for (char& c : strPath)
    if (c == '/') c = '\\';
  const std::u16string strWide = FromUtf8(strPath);
  if (strWide.size() >= cchFilePath) return static_cast<DWORD>(strWide.size() + 1);
  std::memcpy(lpszFilePath, strWide.c_str(), (strWide.size() + 1) * sizeof(wchar_t));
  return static_cast<DWORD>(strWide.size());
}

BOOL WINAPI GetFileInformationByHandleEx(HANDLE hFile, FILE_INFO_BY_HANDLE_CLASS FileInformationClass,
                                         LPVOID lpFileInformation, DWORD) {
  PlatformCall();
  if (FaultHere("GetFileInformationByHandleEx", ERROR_GEN_FAILURE)) return FALSE;
  const auto pFile = FindObject<File>(hFile);
  struct stat status {};
  if (!pFile || fstat(pFile->nFile, &status) != 0) return Fails(ERROR_INVALID_HANDLE);
  switch (FileInformationClass) {
    case FileBasicInfo: {
      auto* pInfo = static_cast<FILE_BASIC_INFO*>(lpFileInformation);
      *pInfo = {};
      pInfo->FileAttributes = AttributesOf(*pFile, status);
      return TRUE;
    }
    case FileStandardInfo: {
      auto* pInfo = static_cast<FILE_STANDARD_INFO*>(lpFileInformation);
      *pInfo = {};
      pInfo->EndOfFile.QuadPart = status.st_size;
      pInfo->NumberOfLinks = S_ISDIR(status.st_mode) ? 1 : static_cast<DWORD>(status.st_nlink);
      pInfo->Directory = S_ISDIR(status.st_mode);
      return TRUE;
    }
    case FileAttributeTagInfo: {
      auto* pInfo = static_cast<FILE_ATTRIBUTE_TAG_INFO*>(lpFileInformation);
      pInfo->FileAttributes = AttributesOf(*pFile, status);
      pInfo->ReparseTag = S_ISLNK(status.st_mode) ? 0xA000000Cu : ReparseTagOf(pFile->id);
      return TRUE;
    }
    default: Unsupported("this information by handle");
  }
}

BOOL WINAPI SetFileInformationByHandle(HANDLE hFile, FILE_INFO_BY_HANDLE_CLASS FileInformationClass,
                                       LPVOID lpFileInformation, DWORD) {
  PlatformCall();
  if (FaultHere("SetFileInformationByHandle", ERROR_ACCESS_DENIED)) return FALSE;
  const auto pFile = FindObject<File>(hFile);
  if (!pFile) return Fails(ERROR_INVALID_HANDLE);
  if ((pFile->dwAccess & DELETE) == 0) return Fails(ERROR_ACCESS_DENIED);
  switch (FileInformationClass) {
    case FileRenameInfo: return Rename(*pFile, *static_cast<FILE_RENAME_INFO*>(lpFileInformation));
    case FileDispositionInfo:
      if (!static_cast<FILE_DISPOSITION_INFO*>(lpFileInformation)->DeleteFile) Unsupported("taking a deletion back");
      return MarkForDeletion(*pFile, false);
    case FileDispositionInfoEx:
      if (*static_cast<DWORD*>(lpFileInformation) != 0x3) Unsupported("these flags of a deletion");
      return MarkForDeletion(*pFile, true);
    default: break;
  }
  Unsupported("this information by handle");
}

BOOLEAN WINAPI CreateSymbolicLinkW(LPCWSTR lpSymlinkFileName, LPCWSTR lpTargetFileName, DWORD) {
  PlatformCall();
  const MappedPath link = MapPath(lpSymlinkFileName);
  const MappedPath target = MapPath(lpTargetFileName);
  if (link.dwError != ERROR_SUCCESS || target.dwError != ERROR_SUCCESS)
    return static_cast<BOOLEAN>(Fails(ERROR_INVALID_NAME));
  if (symlink(target.strHost.c_str(), link.strHost.c_str()) == 0) return TRUE;
  return static_cast<BOOLEAN>(Fails(errno == EEXIST ? ERROR_ALREADY_EXISTS : ERROR_PATH_NOT_FOUND));
}

BOOL WINAPI CreateHardLinkW(LPCWSTR lpFileName, LPCWSTR lpExistingFileName, LPSECURITY_ATTRIBUTES) {
  PlatformCall();
  const MappedPath from = MapPath(lpExistingFileName);
  const MappedPath to = MapPath(lpFileName);
  if (from.dwError != ERROR_SUCCESS) return Fails(from.dwError);
  if (!from.bThere) return Fails(ParentIsFolder(from.strHost) ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND);
  if (to.dwError != ERROR_SUCCESS) return Fails(to.dwError);
  if (!ParentIsFolder(to.strHost)) return Fails(ERROR_PATH_NOT_FOUND);
  if (S_ISDIR(from.status.st_mode)) return Fails(ERROR_ACCESS_DENIED);
  if (to.bThere) return Fails(ERROR_ALREADY_EXISTS);
  if (link(from.strHost.c_str(), to.strHost.c_str()) == 0) return TRUE;
  return Fails(ERROR_PATH_NOT_FOUND);
}

}  // extern "C"
