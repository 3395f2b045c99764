#include "tools/lmhost/progress_bar.h"

#include <cstdio>

#include "tools/lmhost/terminal.h"

namespace lmhost {

ProgressBar::ProgressBar(std::string strName, std::uint64_t ullTotal)
    : m_strName(std::move(strName)), m_ullTotal(ullTotal), m_bTerminal(IsTerminal()) {}

void ProgressBar::Show(std::uint64_t ullDone, const std::string& strState) {
  const int nPercent = m_ullTotal == 0 ? 100 : static_cast<int>(ullDone * 100 / m_ullTotal);
  const bool bStateChanged = strState != m_strShownState;
  // Lines in a pipe come at the quarters and when the state changes.
  if (m_bTerminal ? nPercent == m_nShown && !bStateChanged
                  : nPercent / 25 == m_nShown / 25 && m_nShown >= 0 && !bStateChanged)
    return;
  m_nShown = nPercent;
  m_strShownState = strState;
  if (!m_bTerminal) {
    std::printf("  %s: %3d %%  %s\n", m_strName.c_str(), nPercent, strState.c_str());
    return;
  }
  const std::string strBar(static_cast<std::size_t>(nPercent / 4), '#');
  std::printf("\r  %-24.24s [%-25s] %3d %%  %-16.16s", m_strName.c_str(), strBar.c_str(), nPercent, strState.c_str());
  std::fflush(stdout);
}

void ProgressBar::End(const std::string& strVerdict) {
  if (m_bTerminal) {
    std::printf("\r  %-24.24s %-60s\n", m_strName.c_str(), strVerdict.c_str());
  } else {
    std::printf("  %s: %s\n", m_strName.c_str(), strVerdict.c_str());
  }
}

}  // namespace lmhost
