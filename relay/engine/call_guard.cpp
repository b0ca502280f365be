#include "engine/call_guard.h"

#include <unistd.h>

namespace ferry {

void CallGuard::enter(const char *operation, const void *object, const void *owner)
{
    operation_.store(operation, std::memory_order_relaxed);
    object_.store(object, std::memory_order_relaxed);
    owner_.store(owner, std::memory_order_relaxed);
    calls_.fetch_add(1, std::memory_order_relaxed);
    state_.store(State::inside, std::memory_order_release);
}

void CallGuard::leave()
{
    State expected = State::inside;
    if (!state_.compare_exchange_strong(expected, State::outside)) {
        for (;;) {
            pause();
        }
    }
}

bool CallGuard::giveUp()
{
    State expected = State::inside;
    return state_.compare_exchange_strong(expected, State::abandoned);
}

Clock::duration StallWatch::look(const CallGuard &guard, Clock::time_point now,
                                 Clock::duration limit)
{
    if (!guard.inside() || guard.calls() != call_) {
        since_ = nanoseconds(now);
        call_ = guard.calls();
        next_ = limit;
        return Clock::duration::zero();
    }
    const std::chrono::nanoseconds time(nanoseconds(now) - since_);
    if (time < next_) {
        return Clock::duration::zero();
    }
    next_ = 2 * time;
    return time;
}

} // namespace ferry
