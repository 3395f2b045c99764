#include "log/log_stream.h"

#include <cstring>

#include "base/setting_names.h"

namespace {

constexpr DWORD kSlowOpenMs = 10'000;
constexpr char kSlowNote[] = "File access time is abnormal\r\n";
constexpr DWORD kRetryMs = 50;
constexpr DWORD kRetryPauseMs = 5;
constexpr DWORD kRetryEveryMs = 1000;
constexpr char kSeparator[] = "_______________System Infomation____________________\r\n";
constexpr char kColumnHeader[] =
    "\r\n\r\n\r\n[MM/dd HH:mm(ss.ms )]\t[Process info      ] \t[Lv]\t[Module ] \tMessage\r\n"
    "-----------------------------------------------------------------------------------------------------------------"
    "--------------------\r\n";
static_assert(sizeof kColumnHeader - 1 == 210);

UniqueHandle CreateSharedMutex(const wchar_t* pszName) noexcept {
  SECURITY_DESCRIPTOR descriptor;
  InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION);
  SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE);
  SECURITY_ATTRIBUTES attributes = {sizeof attributes, &descriptor, TRUE};
  return UniqueHandle(CreateMutexW(&attributes, FALSE, pszName));
}

// A routine of the system's kernel library that older systems lack.
template <class Routine>
Routine KernelRoutine(const char* pszName) noexcept {
  const HMODULE hKernel = GetModuleHandleW(L"kernel32");
  return hKernel != nullptr ? reinterpret_cast<Routine>(reinterpret_cast<void*>(GetProcAddress(hKernel, pszName)))
                            : nullptr;
}

// Reads a text value of at most 128 bytes and appends a suffix; empty when the two do not fit.
bool ReadTextValue(HKEY hKey, const char* pszValue, const char* pszSuffix, char (&szText)[128]) noexcept {
  std::memset(szText, 0, sizeof szText);
  DWORD cb = sizeof szText;
  if (RegQueryValueExA(hKey, pszValue, nullptr, nullptr, reinterpret_cast<BYTE*>(szText), &cb) != ERROR_SUCCESS)
    return false;
  const std::size_t cbText = strnlen(szText, sizeof szText);
  const std::size_t cbSuffix = std::strlen(pszSuffix);
  if (cbText + cbSuffix >= sizeof szText) return false;
  std::memcpy(szText + cbText, pszSuffix, cbSuffix + 1);
  return true;
}

const char* ArchitectureName(WORD wArchitecture) noexcept {
  switch (wArchitecture) {
    case PROCESSOR_ARCHITECTURE_AMD64: return "AMD64 Architecture";
    case PROCESSOR_ARCHITECTURE_IA64: return "IA64 Architecture";
    case PROCESSOR_ARCHITECTURE_INTEL: return "I386 Architecture";
    default: return "";
  }
}

}  // namespace

CLogStream::CLogStream() noexcept
    : m_hLogMutex(CreateSharedMutex(kLogMutexName)), m_hBinMutex(CreateSharedMutex(L"Global\\Kelvane_SDK_BIN2")) {
  InitializeCriticalSection(&m_csPending);
}

bool CLogStream::TakeTurn() noexcept {
  // A mutex that its owner abandoned is as good as a free one; where there is none, the file itself keeps others out.
  const DWORD dwStart = GetTickCount();
  const DWORD dwWait = WaitForSingleObject(m_hLogMutex.get(), m_patience.Limit(dwStart));
  m_patience.Waited(dwStart, GetTickCount(), dwWait != WAIT_TIMEOUT);
  if (dwWait == WAIT_ABANDONED) m_bAbandoned = true;
  return dwWait != WAIT_TIMEOUT;
}

bool CLogStream::OpenKnown(LogThreadBuffers& buffers, const wchar_t* pszFullPath) noexcept {
  if (!m_known.IsKnown() || m_bAbandoned) return false;
  const DWORD dwStart = GetTickCount();
  ULONGLONG cbFile = 0;
  UniqueHandle hFile = m_known.Open(pszFullPath, cbFile);
  if (!hFile || cbFile == 0) return false;
  buffers.hLogFile = hFile.release();
  if (GetTickCount() - dwStart > kSlowOpenMs) Write(buffers, kSlowNote);
  WriteHeld(buffers);
  return true;
}

// What causes a violation of the share mode for some milliseconds, a virus scanner or a backup, is waited for; once a second
// at most, since the thread has the turn of all others.
UniqueHandle CLogStream::OpenPatiently(const SafeFolder& folder, const LogName& file, DWORD dwAccess,
                                       FileFacts& facts) noexcept {
  const DWORD dwStart = GetTickCount();
  UniqueHandle hFile = folder.OpenFile(file.wsz, dwAccess, true, &facts);
  if (hFile || GetLastError() != ERROR_SHARING_VIOLATION) return hFile;
  const DWORD dwLast = m_dwLastRetry;
  if (dwLast != 0 && dwStart - dwLast < kRetryEveryMs) return nullptr;
  m_dwLastRetry = dwStart | 1;
  while (!hFile && GetLastError() == ERROR_SHARING_VIOLATION && GetTickCount() - dwStart < kRetryMs) {
    Sleep(kRetryPauseMs);
    hFile = folder.OpenFile(file.wsz, dwAccess, true, &facts);
  }
  return hFile;
}

bool CLogStream::Open(LogThreadBuffers& buffers, const SafeFolder& folder, const LogName& file) noexcept {
  const DWORD dwStart = GetTickCount();
  // Whoever had the mutex may have died in the middle of a line: told by the mutex, or else found by the next process.
  const bool bMayBeTorn = m_bAbandoned || !m_bEndLookedAt;
  FileFacts facts;
  UniqueHandle hFile =
      folder ? OpenPatiently(folder, file, bMayBeTorn ? GENERIC_READ | GENERIC_WRITE : GENERIC_WRITE, facts) : nullptr;
  if (!hFile) {
    ReleaseMutex(m_hLogMutex.get());
    return false;
  }
  m_known.Remember(facts);
  buffers.hLogFile = hFile.release();
  if (bMayBeTorn) EndTornLine(buffers.hLogFile);
  m_bEndLookedAt = true;
  m_bAbandoned = false;
  if (facts.IsEmpty()) {
    Write(buffers, kLogHeader);
    WriteSystemInfo(buffers);
    Write(buffers, kColumnHeader);
  }
  if (GetTickCount() - dwStart > kSlowOpenMs) Write(buffers, kSlowNote);
  WriteHeld(buffers);
  return true;
}

void CLogStream::WriteHeld(LogThreadBuffers& buffers) noexcept {
  if (m_cbPending != 0) {
    const SectionLock lock(m_csPending);
    if (m_cbPending != 0) Append(buffers.hLogFile, m_szPending, m_cbPending);
    m_cbPending = 0;
  }
  if (m_bWriteFailed && m_bWriteFailed.exchange(false)) Write(buffers, "<=== Log output here failed\r\n");
}

void CLogStream::EndTornLine(HANDLE hFile) noexcept {
  char cLast = '\n';
  DWORD cbRead = 0;
  if (SetFilePointer(hFile, -1, nullptr, FILE_END) == INVALID_SET_FILE_POINTER ||
      !ReadFile(hFile, &cLast, 1, &cbRead, nullptr) || cLast == '\n')
    return;  // an empty file has no last byte
  Append(hFile, "\r\n", 2);
}

DWORD CLogStream::Append(HANDLE hFile, const char* pBytes, DWORD cb) noexcept {
  DWORD cbWritten = 0;
  SetFilePointer(hFile, 0, nullptr, FILE_END);
  if (!WriteFile(hFile, pBytes, cb, &cbWritten, nullptr)) m_bWriteFailed = true;
  return cbWritten;
}

DWORD CLogStream::Write(LogThreadBuffers& buffers, const char* pszText) noexcept {
  const auto cb = static_cast<DWORD>(std::strlen(pszText));
  if (buffers.hLogFile != INVALID_HANDLE_VALUE) return Append(buffers.hLogFile, pszText, cb);
  const SectionLock lock(m_csPending);
  if (cb + 1 <= sizeof m_szPending - m_cbPending) {
    m_szPending[m_cbPending] = '*';
    std::memcpy(m_szPending + m_cbPending + 1, pszText, cb);
    m_cbPending += cb + 1;
  } else {
    m_bWriteFailed = true;
  }
  return 0;
}

LONGLONG CLogStream::Close(LogThreadBuffers& buffers) noexcept {
  if (buffers.hLogFile == INVALID_HANDLE_VALUE) return 0;
  LARGE_INTEGER cbFile = {};
  GetFileSizeEx(buffers.hLogFile, &cbFile);
  CloseHandle(buffers.hLogFile);
  buffers.hLogFile = INVALID_HANDLE_VALUE;
  ReleaseMutex(m_hLogMutex.get());
  return cbFile.QuadPart;
}

void CLogStream::WriteSystemInfo(LogThreadBuffers& buffers) noexcept {
  char szText[128];
  HKEY hKey = nullptr;
  if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion", 0, KEY_QUERY_VALUE, &hKey) ==
      ERROR_SUCCESS) {
    const UniqueKey key(hKey);
    Write(buffers, kSeparator);
    if (ReadTextValue(hKey, "ProductName", "\t", szText)) Write(buffers, szText);
    if (ReadTextValue(hKey, "BuildLabEx", "\r\n", szText)) Write(buffers, szText);
  }

  szText[0] = 0;
  if (const auto pfnInfo = KernelRoutine<void(WINAPI*)(LPSYSTEM_INFO)>("GetNativeSystemInfo")) {
    SYSTEM_INFO info = {};
    pfnInfo(&info);
    std::strcat(szText, ArchitectureName(info.wProcessorArchitecture));
  }
  if (const auto pfnWow64 = KernelRoutine<BOOL(WINAPI*)(HANDLE, PBOOL)>("IsWow64Process")) {
    BOOL bWow64 = FALSE;
    const bool bKnown = pfnWow64(GetCurrentProcess(), &bWow64) != FALSE;
    std::strcat(szText, bKnown && bWow64 ? " Wow64 process\r\n" : " 64bit process\r\n");
  }
  Write(buffers, szText);
  Write(buffers, kSeparator);
}
