// What an output that does not take a slice is offered next, and when: tells an outage, which is
// waited for, from a sample that cannot be written, which is found by halving. Pure: no plug-in is
// called. Session thread.
#ifndef FERRY_ENGINE_RETRY_H
#define FERRY_ENGINE_RETRY_H

#include <algorithm>
#include <cstdint>
#include <limits>

#include "engine/backoff.h"

namespace ferry {

/// Samples are numbered from the first one that the output has not taken, which stays the first
/// until it is taken or set aside: the order of what is written never changes.
///
/// A slice that fails is halved until the first sample fails alone. Then this sample is tried
/// again, with pauses, and after it the samples behind it, each alone. If one of these is taken at
/// once, those before it are bad data. If none is, nothing is known, and the pauses grow: an outage
/// never makes bad data of a sample, unless it ends between two calls that follow each other
/// immediately, after the sample has failed several times.
class Retry {
public:
    explicit Retry(const RetrySettings &settings) : backoff_(settings) {}

    /// A loan begins: what earlier ones met says nothing of the output any more.
    void begin()
    {
        alive_ = false;
    }
    /// Whether the last write failed, or what it left has not been settled.
    bool troubled() const
    {
        return region_ > 0;
    }
    /// The most samples of the next write.
    std::int32_t most() const
    {
        return probe_ > 0 ? 1 : region_ > 0 ? (region_ + 1) / 2 : all;
    }
    /// The sample that the next write begins with. Behind the first one only to find out whether it
    /// is taken.
    std::int32_t skip() const
    {
        return probe_;
    }
    /// The time of the next write.
    Clock::time_point due() const
    {
        return due_;
    }

    /// The output has taken all of a write of `count` samples. Returns how many samples at the
    /// beginning are known to be bad data: they come before those that were taken.
    std::int32_t taken(std::int32_t count);
    /// A write of `count` samples failed and took the first `taken` of them. `left` is how many
    /// samples there are behind those, `time` how long the call took.
    void failed(std::int32_t count, std::int32_t taken, std::int32_t left, Clock::duration time,
                Clock::time_point now);
    /// The next write is to end before the sample that is so far behind the first one.
    void stopBefore(std::int32_t distance)
    {
        region_ = 2 * distance;
    }
    /// The first sample has been set aside for what the adapter said of it.
    void setAside();
    /// What was found out cannot be kept at the moment: all is due again after a pause.
    void postpone(Clock::time_point now);
    /// What could not be kept before is kept now.
    void kept()
    {
        backoff_.reset();
    }
    /// How often the first sample was offered alone.
    int attempts() const
    {
        return std::max(alone_, 1);
    }
    /// What was waited for is there.
    void hurry()
    {
        due_ = {};
    }
    /// Whether the time is over that the settings give.
    bool exhausted(Clock::time_point now) const
    {
        return backoff_.exhausted(now);
    }

private:
    static constexpr std::int32_t all = std::numeric_limits<std::int32_t>::max();

    void failedAlone(std::int32_t left, bool quick, Clock::time_point now);
    void pause(Clock::time_point now);

    Backoff backoff_;
    Clock::time_point due_;
    /// Samples from the first on among which there is the one that failed.
    std::int32_t region_ = 0;
    /// The sample that is tried to see whether it is taken; 0 for the first sample itself.
    std::int32_t probe_ = 0;
    /// How often the first sample has failed alone.
    int alone_ = 0;
    /// How many samples behind it have failed alone, too, and how many are tried before the next
    /// pause.
    std::int32_t compared_ = 0;
    std::int32_t probes_ = 0;
    /// Whether the output has taken something since the last pause.
    bool alive_ = false;
};

} // namespace ferry

#endif
