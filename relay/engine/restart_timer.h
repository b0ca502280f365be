// When something that is out of service is to be made anew. Control thread.
#ifndef FERRY_ENGINE_RESTART_TIMER_H
#define FERRY_ENGINE_RESTART_TIMER_H

#include <algorithm>

#include "engine/backoff.h"

namespace ferry {

class RestartTimer {
public:
    explicit RestartTimer(const RetrySettings &settings)
        : backoff_(settings), settled_(std::max(settings.max, settings.first))
    {
    }

    /// It is out of service. Only the first report since an attempt counts.
    void failed(Clock::time_point now)
    {
        if (armed_) {
            return;
        }
        // What lasts for long has recovered; what fails at once again is waited for longer.
        if (now - madeAt_ > settled_) {
            backoff_.reset();
        }
        armed_ = true;
        due_ = now + backoff_.next(now);
    }
    /// It has been made, or not.
    void attempted(Clock::time_point now, bool good)
    {
        armed_ = false;
        madeAt_ = good ? now : madeAt_;
        if (!good) {
            armed_ = true;
            due_ = now + backoff_.next(now);
        }
    }
    /// What it waited for is there: there is no reason to wait any longer.
    void hurry(Clock::time_point now)
    {
        due_ = std::min(due_, now);
    }

    bool armed() const
    {
        return armed_;
    }
    /// Whether there will be no more attempts.
    bool exhausted(Clock::time_point now) const
    {
        return backoff_.exhausted(now);
    }
    /// When to make it anew; never while it is in service.
    Clock::time_point due() const
    {
        return armed_ ? due_ : Clock::time_point::max();
    }

private:
    Backoff backoff_;
    std::chrono::milliseconds settled_;
    bool armed_ = false;
    Clock::time_point due_;
    Clock::time_point madeAt_;
};

} // namespace ferry

#endif
