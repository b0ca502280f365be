// Why a route does not move, from what the relay knows.
#ifndef FERRY_CONTROL_REASONS_H
#define FERRY_CONTROL_REASONS_H

#include <string>
#include <vector>

#include "engine/status.h"

namespace ferry {

struct Reason {
    /// One word for programs; documented.
    const char *code;
    /// A sentence for people.
    std::string text;
    /// What can be done about it, or "".
    std::string advice;
    /// Since when; 0 if that is not known.
    std::int64_t since = 0;
    /// Where in the configuration file what it is about stands.
    Place place{};
};

/// The most important one first; none if samples go through.
std::vector<Reason> reasonsOf(const RouteStatus &route, const RelayStatus &relay);

} // namespace ferry

#endif
