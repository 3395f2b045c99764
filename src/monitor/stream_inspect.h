// The real-time commands in the data of a job on its way to the printer.
#pragma once

#include <windows.h>

#include "monitor/records.h"

// Rewrites one byte of each real-time command sequence in the buffer. The match is carried in the current job from one
// buffer to the next. One pass, no copy; between sequences it runs from one DLE or DC3 to the next. On the thread of the job's calls.
void CheckRealCmd(IniPort* pIniPort, BYTE* pBuf, DWORD cbBuf) noexcept;

// The position of the first DLE or DC3 from a position on; cbBuf when there is none.
DWORD FindRealCmd(const BYTE* pBuf, DWORD cbBuf, DWORD dwPosition) noexcept;
