// Two queries on a print queue, made with a printer handle that the caller owns. Any thread.
#pragma once

#include <windows.h>

#include <span>

// Room for a share name; one of 64 characters or more counts as none.
inline constexpr std::size_t kShareNameChars = 64;

// Name of the queue's printer driver. A name that does not fit gives an empty text and still TRUE. Returns TRUE when the
// printer information was read; the last-error code is the spooler's.
BOOL Get_Driver_Name(HANDLE hPrinter, std::span<wchar_t> name) noexcept;

// The queue's share name, empty when it is not shared. Returns TRUE when the printer information was read.
BOOL Get_Share_Name(HANDLE hPrinter, wchar_t* pszShare) noexcept;
