// The reprint cache of a port and the job end that uses it: ask the printer to confirm the job, and print it again from
// the cache when the printer lost it. On the spooler thread of the job's calls; one job a port at a time, so the cache
// needs no lock.
#pragma once

#include <windows.h>

#include "monitor/records.h"

// Empties the cache and remembers the size of the job that filled it; size 0 clears what was remembered. FALSE only for a
// missing record.
BOOL ManageReprintMng(ReprintMng* pReprintMng, DWORD cbJob) noexcept;

// Appends bytes that the printer took. Returns 0, or ERROR_INSUFFICIENT_BUFFER when memory is short: the cache is empty
// then.
DWORD CashWriteData(IniPort* pIniPort, const BYTE* pBuf, DWORD cbBuf) noexcept;

// Sends the whole cache again. Returns 0 when all of it was sent, 1167 when the printer is off line, 111 when the library
// reports more than it was given, 87 for an empty cache, or the last send error when the job's cancel event ended it.
DWORD ReprintDumpData(IniPort* pIniPort) noexcept;

// The job-end confirmation with automatic reprint; ends on the printer's confirmation, on a reprint that cannot be made
// or when the job is cancelled. Takes csMonitor to draw a sequence number.
void ConfirmJobEndAndReprint(IniPort* pIniPort) noexcept;
