#include "base/known_file.h"

namespace {

constexpr DWORD kVolumeEveryMs = 1000;

}  // namespace

bool KnownFile::IsSame(HANDLE hFile, ULONGLONG& cbFile) noexcept {
  FILE_BASIC_INFO basic;
  FILE_STANDARD_INFO standard;
  ULONGLONG ullIndex = 0;
  constexpr DWORD kOthers = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
  if (!m_bKnown || !GetFileInformationByHandleEx(hFile, FileStandardInfo, &standard, sizeof standard) ||
      standard.NumberOfLinks != 1 || !GetFileInformationByHandleEx(hFile, FileBasicInfo, &basic, sizeof basic) ||
      (basic.FileAttributes & kOthers) != 0 || !FileIndexOf(hFile, ullIndex) || ullIndex != m_ullIndex)
    return false;
  cbFile = static_cast<ULONGLONG>(standard.EndOfFile.QuadPart);
  const DWORD dwNow = GetTickCount();
  if (dwNow - m_dwVolumeAsked < kVolumeEveryMs) return true;
  FileFacts facts;
  m_dwVolumeAsked = dwNow;
  return facts.AskOf(hFile) && facts.dwVolumeSerialNumber == m_dwVolume;
}

UniqueHandle KnownFile::Open(const wchar_t* pszFullPath, ULONGLONG& cbFile) noexcept {
  UniqueHandle hFile = OpenPath(pszFullPath, GENERIC_WRITE, 0, OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT);
  if (hFile && !IsSame(hFile.get(), cbFile)) {
    m_bKnown = false;  // the careful way finds out what is there
    hFile.reset();
    SetLastError(ERROR_FILE_INVALID);
  }
  return hFile;
}

void KnownFile::Remember(const FileFacts& facts) noexcept {
  m_bKnown = true;
  m_dwVolume = facts.dwVolumeSerialNumber;
  m_dwVolumeAsked = GetTickCount();
  m_ullIndex = static_cast<ULONGLONG>(facts.nFileIndexHigh) << 32 | facts.nFileIndexLow;
}
