#include "tools/lmctl/commands/terminal.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>

#ifdef _WIN32
#include <windows.h>

#include <io.h>
#else
#include <sys/ioctl.h>
#include <unistd.h>
#endif

namespace lmctl {
namespace {

std::int64_t NowMs() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

bool ErrorsGoToATerminal() {
#ifdef _WIN32
  return _isatty(_fileno(stderr)) != 0;
#else
  return isatty(2) != 0;
#endif
}

}  // namespace

bool IsTerminal() {
#ifdef _WIN32
  return _isatty(_fileno(stdout)) != 0;
#else
  return isatty(1) != 0;
#endif
}

std::size_t Columns() {
  if (!IsTerminal()) return 0;
#ifdef _WIN32
  CONSOLE_SCREEN_BUFFER_INFO info;
  if (GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &info))
    return static_cast<std::size_t>(info.srWindow.Right - info.srWindow.Left + 1);
#else
  winsize size{};
  if (ioctl(1, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
#endif
  return 80;
}

bool WantsColour() {
  const char* pszNo = std::getenv("NO_COLOR");
  if (!IsTerminal() || (pszNo != nullptr && *pszNo != 0)) return false;
#ifdef _WIN32
  const HANDLE hOut = GetStdHandle(STD_OUTPUT_HANDLE);
  DWORD dwMode = 0;
  return GetConsoleMode(hOut, &dwMode) && SetConsoleMode(hOut, dwMode | 4 /* virtual terminal sequences */);
#else
  return true;
#endif
}

Progress::Progress(std::string strWhat) : m_strWhat(std::move(strWhat)), m_llStart(NowMs()) {}

Progress::~Progress() {
  if (m_nShown >= 0) std::fprintf(stderr, "\r%70s\r", "");
}

void Progress::Show(std::uint64_t ullDone, std::uint64_t ullTotal) {
  const int nPercent = ullTotal == 0 ? 100 : static_cast<int>(ullDone * 100 / ullTotal);
  if (nPercent == m_nShown || !ErrorsGoToATerminal() || NowMs() - m_llStart < 1000) return;
  m_nShown = nPercent;
  std::fprintf(stderr, "\r%s [%-25s] %3d %%", m_strWhat.c_str(),
               std::string(static_cast<std::size_t>(nPercent / 4), '#').c_str(), nPercent);
  std::fflush(stderr);
}

}  // namespace lmctl
