// Whether a port uses the device-access path, and the life of its device-access object.
#pragma once

#include <windows.h>

#include "monitor/records.h"

// Decides for a port: its kind must be one that the library serves, the library's service must run and the library must
// be loadable. The first positive decision creates the port's CSdk and loads the library. Stores the decision in
// bUseSdkSrv and returns it; FALSE for a null address or record. Runs inside csMonitor at port open, outside it at job
// start; never while another thread uses the port's CSdk.
BOOL IsUseSdkSrv(IniPort** ppIniPort) noexcept;

// Destroys a port's CSdk and clears the pointer. Its session has been closed and nobody else uses it.
void FreeMngObj(CSdk** ppSdkMng) noexcept;

// Closes an open device session of a port and unloads the library, in the spooler's own context; the object stays.
void CloseDevice(IniPort& port) noexcept;
