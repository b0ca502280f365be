// What the relay has done so far, as lines for people.
#ifndef FERRY_PROCESS_PROGRESS_H
#define FERRY_PROCESS_PROGRESS_H

#include <map>
#include <string>
#include <vector>

#include "engine/clock.h"
#include "engine/route_totals.h"

namespace ferry {

/// "12 samples/s"; whole numbers, because nobody reads fractions that change five times a second.
std::string rateText(std::uint64_t samples, std::chrono::nanoseconds time);

/// One line a route with its totals and its mean rate while it was busy, and one line an output
/// when there are several.
std::vector<std::string> summaryLines(const std::vector<RouteTotals> &routes);

/// Whether nothing was lost, no call failed and no route is out of service.
bool isClean(const std::vector<RouteTotals> &routes);

/// Totals with the rate since the last call.
class Progress {
public:
    enum class Which {
        all,
        /// Those that are not as they were at the last call. A route starts with nothing.
        changed
    };

    std::vector<std::string> lines(const std::vector<RouteTotals> &routes, Clock::time_point now,
                                   Which which);

private:
    struct Known {
        std::uint64_t read = 0;
        std::string text;
    };

    /// By name: a stream that comes back goes on where it was.
    std::map<std::string, Known> last_;
    Clock::time_point lastTime_;
};

} // namespace ferry

#endif
