// Wide-character routines for a build whose wchar_t has 16 bits.
//
// The C library's own routines work on 32-bit characters. The declarations below come first and bind the names that the
// project uses to this layer's implementations; the C library's header, included after them, only repeats the prototypes.
#pragma once

#include <stddef.h>

extern "C" size_t wcslen(const wchar_t* pszText) noexcept(true) __asm__("w32_wcslen");
extern "C" int wcscmp(const wchar_t* pszLeft, const wchar_t* pszRight) noexcept(true) __asm__("w32_wcscmp");
extern "C" int wcsncmp(const wchar_t* pszLeft, const wchar_t* pszRight,
                       size_t nCount) noexcept(true) __asm__("w32_wcsncmp");

#include_next <wchar.h>
