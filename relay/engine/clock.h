// The clock that all waiting and all times of the engine go by.
#ifndef FERRY_ENGINE_CLOCK_H
#define FERRY_ENGINE_CLOCK_H

#include <chrono>
#include <cstdint>

namespace ferry {

using Clock = std::chrono::steady_clock;

/// A time as a number that fits an atomic; also the plug-in interface's form of deadlines.
inline std::int64_t nanoseconds(Clock::time_point time)
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count();
}

} // namespace ferry

#endif
