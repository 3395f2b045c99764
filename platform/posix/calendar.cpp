// Dates. The local time is the layer's clock; there is no time zone.
#include "scheduler.h"

namespace w32 {
namespace {

constexpr std::uint64_t kTicksPerDay = 86'400'000 * kTicksPerMs;

// Days since 1 January 1601 and back, by the Gregorian calendar counted in years that begin with March.
std::int64_t DaysOf(std::int64_t nYear, unsigned nMonth, unsigned nDay) {
  if (nMonth <= 2) --nYear;
  const std::int64_t nEra = nYear / 400;
  const auto nYearOfEra = static_cast<unsigned>(nYear - nEra * 400);
  const unsigned nDayOfYear = (153 * (nMonth > 2 ? nMonth - 3 : nMonth + 9) + 2) / 5 + nDay - 1;
  return nEra * 146'097 + nYearOfEra * 365 + nYearOfEra / 4 - nYearOfEra / 100 + nDayOfYear - 584'694;
}

void DateOf(std::int64_t nDays, SYSTEMTIME& st) {
  const std::int64_t nShifted = nDays + 584'694;
  const std::int64_t nEra = nShifted / 146'097;
  const auto nDayOfEra = static_cast<unsigned>(nShifted - nEra * 146'097);
  const unsigned nYearOfEra = (nDayOfEra - nDayOfEra / 1460 + nDayOfEra / 36'524 - nDayOfEra / 146'096) / 365;
  const unsigned nDayOfYear = nDayOfEra - (365 * nYearOfEra + nYearOfEra / 4 - nYearOfEra / 100);
  const unsigned nMonth = (5 * nDayOfYear + 2) / 153;
  st.wDay = static_cast<WORD>(nDayOfYear - (153 * nMonth + 2) / 5 + 1);
  st.wMonth = static_cast<WORD>(nMonth < 10 ? nMonth + 3 : nMonth - 9);
  st.wYear = static_cast<WORD>(nYearOfEra + nEra * 400 + (st.wMonth <= 2 ? 1 : 0));
  st.wDayOfWeek = static_cast<WORD>((nDays + 1) % 7);  // 1 January 1601 was a Monday
}

void Split(std::uint64_t ullTicks, SYSTEMTIME& st) {
  DateOf(static_cast<std::int64_t>(ullTicks / kTicksPerDay), st);
  const auto nMs = static_cast<unsigned>(ullTicks % kTicksPerDay / kTicksPerMs);
  st.wHour = static_cast<WORD>(nMs / 3'600'000);
  st.wMinute = static_cast<WORD>(nMs / 60'000 % 60);
  st.wSecond = static_cast<WORD>(nMs / 1000 % 60);
  st.wMilliseconds = static_cast<WORD>(nMs % 1000);
}

}  // namespace
}  // namespace w32

using namespace w32;

extern "C" {

VOID WINAPI GetLocalTime(LPSYSTEMTIME lpSystemTime) {
  PlatformCall();
  Split(Scheduler::Get().LocalTicks(), *lpSystemTime);
}

BOOL WINAPI SystemTimeToFileTime(const SYSTEMTIME* lpSystemTime, LPFILETIME lpFileTime) {
  const SYSTEMTIME& st = *lpSystemTime;
  SYSTEMTIME check{};
  const bool bPossible = st.wYear >= 1601 && st.wYear <= 30827 && st.wMonth >= 1 && st.wMonth <= 12 && st.wDay >= 1 &&
                         st.wHour < 24 && st.wMinute < 60 && st.wSecond < 60 && st.wMilliseconds < 1000;
  const std::int64_t nDays = bPossible ? DaysOf(st.wYear, st.wMonth, st.wDay) : 0;
  if (bPossible) DateOf(nDays, check);
  if (!bPossible || check.wDay != st.wDay || check.wMonth != st.wMonth) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return FALSE;
  }
  const std::uint64_t ullMs = ((st.wHour * 60ULL + st.wMinute) * 60 + st.wSecond) * 1000 + st.wMilliseconds;
  const std::uint64_t ullTicks = static_cast<std::uint64_t>(nDays) * kTicksPerDay + ullMs * kTicksPerMs;
  *lpFileTime = {static_cast<DWORD>(ullTicks), static_cast<DWORD>(ullTicks >> 32)};
  return TRUE;
}

BOOL WINAPI FileTimeToSystemTime(const FILETIME* lpFileTime, LPSYSTEMTIME lpSystemTime) {
  Split((static_cast<std::uint64_t>(lpFileTime->dwHighDateTime) << 32) | lpFileTime->dwLowDateTime, *lpSystemTime);
  return TRUE;
}

}  // extern "C"
