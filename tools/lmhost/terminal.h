// What the host tells of the terminal.
#pragma once

namespace lmhost {

// Whether the standard output is a terminal (and not a pipe or a file).
bool IsTerminal();

}  // namespace lmhost
