// The port list, the job lists and what ends a job in them.
#pragma once

#include <windows.h>

#include "monitor/records.h"

// First port in list order with this name, without regard to case; null for none and for a null or empty name. The caller
// holds csMonitor.
IniPort* FindIniPort(const wchar_t* pszPortName) noexcept;

// A new port at the head of the list, or null (without a last-error code) when memory is short or a name is null. The
// caller holds csMonitor.
IniPort* CreatePortEntry(const wchar_t* pszPrinterName, const wchar_t* pszPortName) noexcept;

// Unlinks a port and frees it with its jobs and its device-access object; a record that is not in the list stays
// untouched. The caller holds csMonitor.
void DeletePortEntry(IniPort* pIniPort) noexcept;

// Frees a job that is in no list and whose watcher has ended. Events and thread handle are not touched here.
void FreeIniJob(IniJob* pIniJob) noexcept;

// Reports one job's last page as ejected. The caller holds csMonitor.
void SendLastPageEjectedForIniJob(IniPort* pIniPort, IniJob* pIniJob) noexcept;

// The oldest job with this id, or null; *ppPrev receives its predecessor (null for the head). The caller holds csMonitor.
IniJob* FindIniJobFromJobId(IniPort* pIniPort, DWORD dwJobId, IniJob** ppPrev) noexcept;

// Reports and frees a job and every older one of the port, or ALL_JOBS. Takes csMonitor.
void SendJobLastPageEjected(IniPort* pIniPort, DWORD dwValue) noexcept;
