// How long things may take where the command line does not say.
#ifndef FERRY_PROCESS_DEFAULTS_H
#define FERRY_PROCESS_DEFAULTS_H

#include <chrono>

namespace ferry {

/// A stop, until it is forced.
constexpr std::chrono::milliseconds defaultDrain{5000};
/// Task::list, for announcements.
constexpr std::chrono::milliseconds defaultWait{2000};

} // namespace ferry

#endif
