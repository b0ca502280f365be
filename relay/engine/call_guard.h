// Where the threads are that call plug-ins, and which of them do not come back.
#ifndef FERRY_ENGINE_CALL_GUARD_H
#define FERRY_ENGINE_CALL_GUARD_H

#include <atomic>
#include <cstdint>

#include "engine/clock.h"

namespace ferry {

/// Where a thread is. The thread itself enters and leaves; another thread may give up on it while
/// it is inside: then it never comes out again, and everything but the object that it is inside of
/// may be used by others.
class CallGuard {
public:
    /// `operation` is a literal, `object` the plug-in's object that the call works on, `owner` what
    /// the caller works for; the last two only identify.
    void enter(const char *operation, const void *object, const void *owner = nullptr);
    /// Parks the calling thread for ever when it has been given up.
    void leave();

    /// True when the thread was inside a call, and will not come out of it any more.
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

/// Finds calls that do not come back. Looks now and then, so it is late by the time between looks.
class StallWatch {
public:
    /// How long the guard's thread has been seen in one call when that is worth telling: after
    /// `limit`, and each time it has doubled; else 0.
    Clock::duration look(const CallGuard &guard, Clock::time_point now, Clock::duration limit);

private:
    std::uint64_t call_ = 0;
    Clock::time_point since_;
    Clock::duration next_{0};
};

} // namespace ferry

#endif
