// Listing of folders.
#include "files.h"

#include <dirent.h>
#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>

namespace w32 {
namespace {

struct Find {
  std::vector<WIN32_FIND_DATAW> entries;
  std::size_t nNext = 0;
};

bool Matches(const char* pszPattern, const char* pszName) {
  if (std::strcmp(pszPattern, "*.*") == 0) return true;
  for (; *pszPattern != 0; ++pszPattern, ++pszName) {
    if (*pszPattern == '*') {
      for (;; ++pszName) {
        if (Matches(pszPattern + 1, pszName)) return true;
        if (*pszName == 0) return false;
      }
    }
    if (*pszName == 0) return false;
    if (*pszPattern != '?' && strncasecmp(pszPattern, pszName, 1) != 0) return false;
  }
  return *pszName == 0;
}

bool Describe(const std::string& strFolder, const std::string& strName, WIN32_FIND_DATAW& data) {
  struct stat status {};
  const std::string strPath = strFolder + "/" + strName;
  // A link that leads nowhere is an entry all the same.
  if (stat(strPath.c_str(), &status) != 0 && lstat(strPath.c_str(), &status) != 0) return false;
  data = {};
  data.dwFileAttributes = S_ISDIR(status.st_mode)           ? FILE_ATTRIBUTE_DIRECTORY
                          : (status.st_mode & S_IWUSR) == 0 ? FILE_ATTRIBUTE_READONLY
                                                            : FILE_ATTRIBUTE_NORMAL;
  struct stat link {};
  if (lstat(strPath.c_str(), &link) == 0 && S_ISLNK(link.st_mode))
    data.dwReserved0 = 0xA000000Cu;  // a symbolic link's tag
  else
    data.dwReserved0 = ReparseTagOf(IdOf(status));
  if (data.dwReserved0 != 0) data.dwFileAttributes |= FILE_ATTRIBUTE_REPARSE_POINT;
  data.ftLastWriteTime = FileTimeOf(status.st_mtim);
  data.nFileSizeLow = static_cast<DWORD>(status.st_size);
  const std::u16string strWide = FromUtf8(strName);
  if (strWide.size() >= MAX_PATH) return false;
  for (std::size_t n = 0; n < strWide.size(); ++n) data.cFileName[n] = static_cast<wchar_t>(strWide[n]);
  return true;
}

}  // namespace
}  // namespace w32

using namespace w32;

extern "C" {

HANDLE WINAPI FindFirstFileW(LPCWSTR lpFileName, LPWIN32_FIND_DATAW lpFindFileData) {
  PlatformCall();
  if (FaultHere("FindFirstFileW", ERROR_ACCESS_DENIED)) return INVALID_HANDLE_VALUE;
  const MappedPath path = MapPath(lpFileName);  // the wildcards make the last name an impossible one: that is expected
  const std::size_t nCut = path.strHost.rfind('/');
  DIR* pFolder = nCut == std::string::npos ? nullptr : opendir(path.strHost.substr(0, nCut).c_str());
  if (pFolder == nullptr) {
    SetLastError(ERROR_PATH_NOT_FOUND);
    return INVALID_HANDLE_VALUE;
  }
  const std::string strFolder = path.strHost.substr(0, nCut);
  // Trailing dots and stars are part of the pattern, so it is taken from the path as given.
  std::string strPattern = ToUtf8(lpFileName);
  strPattern = strPattern.substr(strPattern.find_last_of("\\/") + 1);
  std::vector<std::string> names;
  while (const dirent* pEntry = readdir(pFolder))
    if (Matches(strPattern.c_str(), pEntry->d_name)) names.emplace_back(pEntry->d_name);
  closedir(pFolder);
  std::sort(names.begin(), names.end(), [](const std::string& strLeft, const std::string& strRight) {
    return strcasecmp(strLeft.c_str(), strRight.c_str()) < 0;  // as the volume keeps them
  });

  auto* pFind = new Find;
  for (const std::string& strName : names) {
    WIN32_FIND_DATAW data;
    if (Describe(strFolder, strName, data)) pFind->entries.push_back(data);
  }
  if (pFind->entries.empty()) {
    delete pFind;
    SetLastError(ERROR_FILE_NOT_FOUND);
    return INVALID_HANDLE_VALUE;
  }
  *lpFindFileData = pFind->entries[pFind->nNext++];
  Book(Account::Finds, 1);
  return pFind;
}

BOOL WINAPI FindNextFileW(HANDLE hFindFile, LPWIN32_FIND_DATAW lpFindFileData) {
  PlatformCall();
  auto* pFind = static_cast<Find*>(hFindFile);
  if (pFind->nNext >= pFind->entries.size()) {
    SetLastError(ERROR_NO_MORE_FILES);
    return FALSE;
  }
  if (FaultHere("FindNextFileW", ERROR_ACCESS_DENIED)) return FALSE;
  *lpFindFileData = pFind->entries[pFind->nNext++];
  return TRUE;
}

BOOL WINAPI FindClose(HANDLE hFindFile) {
  PlatformCall();
  Book(Account::Finds, -1);
  delete static_cast<Find*>(hFindFile);
  return TRUE;
}

}  // extern "C"
