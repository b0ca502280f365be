#include "engine/repeat_filter.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

namespace ferry {
namespace {

constexpr std::size_t mostKnown = 8;

} // namespace

bool RepeatFilter::admit(const char *text, Clock::time_point now)
{
    known_.erase(std::remove_if(known_.begin(), known_.end(),
                                [now](const Known &known) { return known.until <= now; }),
                 known_.end());
    const bool repeated = std::any_of(known_.begin(), known_.end(),
                                      [text](const Known &known) { return known.text == text; });
    if (repeated || known_.size() >= mostKnown) {
        ++suppressed_;
        return false;
    }
    known_.push_back({text, now + pause_});
    return true;
}

std::string RepeatFilter::takeSuppressed()
{
    const std::uint64_t count = std::exchange(suppressed_, 0);
    return count == 0 ? "" : fmt::format(" ({} more failures since the last line)", count);
}

} // namespace ferry
