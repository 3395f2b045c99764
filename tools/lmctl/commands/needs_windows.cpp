// The commands that need a Windows machine, on any other.
#include <stdexcept>

#include "tools/lmctl/commands/commands.h"
#include "tools/lmctl/commands/queue.h"

namespace lmctl {
namespace {

[[noreturn]] void NeedsWindows(const char* pszWhat) {
  throw std::runtime_error(std::string(pszWhat) + " needs the Windows machine that prints: run lmctl.exe there");
}

}  // namespace

std::string ArchiveRootOfQueue(const std::string&) { NeedsWindows("a queue's archive"); }
unsigned PrintRaw(const std::string&, const std::string&, const std::string&) { NeedsWindows("printing"); }
int Doctor(const Options&) { NeedsWindows("doctor"); }
int Settings(const Options&) { NeedsWindows("settings"); }

}  // namespace lmctl
