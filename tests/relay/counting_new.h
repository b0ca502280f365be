// Counts what a thread allocates with new.
#ifndef TESTS_RELAY_COUNTING_NEW_H
#define TESTS_RELAY_COUNTING_NEW_H

#include <cstdint>

/// Allocations of the calling thread so far.
std::uint64_t allocations();

#endif
