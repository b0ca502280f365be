#include "engine/backoff.h"

#include <algorithm>

namespace ferry {
namespace {

/// Chance must not make a loop of it.
constexpr std::chrono::milliseconds shortest{1};

} // namespace

Clock::duration Backoff::next(Clock::time_point now)
{
    if (failures_++ == 0) {
        since_ = now;
    }
    const int doublings = std::min(failures_ - 1, 20);
    const std::chrono::nanoseconds most = std::min<std::chrono::nanoseconds>(
        settings_.max, settings_.first * (std::int64_t{1} << doublings));
    std::uniform_int_distribution<std::int64_t> pause(0, most.count());
    return std::max<std::chrono::nanoseconds>(std::chrono::nanoseconds(pause(random_)), shortest);
}

bool Backoff::exhausted(Clock::time_point now) const
{
    return settings_.limit > std::chrono::milliseconds(0) && failures_ > 0 &&
           now - since_ >= settings_.limit;
}

} // namespace ferry
