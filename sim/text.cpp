#include "sim/text.h"

#include <cstdarg>
#include <cstdio>

namespace sim {

std::string Narrow(const wchar_t* pszText) {
  std::string str;
  for (const wchar_t* p = pszText; p != nullptr && *p != 0; ++p) {
    const auto n = static_cast<unsigned>(static_cast<std::uint16_t>(*p));
    if (n < 0x80) {
      str += static_cast<char>(n);
    } else if (n < 0x800) {
      str += static_cast<char>(0xC0 | (n >> 6));
      str += static_cast<char>(0x80 | (n & 0x3F));
    } else {
      str += static_cast<char>(0xE0 | (n >> 12));
      str += static_cast<char>(0x80 | ((n >> 6) & 0x3F));
      str += static_cast<char>(0x80 | (n & 0x3F));
    }
  }
  return str;
}

WideString Wide(const std::string& strText) {
  WideString str;
  for (std::size_t n = 0; n < strText.size();) {
    const auto by = static_cast<unsigned char>(strText[n]);
    const std::size_t cb = by < 0x80 ? 1 : by < 0xE0 ? 2 : 3;
    unsigned nCode = cb == 1 ? by : by & (0xFFu >> (cb + 1));
    for (std::size_t i = 1; i < cb && n + i < strText.size(); ++i)
      nCode = nCode << 6 | (static_cast<unsigned char>(strText[n + i]) & 0x3Fu);
    str += static_cast<wchar_t>(nCode);
    n += cb;
  }
  return str;
}

bool SameText(const std::string& strLeft, const std::string& strRight) {
  if (strLeft.size() != strRight.size()) return false;
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  for (std::size_t n = 0; n < strLeft.size(); ++n)
    if (lower(strLeft[n]) != lower(strRight[n])) return false;
  return true;
}

std::string Format(const char* pszFormat, ...) {
  char szText[1024];
  va_list args;
  va_start(args, pszFormat);
  std::vsnprintf(szText, sizeof szText, pszFormat, args);
  va_end(args);
  return szText;
}

std::string Receipt(std::size_t cb, char cFirst) {
  std::string str;
  str.reserve(cb);
  for (std::size_t n = 0; n < cb; ++n)
    str +=
        n % 40 == 39 ? '\n' : static_cast<char>('A' + (static_cast<std::size_t>(cFirst - 'A') + n * 7 + n / 40) % 26);
  return str;
}

}  // namespace sim
