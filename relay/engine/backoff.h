// The pauses between attempts at something that fails: they double, and each is cut at random, so
// that many who wait for the same server do not come back at the same moment. One thread.
#ifndef FERRY_ENGINE_BACKOFF_H
#define FERRY_ENGINE_BACKOFF_H

#include <random>

#include "config/configuration.h"
#include "engine/clock.h"

namespace ferry {

class Backoff {
public:
    explicit Backoff(const RetrySettings &settings) : settings_(settings), random_(chanceSeed()) {}

    /// An attempt has failed: how long to wait for the next one.
    Clock::duration next(Clock::time_point now);
    /// Something has succeeded.
    void reset()
    {
        failures_ = 0;
    }
    /// Failures in a row.
    int failures() const
    {
        return failures_;
    }
    /// Whether the failures have lasted for as long as the settings allow.
    bool exhausted(Clock::time_point now) const;

private:
    RetrySettings settings_;
    std::minstd_rand random_;
    int failures_ = 0;
    Clock::time_point since_;
};

} // namespace ferry

#endif
