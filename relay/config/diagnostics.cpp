#include "config/diagnostics.h"

namespace ferry {

void Diagnostics::add(Place place, const std::string &message)
{
    const std::string where = place.line > 0 ? fmt::format("{}:{}:", place.line, place.column) : "";
    addForeign(place, fmt::format("{}:{} {}", file_, where, message));
}

void Diagnostics::addForeign(Place place, const std::string &message)
{
    messages_.emplace(std::make_pair(place.line, place.column), message);
}

std::vector<std::string> Diagnostics::lines() const
{
    std::vector<std::string> result;
    for (const auto &[place, message] : messages_) {
        if (result.empty() || result.back() != message) {
            result.push_back(message);
        }
    }
    return result;
}

} // namespace ferry
