// One line of the log, taken apart. Pure; the texts point into the line.
#pragma once

#include <cstdint>
#include <string_view>

namespace lmctl {

// Milliseconds since 1 January of year 0 in the Gregorian calendar, local time; 0: none.
using LocalMs = std::int64_t;

LocalMs MakeTime(int nYear, int nMonth, int nDay, int nHour, int nMinute, int nSecond, int nMs);
struct LocalParts {
  int nYear, nMonth, nDay, nHour, nMinute, nSecond, nMs;
};
LocalParts Split(LocalMs llTime);

enum class LineKind {
  Call,      // a call of this system, all columns there
  LostNote,  // lines were lost here: the log says so, or one was cut off
  Other,     // header, trace record, another module's line, garbage
};

struct LogLine {
  LineKind kind = LineKind::Other;
  bool bHeld = false;        // written later than it was logged
  bool bLostBefore = false;  // it stands behind the rest of a line that was cut off
  std::uint8_t nMonth = 0, nDay = 0;
  std::uint32_t nMsOfDay = 0;
  std::uint32_t nProcess = 0, nThread = 0;
  char cLevel = 0;
  std::string_view routine;
  std::string_view message;

  // The line carries no year; the file's date gives it. A line of the turn of the year may belong to the year beside it.
  LocalMs Time(int nFileYear, int nFileMonth) const;
};

// bWhole: it has an end. (Without one, its writer did not get to it.)
LogLine ParseLine(std::string_view line, bool bWhole = true);

// Whether a name is a day's, yyyymmdd: log files begin with one, folders of an archive are one.
bool IsDayName(std::string_view name);

// The level letter of any line that has a level column, 0 for others.
char LevelOf(std::string_view line);

// The text behind a mark up to an end; empty when the mark is not there. Without the end, the rest.
std::string_view Between(std::string_view text, std::string_view mark, std::string_view end);
// The number behind a mark, decimal or 0x…; nDefault when there is none.
std::int64_t NumberAfter(std::string_view text, std::string_view mark, std::int64_t nDefault);

}  // namespace lmctl
