// The clock that all waiting and all times of the engine go by, and its source of chance.
#ifndef FERRY_ENGINE_CLOCK_H
#define FERRY_ENGINE_CLOCK_H

#include <chrono>
#include <cstdint>

namespace ferry {

/// The steady clock. Its functions are in a source file of their own, so that a program that links
/// another one runs the engine in a time of its own.
struct Clock {
    using duration = std::chrono::steady_clock::duration;
    using rep = std::chrono::steady_clock::rep;
    using period = std::chrono::steady_clock::period;
    using time_point = std::chrono::steady_clock::time_point;
    static constexpr bool is_steady = true;

    static time_point now();
};

/// A seed for what is left to chance, another one each time.
std::uint64_t chanceSeed();

/// A time as a number that fits an atomic; also the plug-in interface's form of deadlines.
inline std::int64_t nanoseconds(Clock::time_point time)
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count();
}

} // namespace ferry

#endif
