#include "base/text.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <cwchar>

bool FormatWide(std::span<wchar_t> buffer, const wchar_t* pwszFormat, ...) noexcept {
  va_list args;
  va_start(args, pwszFormat);
  const int n = _vsnwprintf(buffer.data(), buffer.size() - 1, pwszFormat, args);
  va_end(args);
  buffer.back() = 0;  // a text that fills its room exactly comes without a terminator
  return n >= 0;
}

void CopyIfFits(std::span<wchar_t> buffer, const wchar_t* pwszText) noexcept {
  const std::size_t cch = pwszText != nullptr ? wcslen(pwszText) : 0;
  buffer[0] = 0;
  if (cch < buffer.size() && cch > 0) std::memcpy(buffer.data(), pwszText, (cch + 1) * sizeof(wchar_t));
}
