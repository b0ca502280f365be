// Allocations with new, counted.
#ifndef TESTS_RELAY_COUNTING_NEW_H
#define TESTS_RELAY_COUNTING_NEW_H

#include <cstdint>

namespace scripted {

/// Those that the calling thread has made so far.
std::uint64_t allocations();

} // namespace scripted

#endif
