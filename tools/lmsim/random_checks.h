// What must hold of each port of a random world when all is over.
#pragma once

#include "sim/world.h"
#include "tools/lmsim/random_world.h"
#include "tools/lmsim/verdict.h"

void CheckPort(sim::World& world, const WorldKind& kind, const PortPlan& port, Verdict& verdict);
