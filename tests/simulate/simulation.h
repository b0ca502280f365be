// One run of the relay's core over simulated plug-ins: what fails when is drawn from a seed.
#ifndef TESTS_SIMULATE_SIMULATION_H
#define TESTS_SIMULATE_SIMULATION_H

#include "world.h"

namespace simulate {

/// Runs until all is delivered, and adds to the tally what came about; throws a Violation.
void simulate(std::uint64_t seed, bool verbose, Tally &tally);

} // namespace simulate

#endif
