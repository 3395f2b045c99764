#include "tools/lmctl/log/text_encoding.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#ifdef _WIN32
#include <windows.h>
#else
#include <iconv.h>
#endif

namespace lmctl {
namespace {

bool IsShown(char32_t n) {
  return n >= 0x20 && !(n >= 0x7F && n < 0xA0) && n != 0x61C && n != 0x200E && n != 0x200F &&
         !(n >= 0x202A && n <= 0x202E) && !(n >= 0x2066 && n <= 0x2069);
}

[[noreturn]] void UnknownEncoding(const std::string& strName) {
  throw std::invalid_argument("\"" + strName +
                              "\" is no code page that is known here: write cp1252, cp850, cp932 or utf-8");
}

#ifdef _WIN32

UINT g_nCodePage = CP_ACP;

#else

void AppendUtf8(std::string& str, char32_t n) {
  if (n < 0x80) {
    str += static_cast<char>(n);
    return;
  }
  const int nMore = n < 0x800 ? 1 : n < 0x10000 ? 2 : 3;
  constexpr unsigned char kLead[] = {0, 0xC0, 0xE0, 0xF0};
  str += static_cast<char>(kLead[nMore] | n >> (6 * nMore));
  for (int i = nMore - 1; i >= 0; --i) str += static_cast<char>(0x80 | (n >> (6 * i) & 0x3F));
}

iconv_t& Converter() {
  static iconv_t converter = iconv_open("UTF-32LE", "CP1252");
  return converter;
}

#endif

}  // namespace

void SetLogEncoding(const std::string& strName) {
  if (strName.empty()) return;
#ifdef _WIN32
  const bool bNumber = strName.starts_with("cp") && strName.size() > 2 && strName.size() < 8 &&
                       strName.find_first_not_of("0123456789", 2) == std::string::npos;
  const UINT nCodePage = strName == "utf-8" ? CP_UTF8 : bNumber ? static_cast<UINT>(std::stoul(strName.substr(2))) : 0;
  CPINFO info;
  if (nCodePage == 0 || !GetCPInfo(nCodePage, &info)) UnknownEncoding(strName);
  g_nCodePage = nCodePage;
#else
  iconv_t converter = iconv_open("UTF-32LE", strName.c_str());
  if (converter == reinterpret_cast<iconv_t>(-1)) UnknownEncoding(strName);
  iconv_close(Converter());
  Converter() = converter;
#endif
}

std::string ToUtf8(std::string_view text) {
  if (std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c < '\x7F'; })) return std::string(text);
#ifdef _WIN32
  const int cb = static_cast<int>(text.size());
  std::wstring wide(text.size(), L'\0');
  wide.resize(
      static_cast<std::size_t>(std::max(0, MultiByteToWideChar(g_nCodePage, 0, text.data(), cb, wide.data(), cb))));
  std::erase_if(wide, [](wchar_t c) { return !IsShown(c); });
  std::string str(wide.size() * 3, '\0');
  str.resize(static_cast<std::size_t>(
      wide.empty() ? 0
                   : WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), str.data(),
                                         static_cast<int>(str.size()), nullptr, nullptr)));
  return str;
#else
  std::string str;
  char* pIn = const_cast<char*>(text.data());
  std::size_t cbIn = text.size();
  iconv(Converter(), nullptr, nullptr, nullptr, nullptr);
  while (cbIn > 0) {
    unsigned char abyOut[256];
    char* pOut = reinterpret_cast<char*>(abyOut);
    std::size_t cbOut = sizeof abyOut;
    const bool bWell = iconv(Converter(), &pIn, &cbIn, &pOut, &cbOut) != static_cast<std::size_t>(-1);
    const int nError = errno;
    for (std::size_t n = 0; n + 4 <= sizeof abyOut - cbOut; n += 4) {
      char32_t nChar = 0;
      std::memcpy(&nChar, abyOut + n, sizeof nChar);  // the machines that this runs on are little-endian
      if (IsShown(nChar)) AppendUtf8(str, nChar);
    }
    if (bWell || nError == E2BIG) continue;
    ++pIn;  // a byte that stands for nothing
    --cbIn;
  }
  return str;
#endif
}

std::string Printable(std::string_view utf8) {
  std::string str;
  for (std::size_t n = 0; n < utf8.size();) {
    const auto by = static_cast<unsigned char>(utf8[n]);
    const std::size_t cb = std::min<std::size_t>(by < 0xC0 ? 1 : by < 0xE0 ? 2 : by < 0xF0 ? 3 : 4, utf8.size() - n);
    char32_t nChar = cb == 1 ? by : by & (0x7Fu >> cb);
    for (std::size_t i = 1; i < cb; ++i) nChar = nChar << 6 | (static_cast<unsigned char>(utf8[n + i]) & 0x3F);
    if (IsShown(nChar)) str.append(utf8.substr(n, cb));
    n += cb;
  }
  return str;
}

}  // namespace lmctl
