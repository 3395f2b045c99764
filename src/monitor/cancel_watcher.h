// The cancel watcher: one thread a job on the device-access path, which polls the spooler for the job being deleted or
// restarted, remembers that and then aborts the pending transfer.
#pragma once

#include <windows.h>

#include "monitor/records.h"

// The thread's routine; its argument is the IniJob. Always returns 0.
DWORD WINAPI ThreadJobCanMon(LPVOID pArgument) noexcept;

// Creates the job's two events and starts the watcher. A job whose watcher cannot be started runs without one; the
// failure is logged.
void StartCancelWatcher(IniJob& job, const wchar_t* pszPrinterName) noexcept;

// Ends the watcher if there is one, waits for it and closes events and thread handle. The record may be freed afterwards.
void StopCancelWatcher(IniJob& job) noexcept;
