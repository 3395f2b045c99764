#include "tools/lmctl/commands/time_text.h"

#include <cstdio>
#include <optional>
#include <stdexcept>

namespace lmctl {
namespace {

constexpr LocalMs kDay = 86'400'000;
constexpr long kMostBack = 1'000'000;  // of any unit

// A day's beginning; none for 2026-13-45.
std::optional<LocalMs> DayOf(int nYear, int nMonth, int nDay) {
  if (nYear < 1601 || nMonth < 1 || nMonth > 12 || nDay < 1 || nDay > 31) return std::nullopt;
  const LocalMs ll = MakeTime(nYear, nMonth, nDay, 0, 0, 0, 0);
  const LocalParts parts = Split(ll);
  return parts.nMonth == nMonth && parts.nDay == nDay ? std::optional(ll) : std::nullopt;
}

// "09:00" or "09:00:30"; none for 24:61.
std::optional<LocalMs> ClockOf(const std::string& strText) {
  int nHour = 0, nMinute = 0, nSecond = 0;
  char cRest = 0;
  const int nRead = std::sscanf(strText.c_str(), "%2d:%2d:%2d%c", &nHour, &nMinute, &nSecond, &cRest);
  const bool bShort = nRead == 2 && std::sscanf(strText.c_str(), "%2d:%2d%c", &nHour, &nMinute, &cRest) == 2;
  if ((nRead != 3 && !bShort) || nHour < 0 || nHour > 23 || nMinute < 0 || nMinute > 59 || nSecond < 0 || nSecond > 59)
    return std::nullopt;
  return ((nHour * 60 + nMinute) * 60 + nSecond) * LocalMs{1000};
}

std::optional<TimeSpan> DayAndClock(std::optional<LocalMs> llDay, const std::string& strClock) {
  if (!llDay) return std::nullopt;
  if (strClock.empty()) return TimeSpan{*llDay, *llDay + kDay - 1};
  const auto llClock = ClockOf(strClock.substr(1));
  if ((strClock[0] != ' ' && strClock[0] != 'T') || !llClock) return std::nullopt;
  return TimeSpan{*llDay + *llClock, *llDay + *llClock};
}

std::optional<TimeSpan> Parse(const std::string& strText, LocalMs llNow) {
  constexpr std::size_t kDate = 10;  // "2026-11-25"
  const LocalParts now = Split(llNow);
  const LocalMs llToday = MakeTime(now.nYear, now.nMonth, now.nDay, 0, 0, 0, 0);
  int nYear = 0, nMonth = 0, nDay = 0, nUsed = 0;
  if (std::sscanf(strText.c_str(), "%4d-%2d-%2d%n", &nYear, &nMonth, &nDay, &nUsed) == 3 && nUsed == kDate)
    return DayAndClock(DayOf(nYear, nMonth, nDay), strText.substr(kDate));
  for (const auto& [strName, llDay] : {std::pair(std::string("today"), llToday), {"yesterday", llToday - kDay}})
    if (strText.starts_with(strName)) return DayAndClock(llDay, strText.substr(strName.size()));
  if (const auto llClock = ClockOf(strText)) return TimeSpan{llToday + *llClock, llToday + *llClock};
  long nBack = 0;
  char cUnit = 0, cRest = 0;
  if (std::sscanf(strText.c_str(), "%7ld%c%c", &nBack, &cUnit, &cRest) == 2 && nBack >= 0 && nBack <= kMostBack) {
    const LocalMs llUnit = cUnit == 'm' ? 60'000 : cUnit == 'h' ? 3'600'000 : cUnit == 'd' ? kDay : 0;
    if (llUnit != 0) return TimeSpan{llNow - nBack * llUnit, llNow - nBack * llUnit};
  }
  return std::nullopt;
}

}  // namespace

TimeSpan ParseTime(const std::string& strText, LocalMs llNow) {
  if (const auto span = Parse(strText, llNow)) return *span;
  throw std::invalid_argument(
      "\"" + strText +
      "\" is no time: write 2026-11-25, 2026-11-25T09:00, 09:00, \"yesterday 14:00\", or 2h for "
      "two hours back");
}

}  // namespace lmctl
