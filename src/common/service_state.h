// Whether a Windows service runs.
#pragma once
#include <windows.h>

// TRUE when the service's current state is SERVICE_RUNNING; every other state, a missing service and a refused query give
// FALSE. Any thread; sets no last-error code of its own.
BOOL IsRunService(const wchar_t* pszService) noexcept;
