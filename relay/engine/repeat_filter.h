// Keeps an error that comes again and again from flooding the log. One thread.
#ifndef FERRY_ENGINE_REPEAT_FILTER_H
#define FERRY_ENGINE_REPEAT_FILTER_H

#include <chrono>
#include <cstdint>
#include <string>

namespace ferry {

class RepeatFilter {
public:
    using Clock = std::chrono::steady_clock;

    /// Whether this text is to be logged now: a new one at once, a known one once in a while.
    bool admit(const char *text, Clock::time_point now)
    {
        if (last_ == text && now < nextAt_) {
            ++suppressed_;
            return false;
        }
        last_ = text;
        nextAt_ = now + std::chrono::seconds(10);
        return true;
    }

    /// How many were held back since the last admitted one.
    std::uint64_t takeSuppressed()
    {
        const std::uint64_t count = suppressed_;
        suppressed_ = 0;
        return count;
    }

private:
    std::string last_;
    Clock::time_point nextAt_;
    std::uint64_t suppressed_ = 0;
};

} // namespace ferry

#endif
