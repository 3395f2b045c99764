// The entry points that the spooler reaches through the MONITOR2 table. A port handle is the address of an IniPort. All
// return the spooler's BOOL and set the last-error code on their own failures; a failure of the underlying port monitor
// passes its code through. The spooler calls them on its own threads, for several ports in parallel; the calls of one job
// come one after the other.
#pragma once

#include <windows.h>

#include <winspool.h>
#include <winsplp.h>

BOOL WINAPI MonOpenPortEx(HANDLE hMonitor, HANDLE hMonitorPort, LPWSTR pszPortName, LPWSTR pszPrinterName,
                          PHANDLE phPort, MONITOR2* pMonitor) noexcept;
BOOL WINAPI MonClosePort(HANDLE hPort) noexcept;
BOOL WINAPI MonStartDocPort(HANDLE hPort, LPWSTR pszPrinterName, DWORD dwJobId, DWORD dwLevel,
                            LPBYTE pDocInfo) noexcept;
BOOL WINAPI MonWritePort(HANDLE hPort, LPBYTE pBuf, DWORD cbBuf, LPDWORD pcbWritten) noexcept;
BOOL WINAPI MonReadPort(HANDLE hPort, LPBYTE pBuf, DWORD cbBuf, LPDWORD pcbRead) noexcept;
BOOL WINAPI MonEndDocPort(HANDLE hPort) noexcept;
BOOL WINAPI MonGetPrinterDataFromPort(HANDLE hPort, DWORD dwControlId, LPWSTR pszValueName, LPWSTR pInBuffer,
                                      DWORD cbInBuffer, LPWSTR pOutBuffer, DWORD cbOutBuffer,
                                      LPDWORD pcbReturned) noexcept;
VOID WINAPI MonShutdown(HANDLE hMonitor) noexcept;
