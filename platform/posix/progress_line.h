// How far something is that has many runs: one line on the terminal, nothing where there is none.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace w32 {

class ProgressLine {
 public:
  explicit ProgressLine(std::string strWhat);
  ~ProgressLine();  // wipes the line
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  // Whether it is time to show something, so that an estimate that costs is made twice a second at most.
  bool IsDue();
  void Show(std::uint64_t ullDone, double dLeft);
  double Seconds() const;  // since it began

 private:
  using Clock = std::chrono::steady_clock;
  const std::string m_strWhat;
  const Clock::time_point m_begin = Clock::now();
  Clock::time_point m_shown;
};

}  // namespace w32
