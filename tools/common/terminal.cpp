#include "tools/common/terminal.h"

#include <cstdio>
#include <cstdlib>

#ifdef _WIN32
#include <windows.h>

#include <io.h>
#else
#include <sys/ioctl.h>
#include <unistd.h>
#endif

namespace lmtools {
namespace {

bool LeadsToATerminal(std::FILE* pStream) {
#ifdef _WIN32
  return _isatty(_fileno(pStream)) != 0;
#else
  return isatty(fileno(pStream)) != 0;
#endif
}

}  // namespace

bool IsTerminal() { return LeadsToATerminal(stdout); }
bool IsErrorTerminal() { return LeadsToATerminal(stderr); }

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

}  // namespace lmtools
