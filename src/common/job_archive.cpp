#include "common/job_archive.h"

#include <shlwapi.h>
#include <winspool.h>

#include <cwchar>

#include "base/memory.h"
#include "base/owners.h"
#include "base/retention.h"
#include "base/safe_path.h"
#include "base/setting_names.h"
#include "base/text.h"
#include "common/job_folders.h"
#include "common/log_module.h"
#include "common/printer_info.h"

CJob gJob;

namespace {

constexpr std::size_t kFileNameChars = 29;  // what the day folder and the file name add to a root, with some room
constexpr DWORD kNoSuchQueue = ERROR_INVALID_HANDLE;
constexpr DWORD kRetryMs = 50;
constexpr DWORD kRetryPauseMs = 5;
constexpr wchar_t kAgeingValue[] = L"ChkJobFileTime";

// Reads a value of the queue's printer data; returns the spooler's code and the size that it reports.
DWORD ReadPrinterData(HANDLE hPrinter, const wchar_t* pszValue, void* pData, DWORD cbData, DWORD& cbReported) noexcept {
  cbReported = 0;
  DWORD dwType = 0;
  return GetPrinterDataW(hPrinter, const_cast<wchar_t*>(pszValue), &dwType, static_cast<BYTE*>(pData), cbData,
                         &cbReported);
}

// The archive root that the queue names, made if need be; empty when there is none. cbValue receives the stored size.
HeapPtr<wchar_t> ReadRoot(HANDLE hPrinter, DWORD& cbValue) noexcept {
  LOG_AS("CJob::MakeSettings");
  ReadPrinterData(hPrinter, kJobFilePathValue, nullptr, 0, cbValue);
  if (cbValue == 0) return nullptr;
  auto root = AllocBlock<wchar_t>(cbValue + 2 * sizeof(wchar_t));  // ends in a NUL even when the value does not
  if (!root) {
    LogE(L"ppszJobDataPath allocate error. [size:%d]", cbValue);
    return nullptr;
  }
  DWORD cbRead = 0;
  if (ReadPrinterData(hPrinter, kJobFilePathValue, root.get(), cbValue, cbRead) != ERROR_SUCCESS) {
    LogE(L"Fail to read job path from registry.");
    return nullptr;
  }
  // A folder that is there may still be a link that somebody has put in its place: it is not followed.
  TrustedStart place;
  const bool bThere = PathIsDirectoryW(root.get()) != FALSE;
  if (bThere ? !place.Resolve(root.get(), wcslen(root.get())) : !CreateJobFolder(root.get())) {
    LogE(L"Can't access the output job folder. [%s]", root.get());
    return nullptr;
  }
  return root;
}

// Reads a setting that must have exactly this size; false and a log line when it does not.
bool ReadExactly(HANDLE hPrinter, const wchar_t* pszValue, void* pData, DWORD cbData) noexcept {
  LOG_AS("CJob::MakeSettings");
  DWORD cbReported = 0;
  if (ReadPrinterData(hPrinter, pszValue, pData, cbData, cbReported) != ERROR_SUCCESS) {
    LogD(L"No job log lv data on registry.");
    return false;
  }
  if (cbReported != cbData) {
    LogE(L"Invalid job log lv data on registry.");
    return false;
  }
  return true;
}

LONG DaysOfIndex(BYTE byIndex) noexcept {
  LOG_AS("CJob::MakeSettings");
  constexpr LONG kDays[] = {1, 3, 10, 30, 90};
  if (byIndex < std::size(kDays)) return kDays[byIndex];
  AssertHere();
  return 1;
}

struct ArchiveSwitch {
  bool bOn = false;
  LONG nDays = 1;
};

// The settings of most models: two 32-bit values.
ArchiveSwitch ReadPlainSettings(HANDLE hPrinter) noexcept {
  ArchiveSwitch setting;
  DWORD cbReported = 0;
  DWORD dwDays = 0;
  if (ReadPrinterData(hPrinter, kJobValidDaysValue, &dwDays, sizeof dwDays, cbReported) == ERROR_SUCCESS)
    setting.nDays = static_cast<LONG>(dwDays);
  DWORD dwFlags = 0;
  setting.bOn = ReadExactly(hPrinter, kJobSettingFlagsValue, &dwFlags, sizeof dwFlags) && dwFlags != 0;
  return setting;
}

// The settings of models that keep them in one value of six bytes: byte 1 the retention index, byte 5 the switch.
ArchiveSwitch ReadFlagSettings(HANDLE hPrinter) noexcept {
  BYTE abyFlags[6] = {};
  ArchiveSwitch setting;
  setting.bOn = ReadExactly(hPrinter, kLogSettingFlagsValue, abyFlags, sizeof abyFlags) && abyFlags[5] != 0;
  setting.nDays = DaysOfIndex(abyFlags[1]);
  return setting;
}

// The registry path of a queue's last-ageing word; empty when the queue has no "UtilityGUID".
struct AgeingKey {
  wchar_t wszPath[261] = {};
};

enum class KeyLookup { Found, NoGuid, NoQueue };

// A hive that is closed with its owner, unless it is the process's own.
class Hive {
 public:
  // The hive of the one for whom the thread acts: of the client, or, without one, the process's own idea of the current user.
  // (That is made once and kept, by whoever asked first, and so never right for a client.)
  LSTATUS Open(REGSAM samDesired) noexcept {
    HANDLE hToken = nullptr;
    if (!OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &hToken) && GetLastError() == ERROR_NO_TOKEN) {
      m_hKey = HKEY_CURRENT_USER;
      return ERROR_SUCCESS;
    }
    const UniqueHandle token(hToken);
    HKEY hKey = nullptr;
    const LSTATUS lError = RegOpenCurrentUser(samDesired, &hKey);
    m_owned.reset(lError == ERROR_SUCCESS ? hKey : nullptr);
    m_hKey = m_owned.get();
    return lError;
  }
  HKEY get() const noexcept { return m_hKey; }

 private:
  UniqueKey m_owned;
  HKEY m_hKey = nullptr;
};

KeyLookup FindAgeingKey(HANDLE hPrinter, AgeingKey& key) noexcept {
  wchar_t wszDriver[261] = {};
  if (hPrinter == nullptr || !Get_Driver_Name(hPrinter, wszDriver)) return KeyLookup::NoQueue;
  wchar_t wszGuid[128 / sizeof(wchar_t) + 1] = {};
  DWORD cbGuid = 0;
  // One that cannot be read whole is none: a name cut short would be shared by queues that have nothing in common.
  if (ReadPrinterData(hPrinter, kUtilityGuidValue, wszGuid, 128, cbGuid) != ERROR_SUCCESS || cbGuid == 0)
    return KeyLookup::NoGuid;
  FormatWide(key.wszPath, L"SOFTWARE\\Kelvane\\%s\\%s", wszDriver, wszGuid);
  return KeyLookup::Found;
}

}  // namespace

BOOL CJob::MakeSettings(HANDLE hPrinter, const SYSTEMTIME& st, wchar_t** ppszDataPath, wchar_t** ppszFilePath,
                        BOOL bLogSettingFlags) noexcept {
  const KeepLastError keep;
  ReleaseMemory(*ppszDataPath);
  *ppszDataPath = nullptr;
  DWORD cbRoot = 0;
  HeapPtr<wchar_t> root = ReadRoot(hPrinter, cbRoot);
  *ppszDataPath = root.release();

  // A queue that stores no word leaves alone what the others' job ends have made of it meanwhile.
  const DWORD dwBefore = dwChkJobFileTime;
  DWORD dwWord = dwBefore;
  DWORD cbWord = sizeof dwWord;
  // … nor does one whose user's hive took none: the process remembers for it.
  if (GetJobReg(hPrinter, kAgeingValue, &dwWord, &cbWord) != ERROR_SUCCESS) dwWord = m_bWordInProcess ? dwBefore : 0;
  if (dwWord != dwBefore) dwChkJobFileTime = dwWord;

  const ArchiveSwitch setting = bLogSettingFlags ? ReadFlagSettings(hPrinter) : ReadPlainSettings(hPrinter);
  nJobValidDays = setting.nDays;
  ReleaseMemory(*ppszFilePath);
  *ppszFilePath = nullptr;
  const wchar_t* pszRoot = *ppszDataPath;
  if (!setting.bOn || pszRoot == nullptr || *pszRoot == 0) return FALSE;

  const std::size_t cchName = cbRoot + kFileNameChars;
  auto name = AllocBlock<wchar_t>(cchName * sizeof(wchar_t));
  if (!name) {
    AssertHere();
    return FALSE;
  }
  const std::span<wchar_t> buffer(name.get(), cchName);
  wchar_t wszDay[16];
  FormatWide(wszDay, L"%04d%02d%02d", st.wYear, st.wMonth, st.wDay);
  FormatWide(buffer, L"%s\\%s", pszRoot, wszDay);
  TrustedStart trusted;
  SafeFolder day;
  if (!trusted.Resolve(pszRoot, wcslen(pszRoot)) || day.OpenOrMake(trusted, wszDay, true) != SafeOpen::Opened) {
    LogE(L"Fail to create the output job folder. [%s]", name.get());
    return FALSE;
  }
  FormatWide(buffer, L"%s\\%s\\%02d%02d_%02d(%03d).prn", pszRoot, wszDay, st.wHour, st.wMinute, st.wSecond,
             st.wMilliseconds);
  *ppszFilePath = name.release();
  return TRUE;
}

// Where the last name of a path's first cch characters begins.
static std::size_t LastNameAt(const wchar_t* pszPath, std::size_t cch) noexcept {
  while (cch > 0 && pszPath[cch - 1] != L'\\') --cch;
  return cch;
}

// Opens a job's file in its day folder, which is held open as well; the path ends in the two names.
static UniqueHandle OpenJobFile(const wchar_t* pszFilePath, SafeFolder& day, FileFacts& facts) noexcept {
  const std::size_t nFile = LastNameAt(pszFilePath, wcslen(pszFilePath));
  const std::size_t nDay = nFile > 0 ? LastNameAt(pszFilePath, nFile - 1) : 0;
  PathText dayName;
  TrustedStart root;
  const bool bOpened = nDay > 1 && dayName.Assign(pszFilePath + nDay, nFile - 1 - nDay) &&
                       root.Resolve(pszFilePath, nDay - 1) && day.Open(root, dayName.Text()) == SafeOpen::Opened;
  return bOpened ? day.OpenFile(pszFilePath + nFile, GENERIC_WRITE, true, &facts) : nullptr;
}

// Opens a job's file as the one that the job has written to before, or carefully. What causes a violation of the share mode
// for some milliseconds is waited for, once a job.
static UniqueHandle OpenArchivedFile(const wchar_t* pszFilePath, ArchivedFile& file) noexcept {
  ULONGLONG cbFile = 0;
  UniqueHandle hFile(file.known.IsKnown() ? file.known.Open(pszFilePath, cbFile) : nullptr);
  if (hFile) return hFile;
  FileFacts facts;
  SafeFolder day;
  hFile = OpenJobFile(pszFilePath, day, facts);
  const DWORD dwStart = GetTickCount();
  const bool bMayRetry = !file.bRetried;
  while (!hFile && bMayRetry && GetLastError() == ERROR_SHARING_VIOLATION && GetTickCount() - dwStart < kRetryMs) {
    file.bRetried = true;
    Sleep(kRetryPauseMs);
    hFile = OpenJobFile(pszFilePath, day, facts);
  }
  if (hFile) file.known.Remember(facts);
  return hFile;
}

BOOL CJob::OutputJobFile(const wchar_t* pszFilePath, const BYTE* pBuf, DWORD cbBuf, ArchivedFile& file) const noexcept {
  const KeepLastError keep;
  const UniqueHandle hFile = OpenArchivedFile(pszFilePath, file);
  if (!hFile) {
    LogE(L"Fail to open the output job file. [%s]", pszFilePath);
    return FALSE;
  }
  if (SetFilePointer(hFile.get(), 0, nullptr, FILE_END) == INVALID_SET_FILE_POINTER &&
      GetLastError() != ERROR_SUCCESS) {
    LogE(L"Fail to set pointer on the output job file. [%s]", pszFilePath);
    return FALSE;
  }
  DWORD cbWritten = 0;
  if (!WriteFile(hFile.get(), pBuf, cbBuf, &cbWritten, nullptr)) {
    LogE(L"Fail to write to output job file. [%s]", pszFilePath);
    return FALSE;
  }
  return TRUE;
}

void CJob::AgeAtJobEnd(HANDLE hPrinter, const wchar_t* pszRoot) noexcept {
  const KeepLastError keep;
  SYSTEMTIME st;
  GetLocalTime(&st);
  FILETIME ft = {};
  if (!SystemTimeToFileTime(&st, &ft)) return;
  if (ft.dwHighDateTime - dwChkJobFileTime < kRetentionUnitsPerDay) return;
  DeleteOldJobFolders(static_cast<ULONGLONG>(ft.dwHighDateTime) << 32 | ft.dwLowDateTime, pszRoot);
  dwChkJobFileTime = ft.dwHighDateTime;
  m_bWordInProcess = !SetJobReg(hPrinter, kAgeingValue, ft.dwHighDateTime, sizeof ft.dwHighDateTime);
  if (m_bWordInProcess)
    LogW(L"The day of the archive's ageing is kept in memory alone. [%s]", pszRoot != nullptr ? pszRoot : L"");
}

void CJob::DeleteOldJobFolders(ULONGLONG ullNow, const wchar_t* pszRoot) const noexcept {
  if (pszRoot == nullptr || *pszRoot == 0) return;
  const DWORD dwLimit = static_cast<DWORD>(ullNow >> 32) - RetentionUnits(nJobValidDays);
  TrustedStart trusted;
  SafeFolder root;
  if (!trusted.Resolve(pszRoot, wcslen(pszRoot)) || !root.OpenRoot(trusted)) return;
  WIN32_FIND_DATAW entry;
  const UniqueFind hFind = root.List(L"*.*", entry);
  if (hFind.get() == INVALID_HANDLE_VALUE) return;
  unsigned nSkipped = 0;
  do {
    const bool bFolder = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    if (bFolder && entry.cFileName[0] != L'.' && entry.ftLastWriteTime.dwHighDateTime < dwLimit)
      nSkipped += DeleteListed(root, entry);
  } while (FindNextFileW(hFind.get(), &entry));
  if (nSkipped != 0) LogW(L"Old folders that lie too deep stay. [%s, folders:%d]", pszRoot, nSkipped);
}

bool CJob::SetJobReg(HANDLE hPrinter, const wchar_t*, DWORD dwValue, DWORD) const noexcept {
  AgeingKey key;
  const KeyLookup lookup = FindAgeingKey(hPrinter, key);
  if (lookup == KeyLookup::NoGuid) LogE(L"GetPrinterData [dwReturned:0]");
  if (lookup != KeyLookup::Found) return true;  // a queue that has no place for it
  Hive hive;
  HKEY hKey = nullptr;
  LSTATUS lError = hive.Open(KEY_CREATE_SUB_KEY);
  if (lError == ERROR_SUCCESS)
    lError = RegCreateKeyExW(hive.get(), key.wszPath, 0, nullptr, REG_OPTION_NON_VOLATILE,
                             KEY_QUERY_VALUE | KEY_SET_VALUE | KEY_CREATE_SUB_KEY, nullptr, &hKey, nullptr);
  if (lError != ERROR_SUCCESS) {
    LogE(L"RegCreateKeyEx [err:%d]", lError);
    return false;
  }
  const UniqueKey owner(hKey);
  lError = RegSetValueExW(hKey, kAgeingValue, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&dwValue), sizeof dwValue);
  if (lError != ERROR_SUCCESS) LogE(L"RegSetValueEx [err:%d]", lError);
  return lError == ERROR_SUCCESS;
}

DWORD CJob::GetJobReg(HANDLE hPrinter, const wchar_t*, void* pValue, DWORD* pcbValue) const noexcept {
  AgeingKey key;
  switch (FindAgeingKey(hPrinter, key)) {
    case KeyLookup::NoQueue: return kNoSuchQueue;
    case KeyLookup::NoGuid: LogE(L"GetPrinterData [dwReturned:0]"); return ERROR_SUCCESS;
    case KeyLookup::Found: break;
  }
  Hive hive;
  HKEY hKey = nullptr;
  LSTATUS lError = hive.Open(KEY_QUERY_VALUE);
  if (lError == ERROR_SUCCESS) lError = RegOpenKeyExW(hive.get(), key.wszPath, 0, KEY_QUERY_VALUE, &hKey);
  if (lError != ERROR_SUCCESS) {
    LogW(L"RegOpenKeyEx [err:%d]", lError);
    return static_cast<DWORD>(lError);
  }
  const UniqueKey owner(hKey);
  lError = RegQueryValueExW(hKey, kAgeingValue, nullptr, nullptr, static_cast<BYTE*>(pValue), pcbValue);
  if (lError != ERROR_SUCCESS) LogW(L"RegQueryValueEx [err:%d]", lError);
  return static_cast<DWORD>(lError);
}
