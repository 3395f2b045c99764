// Which jobs get the printer-ready check, the reprint cache and the job-end confirmation.
#pragma once

#include "monitor/records.h"

// Whether the job is to be sent untouched: its data type is RAW.
bool IsRawJob(const IniJob* pIniJob) noexcept;

// Whether the queue has a share name. FALSE, with an Assert in the name of the routine that asks, without a job or when the
// name cannot be read.
bool IsSharedPrinter(const IniJob* pIniJob, const char* pszRoutine) noexcept;
