// Times between two moments, for people.
#ifndef FERRY_CONTROL_DURATION_TEXT_H
#define FERRY_CONTROL_DURATION_TEXT_H

#include <cstdint>
#include <cstdlib>
#include <string>

#include <fmt/format.h>

namespace ferry {

/// "4.2 s", "3 min 20 s", "5 d 2 h": without a sign.
inline std::string durationText(std::int64_t nanoseconds)
{
    const std::int64_t tenths = std::abs(nanoseconds) / 100'000'000;
    const std::int64_t seconds = tenths / 10;
    if (seconds < 10) {
        return fmt::format("{}.{} s", seconds, tenths % 10);
    }
    if (seconds < 60) {
        return fmt::format("{} s", seconds);
    }
    if (seconds < 3600) {
        return fmt::format("{} min {} s", seconds / 60, seconds % 60);
    }
    return seconds < 86400 ? fmt::format("{} h {} min", seconds / 3600, seconds % 3600 / 60)
                           : fmt::format("{} d {} h", seconds / 86400, seconds % 86400 / 3600);
}

} // namespace ferry

#endif
