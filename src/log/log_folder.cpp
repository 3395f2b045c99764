#include "log/log_folder.h"

#include <shlobj.h>

#include <cstring>
#include <iterator>

#include "base/owners.h"
#include "base/retention.h"
#include "base/text.h"
#include "log/assert.h"

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

// Whether an open file is one of ours: it begins with the header's first word.
bool IsLogFile(HANDLE hFile) noexcept {
  constexpr char kFirstWord[] = "Kelvane ";
  char szHead[256] = {};
  DWORD cbRead = 0;
  if (!ReadFile(hFile, szHead, sizeof kLogHeader - 1, &cbRead, nullptr)) return false;
  return std::memcmp(szHead, kFirstWord, sizeof kFirstWord - 1) == 0;
}

}  // namespace

void MakeDayFileName(LogName& file, const SYSTEMTIME& st) noexcept {
  FormatWide(file.wsz, L"%04d%02d%02d.log", st.wYear, st.wMonth, st.wDay);
}

CLogfile::CLogfile() noexcept {
  InitializeCriticalSection(&m_csFolder);
  CreateBaseFolder();
}

void CLogfile::CreateBaseFolder() noexcept {
  if (!SHGetSpecialFolderPathW(nullptr, m_wszData, CSIDL_COMMON_APPDATA, FALSE)) {
    m_wszData[0] = 0;
    return;
  }
  m_bRootKnown = m_root.Resolve(m_wszData, wcslen(m_wszData));
  SafeFolder kelvane;
  if (!m_bRootKnown || kelvane.OpenOrMake(m_root, L"Kelvane") != SafeOpen::Opened) return;
  SafeFolder logs;
  for (int nAttempt = 0; nAttempt < 2 && logs.OpenOrMake(kelvane, L"Logs") == SafeOpen::Missing;) ++nAttempt;
}

SafeOpen CLogfile::OpenBaseFolder(LogFolder& folder) noexcept {
  if (*m_wszData == 0) return SafeOpen::Missing;
  if (!m_bRootKnown) m_bRootKnown = m_root.Resolve(m_wszData, wcslen(m_wszData));
  if (!m_bRootKnown) return SafeOpen::Missing;
  const SafeOpen kelvane = folder.kelvane.Open(m_root, L"Kelvane");
  return kelvane == SafeOpen::Opened ? folder.logs.Open(folder.kelvane, L"Logs") : kelvane;
}

void CLogfile::SetModuleFolder(const char* pszModule) noexcept {
  const SectionLock lock(m_csFolder);
  ChooseFolder(pszModule);
}

void CLogfile::ChooseFolder(const char* pszModule) noexcept {
  if (m_state == FolderState::Chosen) return;
  const char* pszFolder = FolderNameOf(pszModule);
  if (pszFolder == nullptr) {
    if (m_state == FolderState::None) CopyIfFits(m_wszModule, L"Undefined");
    m_state = FolderState::Undefined;
    return;
  }
  MultiByteToWideChar(CP_ACP, 0, pszFolder, -1, m_wszModule, static_cast<int>(std::size(m_wszModule)));
  if (m_state == FolderState::None) std::memcpy(m_szModuleTag, pszModule, strnlen(pszModule, sizeof m_szModuleTag - 1));
  m_state = FolderState::Chosen;
}

bool CLogfile::CreateLogFolder(const char* pszModule, LogFolder& folder) noexcept {
  const SectionLock lock(m_csFolder);
  const SafeOpen base = OpenBaseFolder(folder);
  if (base == SafeOpen::Missing) {
    Assert(".\\Logfile", "CLogfile::CreateLogFolder", 143, GetLastError());
    return false;
  }
  ChooseFolder(pszModule);
  if (base == SafeOpen::Refused) return true;
  const SafeOpen made =
      *m_wszModule != 0 ? folder.module.OpenOrMake(folder.logs, m_wszModule, true) : SafeOpen::Missing;
  if (made == SafeOpen::Missing) m_wszModule[0] = 0;
  return made == SafeOpen::Opened || made == SafeOpen::Refused;
}

bool CLogfile::MakeFilePath(PathText& path, const LogName& file) noexcept {
  const SectionLock lock(m_csFolder);
  const wchar_t* pszRoot = m_root.Path();
  return m_bRootKnown && *m_wszModule != 0 && path.Assign(pszRoot, wcslen(pszRoot)) && path.Append(L"Kelvane") &&
         path.Append(L"Logs") && path.Append(m_wszModule) && path.Append(file.wsz);
}

bool CLogfile::OpenModuleFolder(LogFolder& folder) noexcept {
  const SectionLock lock(m_csFolder);
  return *m_wszModule != 0 && OpenBaseFolder(folder) == SafeOpen::Opened &&
         folder.module.Open(folder.logs, m_wszModule) == SafeOpen::Opened;
}

void CLogfile::Rotate(const LogName& file, const SYSTEMTIME& st) noexcept {
  LogName renamed;
  FormatWide(renamed.wsz, L"%04d%02d%02d_%02d%02d%02d(%03d).log", st.wYear, st.wMonth, st.wDay, st.wHour, st.wMinute,
             st.wSecond, st.wMilliseconds);
  LogFolder folder;
  if (!OpenModuleFolder(folder)) return;
  const UniqueHandle hFile = folder.module.OpenFile(file.wsz, DELETE, false);
  if (hFile) folder.module.RenameFile(hFile.get(), renamed.wsz);
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

  LogFolder folder;
  if (!OpenModuleFolder(folder)) return;
  const auto dwReference = static_cast<DWORD>(ullLine);
  const DWORD dwLimit = RetentionUnits(nLifeDays);
  WIN32_FIND_DATAW entry;
  const UniqueFind hFind = folder.module.List(L"20*.log", entry);
  if (hFind.get() == INVALID_HANDLE_VALUE) return;
  do {
    if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) continue;
    if (entry.ftLastWriteTime.dwHighDateTime + dwLimit >= dwReference) continue;
    const UniqueHandle hFile = folder.module.OpenFile(entry.cFileName, GENERIC_READ | DELETE, false);
    if (hFile && IsLogFile(hFile.get())) SafeFolder::DeleteOpenFile(hFile.get());
  } while (FindNextFileW(hFind.get(), &entry));
}
