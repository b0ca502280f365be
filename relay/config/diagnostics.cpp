#include "config/diagnostics.h"

#include <algorithm>

#include <fmt/format.h>

namespace ferry {
void Diagnostics::add(Place place, const std::string &message)
{
    const std::string where = place.line > 0 ? fmt::format("{}:{}:", place.line, place.column) : "";
    entries_.push_back({place, fmt::format("{}:{} {}", file_, where, message)});
}

void Diagnostics::addForeign(Place place, const std::string &message)
{
    entries_.push_back({place, message});
}

std::vector<std::string> Diagnostics::lines() const
{
    std::vector<Entry> sorted = entries_;
    std::stable_sort(sorted.begin(), sorted.end(), [](const Entry &a, const Entry &b) {
        return a.place.line != b.place.line ? a.place.line < b.place.line
                                            : a.place.column < b.place.column;
    });
    std::vector<std::string> result;
    for (const Entry &entry : sorted) {
        if (result.empty() || result.back() != entry.text) {
            result.push_back(entry.text);
        }
    }
    return result;
}

} // namespace ferry
