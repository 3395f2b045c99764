// Broken invariants and failed internal allocations: one text to the debugger output.
#pragma once

#include <windows.h>

// Reports at most 511 characters. Stops nothing, changes nothing, keeps the thread's last-error code and writes nothing to
// the log. Any thread.
//   dwSystemErrorCode  GetLastError at the failure
void Assert(const char* pszSourceFile, const char* pszRoutine, int nLine, DWORD dwSystemErrorCode) noexcept;
