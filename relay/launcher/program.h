// Programs that ferry runs.
#ifndef FERRY_LAUNCHER_PROGRAM_H
#define FERRY_LAUNCHER_PROGRAM_H

#include <string>
#include <vector>

namespace ferry {

/// Runs a program to its end; whether that was a good one. It can be interrupted, although this
/// process keeps its signals for later.
bool runProgram(std::vector<std::string> command, int input, int output);

} // namespace ferry

#endif
