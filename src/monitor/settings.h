// The two settings that shape the device-access path, read anew whenever they are asked for.
#pragma once

#include <windows.h>

#include "monitor/records.h"

// TRUE when the registry value "OpenWithStartDoc" has bit 0 set: the device is then opened with each job instead of being
// kept open. Any thread.
BOOL IsDisableOpenAlwaysByLM() noexcept;

// Sets PORT_AUTO_REPRINT when the queue's printer data "AutoReprint" is not zero; nothing clears the bit while the port is
// open. Returns 0, ERROR_INVALID_DATA without a job or its printer handle, or the spooler's code for the first value that it
// did not give. The caller holds csMonitor.
DWORD GetSettingFromPrinterData(IniPort* pIniPort) noexcept;
