#include "monitor/sdk.h"

#include <shlwapi.h>
#include <winspool.h>

#include <cwchar>

#include "base/memory.h"
#include "base/owners.h"
#include "base/setting_names.h"
#include "base/text.h"
#include "monitor/log_module.h"
#include "monitor/model.h"

namespace {

constexpr std::size_t kPathChars = 520;

// Open options of the library, carried in the session word.
constexpr DWORD kOpenOption = 0x200;
constexpr DWORD kOpenOneByteStatus = 0x1000000;
// Preset value of the lock request.
constexpr DWORD kLockValue = 0x100000;

constexpr DWORD kLockTimeoutMs = 3000;
constexpr DWORD kReadTimeoutMs = 3000;
constexpr DWORD kResetTimeoutMs = 5000;
constexpr DWORD kSyncCommTimeoutMs = 5000;

template <class Routine>
Routine EntryPoint(HMODULE hModule, WORD wOrdinal) noexcept {
  // NOLINTNEXTLINE(performance-no-int-to-ptr): this is how an ordinal is passed
  const auto* pszOrdinal = reinterpret_cast<const char*>(static_cast<ULONG_PTR>(wOrdinal));
  return reinterpret_cast<Routine>(reinterpret_cast<void*>(GetProcAddress(hModule, pszOrdinal)));
}

}  // namespace

// Holds lanes for a scope, or none when the caller has them.
class CSdk::Lane {
 public:
  Lane(CSdk& sdk, DWORD dwLane, BOOL bTake = TRUE) noexcept : m_sdk(sdk), m_dwLane(dwLane), m_bTake(bTake) {
    if (m_bTake) m_sdk.SetSync(m_dwLane);
  }
  ~Lane() {
    if (m_bTake) m_sdk.ClrSync(m_dwLane);
  }
  Lane(const Lane&) = delete;
  Lane& operator=(const Lane&) = delete;

 private:
  CSdk& m_sdk;
  const DWORD m_dwLane;
  const BOOL m_bTake;
};

CSdk::CSdk() noexcept
    : hEventSend(CreateEventW(nullptr, FALSE, TRUE, nullptr)),
      hEventCtrl(CreateEventW(nullptr, FALSE, TRUE, nullptr)) {}

CSdk::~CSdk() {
  if (hEventSend != nullptr) CloseHandle(hEventSend);
  if (hEventCtrl != nullptr) CloseHandle(hEventCtrl);
  hEventSend = nullptr;
  hEventCtrl = nullptr;
  UnloadDll();
}

BOOL CSdk::LoadDll() noexcept {
  LogEntry();
  const Lane lane(*this, SYNC_ALL);
  if (hSdkDll != nullptr) {
    LogW(L"Multiple dll calls");
    return FALSE;
  }
  const auto path = AllocBlock<wchar_t>(kPathChars * sizeof(wchar_t));
  if (!path) {
    LogE(L"pDrvPath = null");
    return FALSE;
  }
  FormatWide({path.get(), kPathChars}, L".\\%s", kSdkLibrary);
  if (!PathFileExistsW(path.get())) {
    LogE(L"sdk.dll is not exist [%s]", path.get());
    return FALSE;
  }
  hSdkDll = LoadLibraryW(path.get());
  if (hSdkDll == nullptr) {
    LogE(L"LoadLibrary [dllname:%s]", kSdkLibrary);
    return FALSE;
  }
  pOpenW = EntryPoint<PFN_SDK_OPENW>(hSdkDll, 1);
  pClose = EntryPoint<PFN_SDK_CLOSE>(hSdkDll, 2);
  pDevIoCtrl = EntryPoint<PFN_SDK_DEVIOCTRL>(hSdkDll, 3);
  if (pOpenW != nullptr && pClose != nullptr && pDevIoCtrl != nullptr) return TRUE;

  LogE(L"Invalid function [pOpenW:0x%08x, pClose:0x%08x, pDevIoCtrl:0x%08x]",
       LogAddress(reinterpret_cast<void*>(pOpenW)), LogAddress(reinterpret_cast<void*>(pClose)),
       LogAddress(reinterpret_cast<void*>(pDevIoCtrl)));
  FreeLibrary(hSdkDll);
  hSdkDll = nullptr;
  pOpenW = nullptr;
  pClose = nullptr;
  pDevIoCtrl = nullptr;
  SetLastError(ERROR_INVALID_FUNCTION);
  return FALSE;
}

void CSdk::UnloadDll() noexcept {
  LogEntry();
  const Lane lane(*this, SYNC_ALL);
  if (hSdkDll == nullptr) return;
  FreeLibrary(hSdkDll);
  hSdkDll = nullptr;
}

DWORD CSdk::Open(const wchar_t* pszPrinterName, BOOL bSync, const DevData** ppDevData) noexcept {
  LogEntry();
  const Lane lane(*this, SYNC_ALL, bSync);
  if (dwSessionId != 0) {
    LogD(L"dwSessionId is set. Id:[%d]", dwSessionId);
    return ERROR_SUCCESS;
  }
  if (ppDevData != nullptr && *ppDevData == nullptr) {
    HANDLE hPrinter = nullptr;
    if (OpenPrinterW(const_cast<wchar_t*>(pszPrinterName), &hPrinter, nullptr)) {
      const UniquePrinter printer(hPrinter);
      *ppDevData = GetDevDataLm(hPrinter);
    }
  }
  if (ppDevData != nullptr && *ppDevData != nullptr) {
    const DevData& model = **ppDevData;
    const DevInfo* pDevInfo = model.pDevInfo.load(std::memory_order_relaxed);
    if (pDevInfo != nullptr && (pDevInfo->wDevCaps & DEVCAP_OPEN_OPTION) != 0) dwSessionId |= kOpenOption;
    if (model.HasOneByteStatus()) dwSessionId |= kOpenOneByteStatus;
  }
  const DWORD dwError = pOpenW(pszPrinterName, &dwSessionId);
  if (dwError != ERROR_SUCCESS) {
    dwSessionId = 0;  // the options must never pass for a session
    LogE(L"SDK OPEN [e:%d]", dwError);
    SetLastError(dwError);
  }
  return dwError;
}

BOOL CSdk::OpenAndLock(const wchar_t* pszPrinterName, const DevData** ppDevData) noexcept {
  LogEntry();
  {
    const Lane lane(*this, SYNC_ALL);
    if (Open(pszPrinterName, FALSE, ppDevData) != ERROR_SUCCESS) return FALSE;
    DWORD dwValue = kLockValue;
    const DWORD dwError = Request(L"SDK_SET_LOCK", &dwValue, kLockTimeoutMs);
    if (dwError != ERROR_SUCCESS) {
      LogE(L"SDK_SET_LOCK [e:%d]", dwError);
      SetLastError(ERROR_BUSY);
      return FALSE;
    }
  }
  if (ppDevData == nullptr || nCommSync != 0) return TRUE;
  const DWORD dwError = SetSyncComm(*ppDevData);
  if (dwError != ERROR_SUCCESS) SetLastError(dwError);
  return dwError == ERROR_SUCCESS;
}

BOOL CSdk::UnlockJob(BOOL bSync) noexcept {
  LogEntry();
  const Lane lane(*this, SYNC_ALL, bSync);
  if (dwSessionId == 0) {
    LogW(L"dwSessionId=0");
    return TRUE;
  }
  const DWORD dwError = Request(L"SDK_CLR_LOCK", nullptr, 0);
  if (dwError == ERROR_SUCCESS || dwError == ERROR_NOT_LOCKED) return TRUE;
  LogE(L"SDK_CLR_LOCK [e:%d]", dwError);
  SetLastError(dwError);
  return FALSE;
}

BOOL CSdk::UnlockAndClose() noexcept {
  LogEntry();
  const Lane lane(*this, SYNC_ALL);
  if (dwSessionId == 0) {
    LogW(L"dwSessionId=0");
    return TRUE;
  }
  if (!UnlockJob(FALSE)) return FALSE;
  const DWORD dwError = pClose(dwSessionId);
  if (dwError == ERROR_SUCCESS) {
    dwSessionId = 0;
  } else {
    LogE(L"SDK CLOSE [e:%d]", dwError);
    SetLastError(dwError);
  }
  if (nCommSync == 1) nCommSync = 0;
  return dwError == ERROR_SUCCESS;
}

BOOL CSdk::Send(const BYTE* pBuf, DWORD cbBuf, DWORD* pdwWritten, DWORD dwTimeoutMs) noexcept {
  LogT(L"cbBuf:%d", cbBuf);
  const Lane lane(*this, SYNC_SEND);
  return SendInLane(pBuf, cbBuf, pdwWritten, dwTimeoutMs);
}

bool CSdk::SendUnless(const std::atomic<bool>& bStop, const BYTE* pBuf, DWORD cbBuf, DWORD* pdwWritten,
                      DWORD dwTimeoutMs, BOOL* pbSent) noexcept {
  LOG_AS("CSdk::Send");
  LogT(L"cbBuf:%d", cbBuf);
  const Lane lane(*this, SYNC_SEND);
  *pdwWritten = 0;
  m_bSending = true;
  const bool bGoes = !bStop;
  if (bGoes) *pbSent = SendInLane(pBuf, cbBuf, pdwWritten, dwTimeoutMs);
  m_bSending = false;
  return bGoes;
}

BOOL CSdk::SendInLane(const BYTE* pBuf, DWORD cbBuf, DWORD* pdwWritten, DWORD dwTimeoutMs) noexcept {
  LOG_AS("CSdk::Send");
  *pdwWritten = 0;
  const DWORD dwError = pDevIoCtrl(dwSessionId, nullptr, pBuf, cbBuf, pdwWritten, nullptr, 0, nullptr, dwTimeoutMs);
  if (dwError == ERROR_SUCCESS) {
    LogI(L"*pdwWritten:%d", *pdwWritten);
    return TRUE;
  }
  if (dwError == ERROR_TIMEOUT) {
    LogW(L"SDK DIRECTIO time out(%d) [length:%d][written:%d]", dwError, cbBuf, *pdwWritten);
    return TRUE;
  }
  LogE(L"SDK DIRECTIO [e:%d]", dwError);
  SetLastError(dwError);
  return FALSE;
}

DWORD CSdk::Read(BYTE* pBuf, DWORD cbBuf, DWORD* pdwRead, DWORD dwFlags) noexcept {
  LogT(L"dwFlags:0x%x cbBuf:%d", dwFlags, cbBuf);
  if (dwFlags != kReadResponse && dwFlags != kReadClear) {
    AssertHere();
    return ERROR_INVALID_PARAMETER;
  }
  const wchar_t* pszRequest = dwFlags == kReadClear ? L"GET_RAW_DATA_CLR" : L"GET_RAW_DATA_RESP";
  return pDevIoCtrl(dwSessionId, pszRequest, nullptr, 0, nullptr, pBuf, cbBuf, pdwRead, kReadTimeoutMs);
}

BOOL CSdk::Cancel() noexcept {
  LogEntry();
  const Lane lane(*this, SYNC_CTRL);
  const DWORD dwError = Request(L"SDK_CANCEL_IO_EX", nullptr, 0);
  if (dwError == ERROR_SUCCESS) return TRUE;
  LogE(L"SDK_CANCEL_IO_EX [e:%d]", dwError);
  SetLastError(dwError);
  return FALSE;
}

BOOL CSdk::Reset() noexcept {
  LogEntry();
  const Lane lane(*this, SYNC_CTRL);
  const DWORD dwError = Request(L"SDK_SET_RESET", nullptr, kResetTimeoutMs);
  if (dwError == ERROR_SUCCESS) return TRUE;
  LogE(L"SDK_SET_RESET [e:%d]", dwError);
  SetLastError(dwError);
  return FALSE;
}

DWORD CSdk::SetSyncComm(const DevData* pDevData) noexcept {
  LogEntry();
  if (pDevData == nullptr) {
    AssertHere();
    return ERROR_INVALID_PARAMETER;
  }
  const Lane lane(*this, SYNC_ALL);
  const DevInfo* pDevInfo = pDevData->pDevInfo.load(std::memory_order_relaxed);
  const wchar_t* pszSetting = pDevInfo != nullptr ? pDevInfo->pszCommSetting : nullptr;
  if (pszSetting == nullptr) pszSetting = L"";
  const auto cbSetting = static_cast<DWORD>((wcslen(pszSetting) + 1) * sizeof(wchar_t));
  const DWORD dwError =
      pDevIoCtrl(dwSessionId, L"SDK_SYNC_COM", pszSetting, cbSetting, nullptr, nullptr, 0, nullptr, kSyncCommTimeoutMs);
  if (dwError == ERROR_NOT_SUPPORTED) {
    LogD(L"This port is not physical serial port");
    return ERROR_SUCCESS;
  }
  nCommSync = dwError == ERROR_SUCCESS ? 1 : 0;
  if (dwError != ERROR_SUCCESS) LogE(L"SDK_SYNC_COM [err:%d]", dwError);
  return dwError;
}

// Both lanes are taken with one wait, so nobody holds one while waiting for the other.
void CSdk::SetSync(DWORD dwLane) noexcept {
  LogEntry();
  const HANDLE ahLanes[] = {hEventSend, hEventCtrl};
  if (dwLane == SYNC_ALL && (hEventSend != nullptr || hEventCtrl != nullptr))
    WaitForMultipleObjects(2, ahLanes, TRUE, INFINITE);
  if (dwLane == SYNC_SEND && hEventSend != nullptr) WaitForSingleObject(hEventSend, INFINITE);
  if (dwLane == SYNC_CTRL && hEventCtrl != nullptr) WaitForSingleObject(hEventCtrl, INFINITE);
  LogEntry();
}

void CSdk::ClrSync(DWORD dwLane) noexcept {
  LogEntry();
  if ((dwLane == SYNC_ALL || dwLane == SYNC_SEND) && hEventSend != nullptr) SetEvent(hEventSend);
  if ((dwLane == SYNC_ALL || dwLane == SYNC_CTRL) && hEventCtrl != nullptr) SetEvent(hEventCtrl);
}

DWORD CSdk::Request(const wchar_t* pszRequest, DWORD* pdwValue, DWORD dwTimeoutMs) noexcept {
  return pDevIoCtrl(dwSessionId, pszRequest, nullptr, 0, nullptr, nullptr, 0, pdwValue, dwTimeoutMs);
}
