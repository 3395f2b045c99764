#include "tools/lmctl/log/log_line.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace lmctl {
namespace {

constexpr LocalMs kDayMs = 86'400'000;

// Days since a day in year 0, by the Gregorian calendar counted in years that begin with March.
std::int64_t DaysOf(std::int64_t nYear, int nMonth, int nDay) {
  if (nMonth <= 2) --nYear;
  const std::int64_t nEra = (nYear >= 0 ? nYear : nYear - 399) / 400;
  const std::int64_t nYearOfEra = nYear - nEra * 400;
  const std::int64_t nDayOfYear = (153 * (nMonth > 2 ? nMonth - 3 : nMonth + 9) + 2) / 5 + nDay - 1;
  return nEra * 146'097 + nYearOfEra * 365 + nYearOfEra / 4 - nYearOfEra / 100 + nDayOfYear;
}

bool Digits(const char* p, int nCount, int& nValue) {
  nValue = 0;
  for (int n = 0; n < nCount; ++n) {
    if (p[n] < '0' || p[n] > '9') return false;
    nValue = nValue * 10 + (p[n] - '0');
  }
  return true;
}

// Values of the lower-case hexadecimal digits; 0x80: no digit.
constexpr auto kHexDigits = [] {
  std::array<std::uint8_t, 256> digits{};
  for (unsigned n = 0; n < 256; ++n)
    digits[n] = static_cast<std::uint8_t>(n >= '0' && n <= '9' ? n - '0' : n >= 'a' && n <= 'f' ? n - 'a' + 10 : 0x80);
  return digits;
}();

bool Hex8(const char* p, std::uint32_t& nValue) {
  nValue = 0;
  unsigned nSeen = 0;
  for (int n = 0; n < 8; ++n) {
    const unsigned nDigit = kHexDigits[static_cast<unsigned char>(p[n])];
    nSeen |= nDigit;
    nValue = nValue << 4 | nDigit;
  }
  return (nSeen & 0x80) == 0;
}

// "[MM/DD hh:mm(ss.mmm)]\t[pppppppp(tttttttt)]\t[L] \t[TTTTTTT] \t": every column has its place.
constexpr std::size_t kProcessAt = 23;
constexpr std::size_t kThreadAt = 32;
constexpr std::size_t kLevelAt = 44;
constexpr std::size_t kTagAt = 49;
constexpr std::size_t kRoutineAt = 59;
constexpr std::string_view kTag = "DRV_LM ] \t";
constexpr std::string_view kTimeEnd = ")]\t[";  // behind a line's time, which takes so many characters:
constexpr std::size_t kTimeEndAt = 19;

bool HasTime(std::string_view line) {
  int n = 0;
  const char* const p = line.data();
  return line.size() > kRoutineAt && p[0] == '[' && p[3] == '/' && p[9] == ':' && Digits(p + 1, 2, n) &&
         Digits(p + 4, 2, n) && Digits(p + 13, 2, n);
}

// Where another line begins behind the rest of one that was cut off; npos: nowhere.
std::size_t LineInside(std::string_view line) {
  for (std::size_t nAt = line.find(kTimeEnd, kTimeEndAt + 1); nAt != std::string_view::npos;
       nAt = line.find(kTimeEnd, nAt + 1))
    if (nAt > kTimeEndAt && HasTime(line.substr(nAt - kTimeEndAt))) return nAt - kTimeEndAt;
  return std::string_view::npos;
}

LogLine ParseAlone(std::string_view line) {
  LogLine parsed;
  while (!line.empty() && line.front() == '*') {
    parsed.bHeld = true;
    line.remove_prefix(1);
  }
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  if (line.starts_with("<=== Log output here failed")) parsed.kind = LineKind::LostNote;
  if (line.size() < 2 || line[0] != '[' || line[1] < '0' || line[1] > '9') return parsed;
  if (line.size() <= kRoutineAt) {  // cut off within its columns
    parsed.kind = LineKind::LostNote;
    return parsed;
  }
  const char* p = line.data();
  int nMonth = 0, nDay = 0, nHour = 0, nMinute = 0, nSecond = 0, nMs = 0;
  if (p[3] != '/' || p[21] != '\t' || p[22] != '[' || p[42] != '\t' || p[43] != '[' || p[48] != '[') return parsed;
  if (!Digits(p + 1, 2, nMonth) || !Digits(p + 4, 2, nDay) || !Digits(p + 7, 2, nHour) || !Digits(p + 10, 2, nMinute) ||
      !Digits(p + 13, 2, nSecond) || !Digits(p + 16, 3, nMs))
    return parsed;
  if (nMonth < 1 || nMonth > 12 || nDay < 1 || nDay > 31 || nHour > 23 || nMinute > 59 || nSecond > 59) return parsed;
  if (!Hex8(p + kProcessAt, parsed.nProcess) || !Hex8(p + kThreadAt, parsed.nThread)) return parsed;
  if (line.compare(kTagAt, kTag.size(), kTag) != 0) return parsed;
  const std::size_t nOpen = line.find('(', kRoutineAt);
  const std::size_t nTab = nOpen == std::string_view::npos ? nOpen : line.find(") \t", nOpen);
  if (nTab == std::string_view::npos) {  // cut off before its message
    parsed.kind = LineKind::LostNote;
    return parsed;
  }
  parsed.kind = LineKind::Call;
  parsed.nMonth = static_cast<std::uint8_t>(nMonth);
  parsed.nDay = static_cast<std::uint8_t>(nDay);
  parsed.nMsOfDay = static_cast<std::uint32_t>(((nHour * 60 + nMinute) * 60 + nSecond) * 1000 + nMs);
  parsed.cLevel = p[kLevelAt];
  parsed.routine = line.substr(kRoutineAt, nOpen - kRoutineAt);
  parsed.message = line.substr(nTab + 3);
  return parsed;
}

}  // namespace

LocalMs MakeTime(int nYear, int nMonth, int nDay, int nHour, int nMinute, int nSecond, int nMs) {
  return DaysOf(nYear, nMonth, nDay) * kDayMs + ((nHour * 60LL + nMinute) * 60 + nSecond) * 1000 + nMs;
}

LocalParts Split(LocalMs llTime) {
  const std::int64_t nDays = llTime / kDayMs;
  const std::int64_t nRest = llTime % kDayMs;
  const std::int64_t nEra = nDays / 146'097;
  const std::int64_t nDayOfEra = nDays - nEra * 146'097;
  const std::int64_t nYearOfEra = (nDayOfEra - nDayOfEra / 1460 + nDayOfEra / 36'524 - nDayOfEra / 146'096) / 365;
  const std::int64_t nDayOfYear = nDayOfEra - (365 * nYearOfEra + nYearOfEra / 4 - nYearOfEra / 100);
  const std::int64_t nMonth = (5 * nDayOfYear + 2) / 153;
  LocalParts parts{};
  parts.nDay = static_cast<int>(nDayOfYear - (153 * nMonth + 2) / 5 + 1);
  parts.nMonth = static_cast<int>(nMonth < 10 ? nMonth + 3 : nMonth - 9);
  parts.nYear = static_cast<int>(nYearOfEra + nEra * 400 + (parts.nMonth <= 2 ? 1 : 0));
  parts.nHour = static_cast<int>(nRest / 3'600'000);
  parts.nMinute = static_cast<int>(nRest / 60'000 % 60);
  parts.nSecond = static_cast<int>(nRest / 1000 % 60);
  parts.nMs = static_cast<int>(nRest % 1000);
  return parts;
}

LocalMs LogLine::Time(int nFileYear, int nFileMonth) const {
  int nYear = nFileYear;
  if (nMonth == 12 && nFileMonth == 1) --nYear;
  if (nMonth == 1 && nFileMonth == 12) ++nYear;
  return DaysOf(nYear, nMonth, nDay) * kDayMs + nMsOfDay;
}

LogLine ParseLine(std::string_view line, bool bWhole) {
  LogLine parsed;
  if (!bWhole) {
    if (!line.empty()) parsed.kind = LineKind::LostNote;
    return parsed;
  }
  // One tab is left behind a line's columns, before its message.
  const std::size_t nFirst = std::min(line.find_first_not_of('*'), line.size());
  const bool bTabs = line.find('\t', std::min(line.size(), nFirst + kRoutineAt)) != line.rfind('\t');
  const std::size_t nInside =
      nFirst < line.size() && line[nFirst] == '[' && !bTabs ? std::string_view::npos : LineInside(line.substr(nFirst));
  if (nInside == std::string_view::npos) return ParseAlone(line);
  parsed = ParseAlone(line.substr(nFirst + nInside));
  parsed.bLostBefore = true;
  if (parsed.kind == LineKind::Other) parsed.kind = LineKind::LostNote;
  return parsed;
}

bool IsDayName(std::string_view name) {
  return name.size() == 8 && name.find_first_not_of("0123456789") == std::string_view::npos;
}

char LevelOf(std::string_view line) {
  while (!line.empty() && line.front() == '*') line.remove_prefix(1);
  const std::size_t nAt = line.find("\t[");
  const std::size_t nLevel = nAt == std::string_view::npos ? nAt : line.find("\t[", nAt + 1);
  return nLevel != std::string_view::npos && nLevel + 3 < line.size() && line[nLevel + 3] == ']' ? line[nLevel + 2]
                                                                                                 : '\0';
}

std::string_view Between(std::string_view text, std::string_view mark, std::string_view end) {
  const std::size_t nAt = text.find(mark);
  if (nAt == std::string_view::npos) return {};
  const std::size_t nStart = nAt + mark.size();
  const std::size_t nEnd = end.empty() ? std::string_view::npos : text.find(end, nStart);
  return text.substr(nStart, nEnd == std::string_view::npos ? nEnd : nEnd - nStart);
}

std::int64_t NumberAfter(std::string_view text, std::string_view mark, std::int64_t nDefault) {
  std::string_view rest = Between(text, mark, {});
  const bool bMinus = rest.starts_with('-');
  if (bMinus) rest.remove_prefix(1);
  const bool bHex = rest.starts_with("0x");
  if (bHex) rest.remove_prefix(2);
  // The log's numbers are of 32 bits; what garbage has in their place must not run over when it is added up either.
  constexpr std::size_t kMostDigits = 12;
  std::int64_t nValue = 0;
  std::size_t n = 0;
  for (; n < rest.size() && n < kMostDigits; ++n) {
    const auto c = static_cast<unsigned char>(rest[n]);
    const int nDigit = std::isdigit(c) ? c - '0' : bHex && std::isxdigit(c) ? std::tolower(c) - 'a' + 10 : -1;
    if (nDigit < 0) break;
    nValue = nValue * (bHex ? 16 : 10) + nDigit;
  }
  return n == 0 ? nDefault : bMinus ? -nValue : nValue;
}

}  // namespace lmctl
