// Bounded formatting of wide texts.
#pragma once

#include <windows.h>

#include <cstddef>
#include <span>

// Formats into a buffer, always with a terminator; what does not fit is cut. Returns whether it fitted.
bool FormatWide(std::span<wchar_t> buffer, const wchar_t* pwszFormat, ...) noexcept;

// Copies a text with its terminator when it fits, else leaves the buffer empty; a null text counts as empty.
void CopyIfFits(std::span<wchar_t> buffer, const wchar_t* pwszText) noexcept;
