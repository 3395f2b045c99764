// How long dated folders and files stay. Ages are compared in the high 32 bits of a file time: one unit is 2^32 x 100 ns,
// about 429.5 seconds.
#pragma once

#include <windows.h>

// Units of about a day, 24 h 5 min 58 s.
constexpr DWORD kRetentionUnitsPerDay = 202;

// Age limit in units for a retention in days: 0 keeps nothing older than the current unit, 1 to 89 (and, by the same
// unsigned arithmetic, any negative number) keep one day more than they say, 90 and above keep 18,181 units.
constexpr DWORD RetentionUnits(LONG nDays) noexcept {
  if (nDays == 0) return 0;
  if (nDays >= 90) return 18181;
  return (static_cast<DWORD>(nDays) + 1) * kRetentionUnitsPerDay;
}

// The high 32 bits of a local time as a file time; 0 for a time that is none.
inline DWORD FileTimeHigh(const SYSTEMTIME& st) noexcept {
  FILETIME ft{};
  return SystemTimeToFileTime(&st, &ft) ? ft.dwHighDateTime : 0;
}
