// The two checks of every buffer on its way to the printer.
#pragma once

#include <windows.h>

#include "monitor/records.h"

// TRUE when the current job is being deleted or restarted in the spooler. Answers only for ports on the device-access
// path; a failed query counts as not cancelled. On the thread of the job's calls.
BOOL IsCancelJob(IniPort* pIniPort) noexcept;

// Rewrites one byte of each real-time command sequence in the buffer. The match is carried in the current job from one
// buffer to the next. One pass, no copy. On the thread of the job's calls.
void CheckRealCmd(IniPort* pIniPort, BYTE* pBuf, DWORD cbBuf) noexcept;

// One step of the matcher, for a buffer at a position; returns the new state and moves the position past the byte or
// bytes taken. State 0 is idle.
BYTE MatchRealCmd(BYTE byState, BYTE* pBuf, DWORD cbBuf, DWORD& dwPosition) noexcept;
