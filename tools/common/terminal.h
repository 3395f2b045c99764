// The terminal, if there is one.
#pragma once

#include <cstddef>

namespace lmtools {

bool IsTerminal();       // standard output
bool IsErrorTerminal();  // standard error
std::size_t Columns();   // of the terminal; 0 without one
bool WantsColour();      // a terminal, and NO_COLOR is not set

}  // namespace lmtools
