// How long it takes until a VM and all that the bridge calls in it are there.
#ifndef BENCH_BRIDGE_START_H
#define BENCH_BRIDGE_START_H

#include <string>
#include <vector>

namespace bench {

/// Starts the process's VM with the bridge or by hand, and prints the time that took as JSON.
void start(bool byHand, const std::vector<std::string> &options);

} // namespace bench

#endif
