// Texts of the simulated world: UTF-8 inside, wide at the Win32 boundary.
#pragma once

#include <windows.h>

#include <cstring>
#include <string>

namespace sim {

// Traits over 16-bit wchar_t that call nothing of the C library, whose own wide routines may count 32 bits.
struct WideTraits : std::char_traits<wchar_t> {
  static std::size_t length(const wchar_t* p) {
    std::size_t n = 0;
    while (p[n] != 0) ++n;
    return n;
  }
  static int compare(const wchar_t* pLeft, const wchar_t* pRight, std::size_t n) {
    for (std::size_t i = 0; i < n; ++i)
      if (pLeft[i] != pRight[i]) return pLeft[i] < pRight[i] ? -1 : 1;
    return 0;
  }
  static wchar_t* copy(wchar_t* pTo, const wchar_t* pFrom, std::size_t n) {
    std::memcpy(pTo, pFrom, n * sizeof(wchar_t));
    return pTo;
  }
  static wchar_t* move(wchar_t* pTo, const wchar_t* pFrom, std::size_t n) {
    std::memmove(pTo, pFrom, n * sizeof(wchar_t));
    return pTo;
  }
  static wchar_t* assign(wchar_t* p, std::size_t n, wchar_t wch) {
    for (std::size_t i = 0; i < n; ++i) p[i] = wch;
    return p;
  }
  static void assign(wchar_t& left, const wchar_t& right) { left = right; }
  static const wchar_t* find(const wchar_t* p, std::size_t n, const wchar_t& wch) {
    for (std::size_t i = 0; i < n; ++i)
      if (p[i] == wch) return p + i;
    return nullptr;
  }
};
using WideString = std::basic_string<wchar_t, WideTraits>;

std::string Narrow(const wchar_t* pszText);
WideString Wide(const std::string& strText);
bool SameText(const std::string& strLeft, const std::string& strRight);  // without regard to the case of A to Z
// Printable text of a size, with line ends; no byte of it is part of a printer request or a real-time command.
std::string Receipt(std::size_t cb, char cFirst = 'A');
std::string Format(const char* pszFormat, ...) __attribute__((format(printf, 1, 2)));

}  // namespace sim
