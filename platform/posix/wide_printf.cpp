// printf into 16-bit characters, by the rules of the platform's C run-time: "%s" is a wide text, "%S" a narrow one, "l"
// counts 32 bits, and a result that does not leave room for the terminator is not terminated.
#include "scheduler.h"

#include <cstdio>
#include <cstring>

namespace w32 {
namespace {

// The output buffer: counts everything, stores what fits.
struct Sink {
  wchar_t* pszBuffer;
  std::size_t nCapacity;
  std::size_t nLength = 0;
  void Put(wchar_t wch) {
    if (nLength < nCapacity) pszBuffer[nLength] = wch;
    ++nLength;
  }
};

struct Field {
  bool bLeft = false;
  bool bPlus = false;
  bool bBlank = false;
  bool bAlternate = false;
  bool bZero = false;
  int nWidth = 0;
  int nPrecision = -1;
  bool bLongLong = false;
  bool bNarrow = false;
  bool bWide = false;
};

template <class Char>
void PutText(Sink& sink, const Field& field, const Char* psz) {
  std::size_t n = 0;
  while ((field.nPrecision < 0 || n < static_cast<std::size_t>(field.nPrecision)) && psz[n] != 0) ++n;
  const std::size_t nPad = static_cast<std::size_t>(field.nWidth) > n ? static_cast<std::size_t>(field.nWidth) - n : 0;
  if (!field.bLeft)
    for (std::size_t i = 0; i < nPad; ++i) sink.Put(L' ');
  for (std::size_t i = 0; i < n; ++i) {
    if constexpr (sizeof(Char) == 1)
      sink.Put(static_cast<unsigned char>(psz[i]));
    else
      sink.Put(psz[i]);
  }
  if (field.bLeft)
    for (std::size_t i = 0; i < nPad; ++i) sink.Put(L' ');
}

// Numbers have no wide particularities: the host formats them.
template <class Number>
void PutNumber(Sink& sink, const Field& field, const char* pszType, Number number) {
  char szFormat[48];
  std::snprintf(szFormat, sizeof szFormat, "%%%s%s%s%s%s*%s%s", field.bLeft ? "-" : "", field.bPlus ? "+" : "",
                field.bBlank ? " " : "", field.bAlternate ? "#" : "", field.bZero ? "0" : "",
                field.nPrecision >= 0 ? ".*" : "", pszType);
  char szText[512];
  const int n = field.nPrecision >= 0
                    ? std::snprintf(szText, sizeof szText, szFormat, field.nWidth, field.nPrecision, number)
                    : std::snprintf(szText, sizeof szText, szFormat, field.nWidth, number);
  if (n < 0 || static_cast<std::size_t>(n) >= sizeof szText) Unsupported("a number of more than 511 characters");
  for (int i = 0; i < n; ++i) sink.Put(static_cast<unsigned char>(szText[i]));
}

void Format(Sink& sink, const wchar_t* p, va_list args) {
  for (; *p != 0; ++p) {
    if (*p != L'%') {
      sink.Put(*p);
      continue;
    }
    ++p;
    Field field;
    for (;; ++p) {
      if (*p == L'-')
        field.bLeft = true;
      else if (*p == L'+')
        field.bPlus = true;
      else if (*p == L' ')
        field.bBlank = true;
      else if (*p == L'#')
        field.bAlternate = true;
      else if (*p == L'0')
        field.bZero = true;
      else
        break;
    }
    const auto number = [&](int& nValue) {
      if (*p == L'*') {
        nValue = va_arg(args, int);
        ++p;
        return;
      }
      nValue = 0;
      for (; *p >= L'0' && *p <= L'9'; ++p) nValue = nValue * 10 + (*p - L'0');
    };
    if (*p == L'*' || (*p >= L'1' && *p <= L'9')) number(field.nWidth);
    if (field.nWidth < 0) {
      field.bLeft = true;
      field.nWidth = -field.nWidth;
    }
    if (*p == L'.') {
      ++p;
      number(field.nPrecision);
    }
    if (*p == L'l' && p[1] == L'l') {
      field.bLongLong = true;
      p += 2;
    } else if (*p == L'I' && p[1] == L'6' && p[2] == L'4') {
      field.bLongLong = true;
      p += 3;
    } else if (*p == L'h') {
      field.bNarrow = true;
      ++p;
    } else if (*p == L'l' || *p == L'w') {
      field.bWide = true;
      ++p;
    }
    switch (*p) {
      case L'%': sink.Put(L'%'); break;
      case L'c': {
        const wchar_t sz[2] = {static_cast<wchar_t>(va_arg(args, int)), 0};
        PutText(sink, field, sz);
        break;
      }
      case L's':
      case L'S': {
        const bool bNarrow = field.bNarrow || (*p == L'S' && !field.bWide);
        const void* pText = va_arg(args, const void*);
        if (pText == nullptr)
          PutText(sink, field, L"(null)");
        else if (bNarrow)
          PutText(sink, field, static_cast<const char*>(pText));
        else
          PutText(sink, field, static_cast<const wchar_t*>(pText));
        break;
      }
      case L'd':
      case L'i':
        if (field.bLongLong)
          PutNumber(sink, field, "lld", va_arg(args, long long));
        else
          PutNumber(sink, field, "d", va_arg(args, int));
        break;
      case L'u':
      case L'x':
      case L'X': {
        const char szType[2] = {static_cast<char>(*p), 0};
        const std::string strLong = std::string("ll") + szType;
        if (field.bLongLong)
          PutNumber(sink, field, strLong.c_str(), va_arg(args, unsigned long long));
        else
          PutNumber(sink, field, szType, va_arg(args, unsigned));
        break;
      }
      default: Unsupported(("conversion of wide printf ending in " + ToUtf8(p)).c_str());
    }
  }
}

}  // namespace
}  // namespace w32

extern "C" {

int _vsnwprintf(wchar_t* pszBuffer, size_t nCount, const wchar_t* pszFormat, va_list args) {
  w32::Sink sink{pszBuffer, nCount};
  w32::Format(sink, pszFormat, args);
  if (sink.nLength > nCount) return -1;
  if (sink.nLength < nCount) pszBuffer[sink.nLength] = 0;
  return static_cast<int>(sink.nLength);
}

int _snwprintf(wchar_t* pszBuffer, size_t nCount, const wchar_t* pszFormat, ...) {
  va_list args;
  va_start(args, pszFormat);
  const int n = _vsnwprintf(pszBuffer, nCount, pszFormat, args);
  va_end(args);
  return n;
}

}  // extern "C"
