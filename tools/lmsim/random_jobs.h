// One world of random jobs, printer faults, cancels, service stops, refused calls, links and changed settings.
#pragma once

#include <cstdint>

// Runs the world of a seed to its end and prints what does not hold then; bShow: and what happened in it. Returns whether all
// holds. The process must be fresh: log, archive and clock are its own.
bool RunSeed(std::uint64_t ullSeed, bool bShow);
