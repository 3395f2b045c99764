#include "tools/common/progress_bar.h"

#include <cstdio>

#include "tools/common/terminal.h"

namespace lmtools {

ProgressBar::ProgressBar(std::string strName, Kind kind)
    : m_strName(std::move(strName)),
      m_kind(kind),
      m_bTerminal(kind == Kind::Patience ? IsErrorTerminal() : IsTerminal()) {}

ProgressBar::~ProgressBar() {
  if (m_kind == Kind::Patience && m_nShown >= 0) std::fprintf(stderr, "\r%79s\r", "");
}

void ProgressBar::Show(std::uint64_t ullDone, std::uint64_t ullTotal, const std::string& strState) {
  const int nPercent = ullTotal == 0 ? 100 : static_cast<int>(ullDone * 100 / ullTotal);
  const bool bPatience = m_kind == Kind::Patience;
  if (bPatience && (!m_bTerminal || std::chrono::steady_clock::now() - m_start < std::chrono::seconds(1))) return;
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
  std::FILE* const pOut = bPatience ? stderr : stdout;
  const std::string strBar(static_cast<std::size_t>(nPercent / 4), '#');
  std::fprintf(pOut, "\r  %-24.24s [%-25s] %3d %%  %-16.16s", m_strName.c_str(), strBar.c_str(), nPercent,
               strState.c_str());
  std::fflush(pOut);
}

void ProgressBar::End(const std::string& strVerdict) {
  if (m_bTerminal) {
    std::printf("\r  %-24.24s %-60s\n", m_strName.c_str(), strVerdict.c_str());
  } else {
    std::printf("  %s: %s\n", m_strName.c_str(), strVerdict.c_str());
  }
}

}  // namespace lmtools
