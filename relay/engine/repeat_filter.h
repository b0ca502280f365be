// Keeps errors that come again and again from flooding the log. One thread.
#ifndef FERRY_ENGINE_REPEAT_FILTER_H
#define FERRY_ENGINE_REPEAT_FILTER_H

#include <cstdint>
#include <string>
#include <vector>

#include "engine/clock.h"

namespace ferry {

class RepeatFilter {
public:
    /// `pause` is how long a text is known.
    explicit RepeatFilter(std::chrono::seconds pause = std::chrono::seconds(10)) : pause_(pause) {}

    /// Whether this text is to be logged now: a new one at once, a known one once in a while. Of
    /// texts that are new each time only a few are let through in that while.
    bool admit(const char *text, Clock::time_point now);

    /// For the end of a line that was admitted: how many were held back since the last one, or "".
    std::string takeSuppressed();

private:
    struct Known {
        std::string text;
        Clock::time_point until;
    };
    std::chrono::seconds pause_;
    std::vector<Known> known_;
    std::uint64_t suppressed_ = 0;
};

} // namespace ferry

#endif
