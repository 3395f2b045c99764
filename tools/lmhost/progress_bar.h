// One job's progress: a bar that is redrawn on a terminal, plain lines elsewhere.
#pragma once

#include <cstdint>
#include <string>

namespace lmhost {

class ProgressBar {
 public:
  ProgressBar(std::string strName, std::uint64_t ullTotal);
  // Shows how far the job is and what is going on; draws only when something visible has changed.
  void Show(std::uint64_t ullDone, const std::string& strState);
  // Ends the bar with a verdict.
  void End(const std::string& strVerdict);

 private:
  const std::string m_strName;
  const std::uint64_t m_ullTotal;
  const bool m_bTerminal;
  int m_nShown = -1;
  std::string m_strShownState;
};

}  // namespace lmhost
