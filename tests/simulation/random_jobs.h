// One world of random jobs, printer faults, cancels, service stops, refused calls, links and changed settings.
#pragma once

#include <cstdint>

// Runs the world of a seed to its end and checks what must hold then, by GoogleTest's expectations.
void RunSeed(std::uint64_t ullSeed);
