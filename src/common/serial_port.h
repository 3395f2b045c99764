// What the machine's serial device map tells of a COM port.
#pragma once
#include <windows.h>

// TRUE when a COM port (a name with or without a trailing colon) is a virtual one, or when the device map could not be
// read completely; FALSE for a physical port, one that the map does not list, and a null or empty name.
BOOL IsVirtualComPort(const wchar_t* pszPort) noexcept;
