#include "log/log_folder.h"

#include <shlobj.h>
#include <shlwapi.h>

#include <cstring>

#include "base/folder_access.h"
#include "base/memory.h"
#include "base/owners.h"
#include "base/retention.h"
#include "base/text.h"
#include "log/log.h"
#include "log/log_stream.h"

namespace {

DWORD PackedDate(const SYSTEMTIME& st) noexcept {
  return static_cast<DWORD>(st.wYear) << 16 | static_cast<DWORD>(st.wMonth) << 8 | st.wDay;
}

// The folder name of a valid module pair, or null.
const char* FolderNameOf(const char* pszModule) noexcept {
  if (pszModule == nullptr || *pszModule == 0) return nullptr;
  const char* pszFolder = pszModule + std::strlen(pszModule) + 1;
  const std::size_t cch = strnlen(pszFolder, 17);
  return cch >= 1 && cch <= 16 ? pszFolder : nullptr;
}

// Whether a file may be deleted as one of ours: nobody has it open and it begins with the header's first word.
bool IsIdleLogFile(const wchar_t* pszPath) noexcept {
  const UniqueHandle hFile(
      CreateFileW(pszPath, GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (hFile.get() == INVALID_HANDLE_VALUE) return false;
  constexpr char kFirstWord[] = "Kelvane ";
  char szHead[256] = {};
  DWORD cbRead = 0;
  if (!ReadFile(hFile.get(), szHead, sizeof kLogHeader - 1, &cbRead, nullptr)) return false;
  return std::memcmp(szHead, kFirstWord, sizeof kFirstWord - 1) == 0;
}

}  // namespace

void MakeDayFileName(LogPath& file, const LogPath& folder, const SYSTEMTIME& st) noexcept {
  FormatWide(file.wsz, L"%s\\%04d%02d%02d.log", folder.wsz, st.wYear, st.wMonth, st.wDay);
}

CLogfile::CLogfile() noexcept {
  InitializeCriticalSection(&m_csFolder);
  CreateBaseFolder();
}

void CLogfile::CreateBaseFolder() noexcept {
  wchar_t wszData[MAX_PATH] = {};
  if (!SHGetSpecialFolderPathW(nullptr, wszData, CSIDL_COMMON_APPDATA, FALSE)) return;
  FormatWide(m_wszBaseFolder, L"%s\\Kelvane", wszData);
  if (!PathIsDirectoryW(m_wszBaseFolder) && !CreateDirectoryW(m_wszBaseFolder, nullptr)) return;
  FormatWide(m_wszBaseFolder, L"%s\\Kelvane\\Logs", wszData);
  for (int nAttempt = 0; nAttempt < 2 && !PathIsDirectoryW(m_wszBaseFolder); ++nAttempt)
    CreateDirectoryW(m_wszBaseFolder, nullptr);
}

void CLogfile::SetModuleFolder(const char* pszModule) noexcept {
  const SectionLock lock(m_csFolder);
  ChooseFolder(pszModule);
}

void CLogfile::ChooseFolder(const char* pszModule) noexcept {
  if (m_state == FolderState::Chosen) return;
  const char* pszFolder = FolderNameOf(pszModule);
  if (pszFolder == nullptr) {
    if (m_state == FolderState::None) FormatWide(m_moduleFolder.wsz, L"%s\\Undefined", m_wszBaseFolder);
    m_state = FolderState::Undefined;
    return;
  }
  wchar_t wszFolder[17] = {};
  MultiByteToWideChar(CP_ACP, 0, pszFolder, -1, wszFolder, 17);
  FormatWide(m_moduleFolder.wsz, L"%s\\%s", m_wszBaseFolder, wszFolder);
  if (m_state == FolderState::None) std::memcpy(m_szModuleTag, pszModule, strnlen(pszModule, sizeof m_szModuleTag - 1));
  m_state = FolderState::Chosen;
}

bool CLogfile::CreateLogFolder(const char* pszModule, LogPath& folder) noexcept {
  if (!PathIsDirectoryW(m_wszBaseFolder)) {
    Assert(".\\Logfile", "CLogfile::CreateLogFolder", 143, GetLastError());
    return false;
  }
  const SectionLock lock(m_csFolder);
  ChooseFolder(pszModule);
  folder = m_moduleFolder;
  if (PathIsDirectoryW(folder.wsz)) return true;
  if (*folder.wsz != 0) CreateDirectoryW(folder.wsz, nullptr);
  if (!PathIsDirectoryW(folder.wsz)) {
    m_moduleFolder.wsz[0] = 0;
    return false;
  }
  GrantUsersFullAccess(folder.wsz);
  return true;
}

void CLogfile::MakeRenameName(LogPath& file, const LogPath& folder, const SYSTEMTIME& st) noexcept {
  wchar_t wszName[260];
  FormatWide(wszName, L"%s\\%04d%02d%02d_%02d%02d%02d(%03d).log", folder.wsz, st.wYear, st.wMonth, st.wDay, st.wHour,
             st.wMinute, st.wSecond, st.wMilliseconds);
  std::memcpy(file.wsz, wszName, sizeof wszName);
}

void CLogfile::NoteLineTime(const SYSTEMTIME& st) noexcept {
  m_ullLine.store(static_cast<std::uint64_t>(PackedDate(st)) << 32 | FileTimeHigh(st), std::memory_order_relaxed);
}

void CLogfile::PurgeOldLogs(LONG nLifeDays) noexcept {
  if (m_nLastPurgeLifeDays.load(std::memory_order_relaxed) != nLifeDays) {
    m_dwLastPurge.store(0, std::memory_order_relaxed);
    m_nLastPurgeLifeDays.store(nLifeDays, std::memory_order_relaxed);
  }
  const std::uint64_t ullLine = m_ullLine.load(std::memory_order_relaxed);
  const auto dwLineDate = static_cast<DWORD>(ullLine >> 32);
  if (dwLineDate == m_dwLastPurge.load(std::memory_order_relaxed)) return;
  m_dwLastPurge.store(dwLineDate, std::memory_order_relaxed);

  LogPath folder;
  {
    const SectionLock lock(m_csFolder);
    folder = m_moduleFolder;
  }
  const std::size_t cchPath = wcslen(folder.wsz) + 128;
  const auto path = AllocBlock<wchar_t>(cchPath * sizeof(wchar_t));
  if (!path) return;
  const auto dwReference = static_cast<DWORD>(ullLine);
  const DWORD dwLimit = RetentionUnits(nLifeDays);

  FormatWide({path.get(), cchPath}, L"%s\\20*.log", folder.wsz);
  WIN32_FIND_DATAW entry;
  const UniqueFind hFind(FindFirstFileW(path.get(), &entry));
  if (hFind.get() == INVALID_HANDLE_VALUE) return;
  do {
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) continue;
    if (entry.ftLastWriteTime.dwHighDateTime + dwLimit >= dwReference) continue;
    if (!FormatWide({path.get(), cchPath}, L"%s\\%s", folder.wsz, entry.cFileName)) continue;
    if (IsIdleLogFile(path.get())) DeleteFileW(path.get());
  } while (FindNextFileW(hFind.get(), &entry));
}
