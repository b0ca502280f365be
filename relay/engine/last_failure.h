// The last failure of something that goes on failing or not, for those who ask what is wrong.
#ifndef FERRY_ENGINE_LAST_FAILURE_H
#define FERRY_ENGINE_LAST_FAILURE_H

#include <cstdint>
#include <mutex>
#include <string>

#include "engine/clock.h"

namespace ferry {

struct Failure {
    /// Nanoseconds of Clock; 0 if nothing has failed yet.
    std::int64_t time = 0;
    /// How many failures there have been.
    std::uint64_t count = 0;
    /// "write", "create reader".
    std::string operation;
    std::string text;
};

/// Only failures take the lock: what goes well never does.
class LastFailure {
public:
    /// The thread that works for the object.
    void note(const std::string &operation, const std::string &text)
    {
        const std::int64_t now = nanoseconds(Clock::now());
        const std::lock_guard<std::mutex> lock(mutex_);
        last_.time = now;
        ++last_.count;
        last_.operation = operation;
        last_.text = text;
    }
    /// Any thread.
    Failure get() const
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        return last_;
    }

private:
    mutable std::mutex mutex_;
    Failure last_;
};

} // namespace ferry

#endif
