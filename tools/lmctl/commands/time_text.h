// A point in time as people write it on a command line.
#pragma once

#include <string>

#include "tools/lmctl/log/log_line.h"

namespace lmctl {

// What a text means: a moment, or a day from its first millisecond to its last.
struct TimeSpan {
  LocalMs llFirst;
  LocalMs llLast;
};

// 2026-11-25, 2026-11-25T09:00[:00], 09:00[:00] of today, yesterday [09:00], or a time back from now: 90m, 2h, 3d.
// Throws std::invalid_argument, with an example, for anything else, a day or an hour that there is not included.
TimeSpan ParseTime(const std::string& strText, LocalMs llNow);

}  // namespace lmctl
