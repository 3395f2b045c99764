// Reading of registry values under HKEY_LOCAL_MACHINE.
#pragma once

#include <windows.h>

#include "base/owners.h"

// Opens a key for reading values, or a second one when the first cannot be opened. Empty when both fail; the code of the
// last attempt goes to *plError when that is given.
UniqueKey OpenMachineKey(const wchar_t* pszKey, const wchar_t* pszFallbackKey, LSTATUS* plError = nullptr) noexcept;

// Reads up to four bytes of a value, whatever its type. A missing or longer value gives the default.
DWORD ReadDword(HKEY hKey, const wchar_t* pszValue, DWORD dwDefault) noexcept;
