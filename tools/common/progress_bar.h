// How far something is: a bar that is redrawn on a terminal.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace lmtools {

class ProgressBar {
 public:
  enum class Kind {
    Result,   // a part of what the program tells: on standard output, in plain lines where that is no terminal
    Patience  // for who waits: on standard error if that is a terminal, after the first second, wiped at the end
  };
  ProgressBar(std::string strName, Kind kind);
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  // Draws only when something visible has changed.
  void Show(std::uint64_t ullDone, std::uint64_t ullTotal, const std::string& strState = {});
  // Ends the bar with a verdict.
  void End(const std::string& strVerdict);

 private:
  const std::string m_strName;
  const Kind m_kind;
  const bool m_bTerminal;
  const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
  int m_nShown = -1;
  std::string m_strShownState;
};

}  // namespace lmtools
