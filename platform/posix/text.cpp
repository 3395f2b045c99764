// Wide-character routines, code pages and debugger output.
#include "scheduler.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace w32 {
namespace {

// Windows-1252, bytes 0x80 to 0x9F; 0 marks the five bytes that the code page leaves as they are.
constexpr std::array<char16_t, 32> kCodePage1252 = {0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                                    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0,      0x017D, 0,
                                                    0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                                    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

unsigned char ToAnsiByte(wchar_t wch) {
  const auto n = static_cast<unsigned>(wch);
  if (n < 0x80 || (n >= 0xA0 && n <= 0xFF)) return static_cast<unsigned char>(n);
  for (std::size_t i = 0; i < kCodePage1252.size(); ++i)
    if (kCodePage1252[i] == n || (kCodePage1252[i] == 0 && n == 0x80 + i)) return static_cast<unsigned char>(0x80 + i);
  return '?';
}

wchar_t FromAnsiByte(unsigned char by) {
  if (by < 0x80 || by >= 0xA0) return by;
  const char16_t wch = kCodePage1252[by - 0x80];
  return static_cast<wchar_t>(wch != 0 ? wch : by);
}

wchar_t Lower(wchar_t wch) { return wch >= L'A' && wch <= L'Z' ? static_cast<wchar_t>(wch + 32) : wch; }

bool IsHigh(wchar_t wch) { return (wch & 0xFC00) == 0xD800; }
bool IsLow(wchar_t wch) { return (wch & 0xFC00) == 0xDC00; }

std::atomic<void (*)(const std::string&)> g_pfnDebugSink{nullptr};

}  // namespace

std::string ToUtf8(const wchar_t* pszText) {
  if (pszText == nullptr) return {};
  std::string str(3 * wcslen(pszText), '\0');  // a pair of two units becomes four bytes
  char* pTo = str.data();
  const auto put = [&](std::uint32_t n) { *pTo++ = static_cast<char>(n); };
  for (const wchar_t* p = pszText; *p != 0; ++p) {
    std::uint32_t n = static_cast<std::uint16_t>(*p);
    if (IsHigh(*p) && IsLow(p[1])) {
      n = 0x10000 + ((n - 0xD800) << 10) + (static_cast<std::uint16_t>(p[1]) - 0xDC00u);
      ++p;
    }
    if (n < 0x80) {
      put(n);
      continue;
    }
    if (n < 0x800) {
      put(0xC0 | (n >> 6));
    } else if (n < 0x10000) {
      put(0xE0 | (n >> 12));
      put(0x80 | ((n >> 6) & 0x3F));
    } else {
      put(0xF0 | (n >> 18));
      put(0x80 | ((n >> 12) & 0x3F));
      put(0x80 | ((n >> 6) & 0x3F));
    }
    put(0x80 | (n & 0x3F));
  }
  str.resize(static_cast<std::size_t>(pTo - str.data()));
  return str;
}

void SetDebugSink(void (*pfnSink)(const std::string&)) noexcept { g_pfnDebugSink = pfnSink; }

}  // namespace w32

using namespace w32;

extern "C" {

size_t wcslen(const wchar_t* pszText) noexcept(true) {
  size_t n = 0;
  while (pszText[n] != 0) ++n;
  return n;
}

int wcscmp(const wchar_t* pszLeft, const wchar_t* pszRight) noexcept(true) {
  while (*pszLeft != 0 && *pszLeft == *pszRight) ++pszLeft, ++pszRight;
  return static_cast<int>(*pszLeft) - static_cast<int>(*pszRight);
}

int wcsncmp(const wchar_t* pszLeft, const wchar_t* pszRight, size_t nCount) noexcept(true) {
  for (; nCount > 0; --nCount, ++pszLeft, ++pszRight)
    if (*pszLeft != *pszRight || *pszLeft == 0) return static_cast<int>(*pszLeft) - static_cast<int>(*pszRight);
  return 0;
}

int _wcsicmp(const wchar_t* pszLeft, const wchar_t* pszRight) {
  while (*pszLeft != 0 && Lower(*pszLeft) == Lower(*pszRight)) ++pszLeft, ++pszRight;
  return static_cast<int>(Lower(*pszLeft)) - static_cast<int>(Lower(*pszRight));
}

int _wcsnicmp(const wchar_t* pszLeft, const wchar_t* pszRight, size_t nCount) {
  for (; nCount > 0; --nCount, ++pszLeft, ++pszRight)
    if (Lower(*pszLeft) != Lower(*pszRight) || *pszLeft == 0)
      return static_cast<int>(Lower(*pszLeft)) - static_cast<int>(Lower(*pszRight));
  return 0;
}

int WINAPI WideCharToMultiByte(UINT CodePage, DWORD, LPCWSTR lpWideCharStr, int cchWideChar, LPSTR lpMultiByteStr,
                               int cbMultiByte, LPCSTR lpDefaultChar, LPBOOL lpUsedDefaultChar) {
  if (CodePage != CP_ACP) Unsupported("WideCharToMultiByte with another code page than CP_ACP");
  if (lpDefaultChar != nullptr || lpUsedDefaultChar != nullptr) Unsupported("a default character of one's own");
  PlatformCall();
  if (FaultHere("WideCharToMultiByte", ERROR_NO_UNICODE_TRANSLATION)) return 0;
  const int cch = cchWideChar < 0 ? static_cast<int>(wcslen(lpWideCharStr)) + 1 : cchWideChar;
  int cb = 0;
  for (int n = 0; n < cch; ++n) {
    unsigned char by = ToAnsiByte(lpWideCharStr[n]);
    if (cbMultiByte != 0) {
      if (cb >= cbMultiByte) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
      }
      lpMultiByteStr[cb] = static_cast<char>(by);
    }
    ++cb;
  }
  return cb;
}

int WINAPI MultiByteToWideChar(UINT CodePage, DWORD, LPCSTR lpMultiByteStr, int cbMultiByte, LPWSTR lpWideCharStr,
                               int cchWideChar) {
  if (CodePage != CP_ACP) Unsupported("MultiByteToWideChar with another code page than CP_ACP");
  PlatformCall();
  if (FaultHere("MultiByteToWideChar", ERROR_NO_UNICODE_TRANSLATION)) return 0;
  const int cb = cbMultiByte < 0 ? static_cast<int>(std::strlen(lpMultiByteStr)) + 1 : cbMultiByte;
  if (cchWideChar == 0) return cb;
  if (cb > cchWideChar) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return 0;
  }
  for (int n = 0; n < cb; ++n) lpWideCharStr[n] = FromAnsiByte(static_cast<unsigned char>(lpMultiByteStr[n]));
  return cb;
}

VOID WINAPI OutputDebugStringW(LPCWSTR lpOutputString) {
  const std::string strText = ToUtf8(lpOutputString);
  if (auto* pfnSink = g_pfnDebugSink.load())
    pfnSink(strText);
  else
    std::fprintf(stderr, "[debugger] %s\n", strText.c_str());
}

}  // extern "C"
