// Restoring a printer's share on the driver's request.
#pragma once
#include <windows.h>

// Marks a printer as shared under a name. Returns 0, the Win32 error of the step that failed, or 87 for a missing or empty
// argument. Pauses 500 ms. In the spooler's own security context; touches no state of the monitor.
DWORD RestoreSharePrinterFromLM(const wchar_t* pszPrinterName, const wchar_t* pszShareName) noexcept;
