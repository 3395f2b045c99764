// The one front end through which every routine reports, and Assert for broken invariants.
//
// A line of the log is one line of code: LogE(L"OpenPrinter [err:%d, PrinterName:%s]", dwError, pszPrinterName);
// The macros add level, module, routine, source place, process and thread, and evaluate nothing of it while the level is
// off. Each folder of the product says once which module it reports as: LOG_MODULE in its log_module.h.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>

#include "log/assert.h"
#include "log/level.h"

// Writes one line, stores one trace record or drops the call, as the level mask says. Never fails towards its caller and
// leaves the thread's last-error code as it found it. Any thread, any time while the module is loaded.
//   dwLevel        one level bit
//   pszModule      module pair: tag, NUL, log folder name, NUL; null for the pair remembered at process attach
//   pszRoutine     name of the calling routine, printed with the line number; a text that stays while the module is loaded
//   pszSourceFile  accepted and not printed
//   pwszFormat     wide printf format; "%s" takes wide texts. A message holds at most 5,119 characters; a longer one
//                  gives no line.
void OutputLogEx(DWORD dwLevel, const char* pszModule, const char* pszRoutine, const char* pszSourceFile, int nLine,
                 DWORD dwProcessId, DWORD dwThreadId, const wchar_t* pwszFormat, ...) noexcept;

// An address as the formats print it ("0x%08x"): its low 32 bits.
inline DWORD LogAddress(const volatile void* p) noexcept {
  return static_cast<DWORD>(reinterpret_cast<std::uintptr_t>(p));
}

namespace log_detail {

template <std::size_t N>
struct RoutineText {
  char sz[N]{};
};

// "Class::Method" or "Routine", cut at compile time out of the compiler's full signature text.
template <std::size_t N>
consteval RoutineText<N> RoutineName(const char (&szSignature)[N]) {
  constexpr char kClangAnonymous[] = "(anonymous";
  std::size_t nEnd = 0;
  for (; nEnd < N - 1; ++nEnd) {
    if (szSignature[nEnd] != '(') continue;
    std::size_t nSame = 0;
    while (nSame + 1 < sizeof kClangAnonymous && nEnd + nSame < N &&
           szSignature[nEnd + nSame] == kClangAnonymous[nSame])
      ++nSame;
    if (nSame + 1 != sizeof kClangAnonymous) break;  // the parameter list opens here
  }
  std::size_t nStart = nEnd;
  while (nStart > 0) {
    const char c = szSignature[nStart - 1];
    const bool bAnonymousEnd =
        c == ':' && nStart > 2 && (szSignature[nStart - 3] == '}' || szSignature[nStart - 3] == ')');
    if (c == ' ' || c == '*' || c == '&' || bAnonymousEnd) break;
    --nStart;
  }
  RoutineText<N> text;
  for (std::size_t n = nStart; n < nEnd; ++n) text.sz[n - nStart] = szSignature[n];
  return text;
}

}  // namespace log_detail

// A helper that is a piece of a larger routine reports under that routine's name: LOG_AS("MonWritePort"); at its top.
struct LogReportsAs {
  static constexpr const char* Name() noexcept { return nullptr; }
};
// (Hiding the general record by a local one is the mechanism, so the warning about it is off for this one line.)
// clang-format off
#define LOG_AS(szRoutine)                                                \
  _Pragma("GCC diagnostic push")                                         \
  _Pragma("GCC diagnostic ignored \"-Wshadow\"")                         \
  struct LogReportsAs {                                                  \
    static constexpr const char* Name() noexcept { return (szRoutine); } \
  };                                                                     \
  _Pragma("GCC diagnostic pop")                                          \
  static_assert(true)
// clang-format on

#define LOG_ROUTINE (LogReportsAs::Name() != nullptr ? LogReportsAs::Name() : kLogRoutine.sz)

#define LOG_LINE(dwLevel, ...)                                                                     \
  do {                                                                                             \
    static constexpr auto kLogRoutine = log_detail::RoutineName(__PRETTY_FUNCTION__);              \
    const DWORD dwLineLevel = (dwLevel);                                                           \
    if (IsLogWanted(dwLineLevel))                                                                  \
      OutputLogEx(dwLineLevel, LOG_MODULE, LOG_ROUTINE, __FILE__, __LINE__, GetCurrentProcessId(), \
                  GetCurrentThreadId(), __VA_ARGS__);                                              \
  } while (false)

#define LogE(...) LOG_LINE(LOG_LEVEL_E, __VA_ARGS__)
#define LogW(...) LOG_LINE(LOG_LEVEL_W, __VA_ARGS__)
#define LogI(...) LOG_LINE(LOG_LEVEL_I, __VA_ARGS__)
#define LogD(...) LOG_LINE(LOG_LEVEL_D, __VA_ARGS__)
#define LogT(...) LOG_LINE(LOG_LEVEL_T, __VA_ARGS__)

// The entry line of a routine that has nothing to tell: an empty message.
#define LogEntry() LOG_LINE(LOG_LEVEL_T, L"%s", L"")

#define AssertHere()                                                                  \
  do {                                                                                \
    static constexpr auto kLogRoutine = log_detail::RoutineName(__PRETTY_FUNCTION__); \
    Assert(__FILE__, LOG_ROUTINE, __LINE__, GetLastError());                          \
  } while (false)
