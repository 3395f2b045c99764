// The spooler's interface towards print monitors: the function table and the initialisation record.
#pragma once
#include <winspool.h>

typedef HANDLE HKEYMONITOR;

// The registry routines that the spooler offers a monitor; the project only looks whether they are there.
typedef struct _MONITORREG {
  DWORD cbSize;
  PVOID apfnRoutines[8];
} MONITORREG, *PMONITORREG;

typedef struct _MONITORINIT {
  DWORD cbSize;
  HANDLE hSpooler;
  HKEYMONITOR hckRegistryRoot;
  PMONITORREG pMonitorReg;
  BOOL bLocal;
  LPCWSTR pszServerName;
} MONITORINIT, *PMONITORINIT;

typedef struct _MONITOR2 {
  DWORD cbSize;
  BOOL(WINAPI* pfnEnumPorts)
  (HANDLE hMonitor, LPWSTR pName, DWORD Level, LPBYTE pPorts, DWORD cbBuf, LPDWORD pcbNeeded, LPDWORD pcReturned);
  BOOL(WINAPI* pfnOpenPort)(HANDLE hMonitor, LPWSTR pName, PHANDLE pHandle);
  BOOL(WINAPI* pfnOpenPortEx)
  (HANDLE hMonitor, HANDLE hMonitorPort, LPWSTR pPortName, LPWSTR pPrinterName, PHANDLE pHandle,
   struct _MONITOR2* pMonitor2);
  BOOL(WINAPI* pfnStartDocPort)(HANDLE hPort, LPWSTR pPrinterName, DWORD JobId, DWORD Level, LPBYTE pDocInfo);
  BOOL(WINAPI* pfnWritePort)(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuf, LPDWORD pcbWritten);
  BOOL(WINAPI* pfnReadPort)(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuffer, LPDWORD pcbRead);
  BOOL(WINAPI* pfnEndDocPort)(HANDLE hPort);
  BOOL(WINAPI* pfnClosePort)(HANDLE hPort);
  BOOL(WINAPI* pfnAddPort)(HANDLE hMonitor, LPWSTR pName, HWND hWnd, LPWSTR pMonitorName);
  BOOL(WINAPI* pfnAddPortEx)(HANDLE hMonitor, LPWSTR pName, DWORD Level, LPBYTE lpBuffer, LPWSTR lpMonitorName);
  BOOL(WINAPI* pfnConfigurePort)(HANDLE hMonitor, LPWSTR pName, HWND hWnd, LPWSTR pPortName);
  BOOL(WINAPI* pfnDeletePort)(HANDLE hMonitor, LPWSTR pName, HWND hWnd, LPWSTR pPortName);
  BOOL(WINAPI* pfnGetPrinterDataFromPort)
  (HANDLE hPort, DWORD ControlID, LPWSTR pValueName, LPWSTR lpInBuffer, DWORD cbInBuffer, LPWSTR lpOutBuffer,
   DWORD cbOutBuffer, LPDWORD lpcbReturned);
  BOOL(WINAPI* pfnSetPortTimeOuts)(HANDLE hPort, PVOID lpCTO, DWORD reserved);
  BOOL(WINAPI* pfnXcvOpenPort)(HANDLE hMonitor, LPCWSTR pszObject, ACCESS_MASK GrantedAccess, PHANDLE phXcv);
  DWORD(WINAPI* pfnXcvDataPort)
  (HANDLE hXcv, LPCWSTR pszDataName, PBYTE pInputData, DWORD cbInputData, PBYTE pOutputData, DWORD cbOutputData,
   PDWORD pcbOutputNeeded);
  BOOL(WINAPI* pfnXcvClosePort)(HANDLE hXcv);
  VOID(WINAPI* pfnShutdown)(HANDLE hMonitor);
  DWORD(WINAPI* pfnSendRecvBidiDataFromPort)
  (HANDLE hPort, DWORD dwAccessBit, LPCWSTR pAction, PVOID pReqData, PVOID* ppResData);
  DWORD(WINAPI* pfnNotifyUsedPorts)(HANDLE hMonitor, DWORD cPorts, PCWSTR* ppszPorts);
  DWORD(WINAPI* pfnNotifyUnusedPorts)(HANDLE hMonitor, DWORD cPorts, PCWSTR* ppszPorts);
} MONITOR2, *PMONITOR2, *LPMONITOR2;

extern "C" {
HANDLE WINAPI RevertToPrinterSelf();
BOOL WINAPI ImpersonatePrinterClient(HANDLE hToken);
LPMONITOR2 WINAPI InitializePrintMonitor2(PMONITORINIT pMonitorInit, PHANDLE phMonitor);
}
