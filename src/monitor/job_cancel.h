// Whether a job was deleted or restarted in the spooler.
#pragma once

#include <windows.h>

#include "base/memory.h"
#include "monitor/records.h"

// Reads the job's level-1 information from the spooler; a size that has grown is followed once.
//   ppInfo  in/out: the information, null before the first call; *pcbInfo its room in bytes
// FALSE, with the spooler's last-error code, when it cannot be read; *ppInfo keeps what it held. Any thread.
bool ReadJobStatus(const IniJob& job, HeapPtr<JOB_INFO_1W>* ppInfo, DWORD* pcbInfo) noexcept;

// Remembers that the job was seen deleted, whatever the spooler says of it later, and ends its pauses. Any thread.
void NoteCancelled(IniJob& job) noexcept;

// TRUE when the current job is being deleted or restarted in the spooler, which is remembered. Asks the spooler, and answers
// only for ports on the device-access path; a failed query counts as not cancelled. On the thread of the job's calls.
BOOL IsCancelJob(IniPort* pIniPort) noexcept;

// Whether the job was seen deleted. Any thread; no system call.
inline bool IsCancelRemembered(const IniJob& job) noexcept { return job.bCancelSeen; }

// The one cancel test of every wait, resend and confirmation: the job was seen deleted, or it has no running watcher and the
// spooler says so now. On the thread of the job's calls.
bool IsCancelledSoFar(IniPort& port) noexcept;

// Whether the waits of the current job must end: it is cancelled, or it has no event by which it could ever be told.
bool MustStopWaiting(IniPort& port) noexcept;
