// How many samples a second a route has moved lately. One thread looks at the counters once in a
// while; any other asks.
#ifndef FERRY_ENGINE_RATE_METER_H
#define FERRY_ENGINE_RATE_METER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>

#include "engine/clock.h"

namespace ferry {

/// Samples a second.
struct Rates {
    double read = 0;
    double written = 0;
};

class RateMeter {
public:
    /// The time between two looks, and how far back the rates go.
    static constexpr std::chrono::seconds interval{1};
    static constexpr std::size_t looks = 10;

    void look(Clock::time_point now, std::uint64_t read, std::uint64_t written)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        seen_[count_ % seen_.size()] = {nanoseconds(now), read, written};
        ++count_;
    }
    /// Means of the last ten seconds, or of the route's life if that is shorter; 0 before the
    /// second look.
    Rates rates() const
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (count_ < 2) {
            return {};
        }
        const Look &last = seen_[(count_ - 1) % seen_.size()];
        const Look &first = seen_[count_ < seen_.size() ? 0 : count_ % seen_.size()];
        const double seconds = static_cast<double>(last.time - first.time) / 1e9;
        const auto rate = [seconds](std::uint64_t from, std::uint64_t to) {
            return seconds > 0 && to > from ? static_cast<double>(to - from) / seconds : 0;
        };
        return {rate(first.read, last.read), rate(first.written, last.written)};
    }

private:
    struct Look {
        std::int64_t time = 0;
        std::uint64_t read = 0;
        std::uint64_t written = 0;
    };

    mutable std::mutex mutex_;
    std::array<Look, looks + 1> seen_;
    std::size_t count_ = 0;
};

} // namespace ferry

#endif
