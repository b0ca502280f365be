// Keeps errors that come again and again from flooding the log. One thread.
#ifndef FERRY_ENGINE_REPEAT_FILTER_H
#define FERRY_ENGINE_REPEAT_FILTER_H

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "engine/clock.h"

namespace ferry {

class RepeatFilter {
public:
    /// Whether this text is to be logged now: a new one at once, a known one once in a while. Of
    /// texts that are new each time only a few are let through in that while.
    bool admit(const char *text, Clock::time_point now)
    {
        known_.erase(std::remove_if(known_.begin(), known_.end(),
                                    [now](const Known &known) { return known.until <= now; }),
                     known_.end());
        const bool repeated = std::any_of(known_.begin(), known_.end(), [text](const Known &known) {
            return known.text == text;
        });
        if (repeated || known_.size() >= most) {
            ++suppressed_;
            return false;
        }
        known_.push_back({text, now + std::chrono::seconds(10)});
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
    struct Known {
        std::string text;
        Clock::time_point until;
    };
    static constexpr std::size_t most = 8;

    std::vector<Known> known_;
    std::uint64_t suppressed_ = 0;
};

} // namespace ferry

#endif
