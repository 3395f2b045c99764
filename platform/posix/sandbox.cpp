// Where the drives lie on the host, and how a Windows path becomes a host path.
#include "files.h"

#include <dirent.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace w32 {
namespace {

constexpr const char* kCurrentFolder = "c:\\Windows\\System32";
constexpr std::uint64_t kUnixEpoch = 116'444'736'000'000'000ULL;  // 1 January 1970 in ticks since 1601
constexpr std::int64_t kTicksPerSecond = 1000 * kTicksPerMs;
constexpr std::int64_t kNanosecondsPerTick = 100;
pid_t g_nOwner = 0;

void RemoveSandbox() {
  if (getpid() != g_nOwner) return;  // a forked child leaves it to its parent
  std::error_code ignored;
  std::filesystem::remove_all(SandboxRoot(), ignored);
}

std::string MakeRoot() {
  std::string strRoot;
  if (const char* pszRoot = std::getenv("W32_ROOT"); pszRoot != nullptr && *pszRoot != 0) {
    strRoot = pszRoot;
  } else {
    const char* pszTemp = std::getenv("TMPDIR");
    strRoot = std::string(pszTemp != nullptr ? pszTemp : "/tmp") + "/w32-XXXXXX";
    if (mkdtemp(strRoot.data()) == nullptr) Unsupported("a host without a temporary folder");
    setenv("W32_ROOT", strRoot.c_str(), 1);  // processes started by this one share the sandbox
    g_nOwner = getpid();
    std::atexit(RemoveSandbox);
  }
  std::error_code ignored;
  for (const char* pszFolder : {"/c/ProgramData", "/c/Windows/System32", "/d"})
    std::filesystem::create_directories(strRoot + pszFolder, ignored);
  return strRoot;
}

bool SameName(const std::string& strLeft, const char* pszRight) { return strcasecmp(strLeft.c_str(), pszRight) == 0; }

// The entry of a host folder that has this name but for case, or the name as it stands.
std::string Resolve(const std::string& strFolder, const std::string& strName) {
  struct stat status {};
  if (lstat((strFolder + "/" + strName).c_str(), &status) == 0) return strName;
  std::string strFound = strName;
  if (DIR* pFolder = opendir(strFolder.c_str())) {
    while (const dirent* pEntry = readdir(pFolder))
      if (SameName(strName, pEntry->d_name)) strFound = pEntry->d_name;
    closedir(pFolder);
  }
  return strFound;
}

// Most paths name something that is there, in the very case: one look tells. strPath: with its drive.
bool IsThereAsWritten(const std::string& strPath, const std::string& strDriveFolder, MappedPath& mapped) {
  std::string strHost(strDriveFolder.size() + strPath.size(), '\0');
  char* pTo = std::copy(strDriveFolder.begin(), strDriveFolder.end(), strHost.data());
  char cBefore = 0;
  const auto isCut = [](char c) { return c == '.' || c == ' '; };  // a name loses these at its end; ".." is none
  for (const char *p = strPath.c_str() + 2, *pEnd = strPath.c_str() + strPath.size(); p < pEnd; ++p) {
    if (*p == '\\' && (cBefore == '\\' || isCut(cBefore))) return false;
    cBefore = *p;
    *pTo++ = *p == '\\' ? '/' : *p;
  }
  if (isCut(cBefore)) return false;
  if (cBefore == '\\') --pTo;
  strHost.resize(static_cast<std::size_t>(pTo - strHost.data()));
  if (lstat(strHost.c_str(), &mapped.status) != 0) return false;
  mapped.strHost = std::move(strHost);
  return mapped.bThere = true;
}

}  // namespace

static std::string& Root() {
  static auto* pRoot = new std::string(MakeRoot());
  return *pRoot;
}

const std::string& SandboxRoot() { return Root(); }
void UseSandbox(const std::string& strRoot) { Root() = strRoot; }

void DropSandbox() { RemoveSandbox(); }

std::u16string FullPath(const wchar_t* pszPath) {
  std::string strPath = ToUtf8(pszPath);
  if (strPath.empty()) return {};
  for (char& c : strPath)
    if (c == '/') c = '\\';
  const bool bShare = strPath.starts_with("\\\\");
  if (!bShare) {
    if (strPath[0] == '\\') strPath = std::string("C:").append(strPath);
    if (strPath.size() < 2 || strPath[1] != ':') strPath = std::string(kCurrentFolder) + "\\" + strPath;
  }
  const std::size_t nRoot = bShare ? 2 : 3;
  std::string strFull = strPath.substr(0, nRoot);
  for (std::size_t nStart = nRoot; nStart <= strPath.size();) {
    const std::size_t nEnd = std::min(strPath.find('\\', nStart), strPath.size());
    std::string strName = strPath.substr(nStart, nEnd - nStart);
    const bool bLast = nEnd == strPath.size();
    nStart = nEnd + 1;
    if (strName == "..") {
      if (strFull.size() > nRoot) strFull.resize(std::max(nRoot, strFull.rfind('\\')));
      continue;
    }
    if (bLast && strName.empty() && strFull.size() > nRoot) strFull += '\\';  // a backslash at the end stays
    while (!strName.empty() && strName != "." && (strName.back() == '.' || strName.back() == ' ')) strName.pop_back();
    if (strName.empty() || strName == ".") continue;
    if (strFull.size() > nRoot) strFull += '\\';
    strFull += strName;
  }
  return FromUtf8(strFull);
}

MappedPath MapPath(const wchar_t* pszPath) {
  MappedPath mapped;
  std::string strPath = ToUtf8(pszPath);
  if (strPath.empty()) return {"", ERROR_PATH_NOT_FOUND};
  if (wcslen(pszPath) >= MAX_PATH) return {"", ERROR_PATH_NOT_FOUND};
  for (char& c : strPath)
    if (c == '/') c = '\\';
  if (strPath.starts_with("\\\\")) return {"", ERROR_BAD_NETPATH};
  if (strPath[0] == '\\') strPath = std::string("c:").append(strPath);
  if (strPath.size() < 2 || strPath[1] != ':') strPath = std::string(kCurrentFolder) + "\\" + strPath;
  if (strPath.size() > 2 && strPath[2] != '\\') Unsupported("a path relative to a drive's current folder");

  const char cDrive = static_cast<char>(strPath[0] | 0x20);
  if (cDrive < 'a' || cDrive > 'z') return {"", ERROR_INVALID_NAME};
  std::string strHost = SandboxRoot() + "/" + cDrive;
  const std::size_t nRoot = strHost.size();
  if (IsThereAsWritten(strPath, strHost, mapped)) return mapped;
  if (stat(strHost.c_str(), &mapped.status) != 0) return {strHost, ERROR_PATH_NOT_FOUND};
  for (std::size_t nStart = 3; nStart < strPath.size();) {
    std::size_t nEnd = strPath.find('\\', nStart);
    if (nEnd == std::string::npos) nEnd = strPath.size();
    std::string strName = strPath.substr(nStart, nEnd - nStart);
    nStart = nEnd + 1;
    if (strName.empty() || strName == ".") continue;
    if (strName == "..") {
      if (strHost.size() > nRoot) strHost.resize(strHost.rfind('/'));
      continue;
    }
    if (strName.find_first_of("<>:\"|?*") != std::string::npos) mapped.dwError = ERROR_INVALID_NAME;
    while (!strName.empty() && (strName.back() == '.' || strName.back() == ' ')) strName.pop_back();
    if (strName.empty() || strName.size() > 255) return {"", ERROR_INVALID_NAME};
    const std::string strEntry = Resolve(strHost, strName);
    strHost.append("/").append(strEntry);
  }
  mapped.bThere = lstat(strHost.c_str(), &mapped.status) == 0;
  mapped.strHost = std::move(strHost);
  return mapped;
}

std::string HostPath(const wchar_t* pszPath) { return MapPath(pszPath).strHost; }

std::u16string FromUtf8(const std::string& strText) {
  std::u16string str;
  str.reserve(strText.size());
  for (std::size_t n = 0; n < strText.size();) {
    const auto by = static_cast<unsigned char>(strText[n]);
    const std::size_t nLength = by < 0x80 ? 1 : by < 0xE0 ? 2 : by < 0xF0 ? 3 : 4;
    std::uint32_t nCode = nLength == 1 ? by : by & (0xFFu >> (nLength + 1));
    for (std::size_t i = 1; i < nLength && n + i < strText.size(); ++i)
      nCode = (nCode << 6) | (static_cast<unsigned char>(strText[n + i]) & 0x3F);
    if (nCode >= 0x10000) {
      str += static_cast<char16_t>(0xD800 + ((nCode - 0x10000) >> 10));
      str += static_cast<char16_t>(0xDC00 + ((nCode - 0x10000) & 0x3FF));
    } else {
      str += static_cast<char16_t>(nCode);
    }
    n += nLength;
  }
  return str;
}

std::array<timespec, 2> HostStamp(std::uint64_t ullTicks) {
  const auto llTicks = static_cast<std::int64_t>(ullTicks - kUnixEpoch);
  const timespec stamp{llTicks / kTicksPerSecond, llTicks % kTicksPerSecond * kNanosecondsPerTick};
  return {stamp, stamp};
}

FILETIME FileTimeOf(const timespec& time) {
  const auto ullTicks =
      static_cast<std::uint64_t>(time.tv_sec * kTicksPerSecond + time.tv_nsec / kNanosecondsPerTick) + kUnixEpoch;
  return {static_cast<DWORD>(ullTicks), static_cast<DWORD>(ullTicks >> 32)};
}

void StampWithClock(const std::string& strHostPath) {
  utimensat(AT_FDCWD, strHostPath.c_str(), HostStamp(ClockTicks()).data(), 0);
}

void StampWithClock(int nHostFile) { futimens(nHostFile, HostStamp(ClockTicks()).data()); }

}  // namespace w32
