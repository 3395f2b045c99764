// Requests of the printer driver through the port: forwarded to the port monitor, and one acted on first.
#include <cstring>
#include <cwchar>
#include <iterator>

#include "base/owners.h"
#include "monitor/entry.h"
#include "monitor/impersonation.h"
#include "monitor/log_module.h"
#include "monitor/port_call.h"
#include "monitor/records.h"
#include "monitor/share_restore.h"

namespace {

constexpr wchar_t kShareRequest[] = L"DO_SETTING_SHARE_PRN";
constexpr std::size_t kShareRequestChars = std::size(kShareRequest) - 1;
constexpr std::size_t kMaxShareChars = 32;

// The share name behind the first "__" of a request; null when there is none or it is too long.
const wchar_t* ShareNameOf(const wchar_t* pszValueName) noexcept {
  const wchar_t* p = pszValueName;
  while (*p != 0 && !(p[0] == L'_' && p[1] == L'_')) ++p;
  if (*p == 0) return nullptr;
  return wcslen(p + 2) <= kMaxShareChars ? p + 2 : nullptr;
}

}  // namespace

// Restores the printer's share once in the port's life; a failed attempt may be repeated. FALSE when the thread could not go
// back to the client.
static bool RestoreShare(IniPort& port, const wchar_t* pszValueName, LPWSTR pOutBuffer, DWORD cbOutBuffer,
                         LPDWORD pcbReturned) noexcept {
  LOG_AS("MonGetPrinterDataFromPort");
  {
    const SectionLock lock(csMonitor);
    if ((port.dwPortFlags.fetch_or(PORT_SHARE_SETTING) & PORT_SHARE_SETTING) != 0) return true;
  }
  LogD(L"[srv:%s] MonGetPrinterDataFromPort [DO_SETTING_SHARE_PRN]", port.pszPortName);
  bool bAsClient = true;
  DWORD dwResult = ERROR_INVALID_PRINTER_NAME;
  const wchar_t* pszShare = ShareNameOf(pszValueName);
  if (pszShare == nullptr) {
    AssertHere();
    LogW(L"Invalid data. [pValue:%s]", pszValueName);
  } else {
    {
      RevertedToSelf self;
      dwResult = RestoreSharePrinterFromLM(port.pPrinterName, pszShare);
      bAsClient = self.Restore();
    }
    if (dwResult != ERROR_SUCCESS) {
      LogE(L"Fail to RestoreSharePrinterFromLM [share:%s][Err:%d]", pszShare, dwResult);
    } else {
      LogD(L"Restored share printer setting[printer:%s][share:%s]", port.pPrinterName, pszShare);
      const DWORD dwFlags = port.dwPortFlags;
      if (pcbReturned != nullptr && pOutBuffer != nullptr && cbOutBuffer >= sizeof dwFlags) {
        std::memcpy(pOutBuffer, &dwFlags, sizeof dwFlags);
        *pcbReturned = sizeof dwFlags;
      } else {
        LogE(L"cbOutBuffer ERROR_INSUFFICIENT_BUFFER [size:%d]", cbOutBuffer);
      }
    }
  }
  if (dwResult != ERROR_SUCCESS) {
    const SectionLock lock(csMonitor);
    port.dwPortFlags &= ~PORT_SHARE_SETTING;
  }
  return bAsClient;
}

// Does what a request asks of this monitor. FALSE when the thread could not go back to the client.
static bool ActOnRequest(IniPort& port, const wchar_t* pszValueName, LPWSTR pOutBuffer, DWORD cbOutBuffer,
                         LPDWORD pcbReturned) noexcept {
  LOG_AS("MonGetPrinterDataFromPort");
  if (wcsncmp(pszValueName, kShareRequest, kShareRequestChars) == 0)
    return RestoreShare(port, pszValueName, pOutBuffer, cbOutBuffer, pcbReturned);
  if (wcscmp(pszValueName, L"AutoReprint") == 0)
    LogD(L"[srv:%s] MonGetPrinterDataFromPort [AutoReprint]", port.pszPortName);
  return true;
}

BOOL WINAPI MonGetPrinterDataFromPort(HANDLE hPort, DWORD dwControlId, LPWSTR pszValueName, LPWSTR pInBuffer,
                                      DWORD cbInBuffer, LPWSTR pOutBuffer, DWORD cbOutBuffer,
                                      LPDWORD pcbReturned) noexcept {
  decltype(MONITOR2::pfnGetPrinterDataFromPort) pfnForward = nullptr;
  HANDLE hForward = nullptr;
  {
    const PortCall call(hPort);
    IniPort* pIniPort = call.Port();
    if (pIniPort == nullptr) {
      SetLastError(ERROR_INVALID_PARAMETER);
      return FALSE;
    }
    pfnForward = pIniPort->fn.pfnGetPrinterDataFromPort;
    hForward = pIniPort->hPort;
    if (pfnForward == nullptr) {
      SetLastError(ERROR_NOT_SUPPORTED);
      return FALSE;
    }
    LogI(L"(pfnGetPrinterDataFromPort) [pszPortName:%s,ControlID:%d,pValueName:%s,cbInBuffer:%d,cbOutBuffer:%d]",
         pIniPort->pszPortName, dwControlId, pszValueName, cbInBuffer, cbOutBuffer);
    if (dwControlId == 0 && pszValueName != nullptr &&
        !ActOnRequest(*pIniPort, pszValueName, pOutBuffer, cbOutBuffer, pcbReturned)) {
      SetLastError(ERROR_ACCESS_DENIED);  // the request would be forwarded in the wrong name
      return FALSE;
    }
  }
  // The port monitor may hold the request as long as it likes: a close of the port does not wait for that.
  return pfnForward(hForward, dwControlId, pszValueName, pInBuffer, cbInBuffer, pOutBuffer, cbOutBuffer, pcbReturned);
}
