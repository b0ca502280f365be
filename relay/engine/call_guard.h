// Where the threads are that call plug-ins, and which calls do not return.
#ifndef FERRY_ENGINE_CALL_GUARD_H
#define FERRY_ENGINE_CALL_GUARD_H

#include <atomic>
#include <cstdint>

#include "engine/clock.h"

namespace ferry {

/// Where a thread is. The thread itself enters and leaves. While it is inside a call another thread
/// may give it up: then it never comes out again, and others may use everything but the object of
/// that call.
class CallGuard {
public:
    /// `operation` is a literal, `object` the plug-in's object that the call works on, `owner` what
    /// the caller works for; the last two only identify.
    void enter(const char *operation, const void *object, const void *owner = nullptr);
    /// Parks the calling thread for ever if it has been given up.
    void leave();

    /// True if the thread was inside a call. It will not come out of it any more.
    bool giveUp();
    bool givenUp() const
    {
        return state_.load() == State::abandoned;
    }
    bool inside() const
    {
        return state_.load() == State::inside;
    }
    /// How many calls there have been, with the present one.
    std::uint64_t calls() const
    {
        return calls_.load();
    }

    /// The call that the thread is or was last in; null before the first.
    const char *operation() const
    {
        return operation_.load();
    }
    const void *object() const
    {
        return object_.load();
    }
    const void *owner() const
    {
        return owner_.load();
    }

private:
    enum class State { outside, inside, abandoned };

    std::atomic<State> state_{State::outside};
    std::atomic<const char *> operation_{nullptr};
    std::atomic<const void *> object_{nullptr};
    std::atomic<const void *> owner_{nullptr};
    std::atomic<std::uint64_t> calls_{0};
};

/// Finds calls that do not return. It is late by at most the time between two looks.
class StallWatch {
public:
    /// How long the guard's thread has been in one call, if that is due for a report: after
    /// `limit`, and each time that the time has doubled. Else 0.
    Clock::duration look(const CallGuard &guard, Clock::time_point now, Clock::duration limit);
    /// Since when the guard's thread has been in its present call, in nanoseconds of Clock, if the
    /// last look found it there; else 0. Any thread.
    std::int64_t since(const CallGuard &guard) const
    {
        return guard.inside() && guard.calls() == call_.load() ? since_.load() : 0;
    }

private:
    std::atomic<std::uint64_t> call_{0};
    /// Written before the call that it belongs to.
    std::atomic<std::int64_t> since_{0};
    Clock::duration next_{0};
};

} // namespace ferry

#endif
