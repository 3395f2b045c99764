#include "progress_line.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace w32 {

ProgressLine::ProgressLine(std::string strWhat) : m_strWhat(std::move(strWhat)) {}

ProgressLine::~ProgressLine() {
  if (m_shown != Clock::time_point()) std::fprintf(stderr, "\r%79s\r", "");
}

bool ProgressLine::IsDue() {
  return isatty(STDERR_FILENO) != 0 && Clock::now() - m_shown >= std::chrono::milliseconds(500);
}

void ProgressLine::Show(std::uint64_t ullDone, double dLeft) {
  m_shown = Clock::now();
  const double dRate = std::max(0.001, static_cast<double>(ullDone) / std::max(0.001, Seconds()));
  std::fprintf(stderr, "\r%s: %llu, %.0f a second, about %.0f s left    ", m_strWhat.c_str(),
               static_cast<unsigned long long>(ullDone), dRate, dLeft / dRate);
}

double ProgressLine::Seconds() const { return std::chrono::duration<double>(Clock::now() - m_begin).count(); }

}  // namespace w32
