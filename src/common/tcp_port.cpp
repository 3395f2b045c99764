#include "common/tcp_port.h"

#include <winspool.h>

#include <cwchar>

#include "base/memory.h"
#include "base/owners.h"
#include "base/text.h"
#include "common/log_module.h"
#include "common/port_kind.h"

BOOL IsSdkSupportPort(const wchar_t* pszPort) noexcept {
  const PortKind kind = PortKindOf(pszPort);
  return kind == PortKind::Device || (kind == PortKind::Network && IsTcpMonitorPort(pszPort));
}

BOOL IsTcpMonitorPort(const wchar_t* pszPort) noexcept {
  if (pszPort == nullptr || IsPortOfWindows(pszPort)) return FALSE;
  HANDLE hPort = nullptr;
  if (OpenTcpPort(pszPort, &hPort) != ERROR_SUCCESS) return FALSE;
  const UniquePrinter port(hPort);
  PORT_DATA_1 data = {};
  if (GetTcpPortData(hPort, &data) != ERROR_SUCCESS) return FALSE;
  return data.dwProtocol == PROTOCOL_RAWTCP_TYPE || data.dwProtocol == PROTOCOL_LPR_TYPE;
}

DWORD OpenTcpPort(const wchar_t* pszPort, HANDLE* phPort) noexcept {
  if (pszPort == nullptr) {
    LogE(L"Invalid parameter. pPortName is NULL.");
    return ERROR_INVALID_PARAMETER;
  }
  const std::size_t cch = wcslen(pszPort) + 12;
  const auto name = AllocBlock<wchar_t>(cch * sizeof(wchar_t));
  if (!name) {
    const DWORD dwError = GetLastError();
    LogE(L"pName allocate error. [size:%d]", static_cast<DWORD>(cch * sizeof(wchar_t)));
    return dwError;
  }
  FormatWide({name.get(), cch}, L",XcvPort %s", pszPort);
  if (!OpenPrinterW(name.get(), phPort, nullptr)) {
    const DWORD dwError = GetLastError();
    *phPort = nullptr;
    LogW(L"OpenPrinter [err:%d, name:%s]", dwError, name.get());
    return dwError;
  }
  return ERROR_SUCCESS;
}

DWORD GetTcpPortData(HANDLE hPort, PORT_DATA_1* pData) noexcept {
  CONFIG_INFO_DATA_1 config = {};
  config.dwVersion = 1;
  DWORD cbNeeded = 0;
  DWORD dwStatus = 0;
  if (!XcvDataW(hPort, L"GetConfigInfo", reinterpret_cast<BYTE*>(&config), sizeof config,
                reinterpret_cast<BYTE*>(pData), sizeof *pData, &cbNeeded, &dwStatus)) {
    const DWORD dwError = GetLastError();
    LogE(L"XcvData [err:%d]", dwError);
    return dwError;
  }
  return ERROR_SUCCESS;
}
