// What kind of port a name stands for: could the device-access library serve it? Network ports are asked through the
// configuration channel of the port monitor that owns them. No state; at port open these run inside csMonitor.
#pragma once

#include <windows.h>

#include <tcpxcv.h>

// TRUE for COM and USB ports (without a query) and for standard TCP/IP ports with the raw or LPR protocol; FALSE for file
// ports, shared printers, a null or empty name and anything else.
BOOL IsSdkSupportPort(const wchar_t* pszPort) noexcept;

// TRUE for a standard TCP/IP port with the raw or LPR protocol.
BOOL IsTcpMonitorPort(const wchar_t* pszPort) noexcept;

// Opens the configuration channel of a port; the caller closes *phPort with ClosePrinter. Returns 0 or the error; 87 for
// a null name.
DWORD OpenTcpPort(const wchar_t* pszPort, HANDLE* phPort) noexcept;

// Asks for the port's configuration. The caller has cleared the record: a port monitor that does not know the request
// leaves its dwProtocol at 0. Returns 0 or the error.
DWORD GetTcpPortData(HANDLE hPort, PORT_DATA_1* pData) noexcept;
