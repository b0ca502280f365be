// What the relay has done so far, as lines for people.
#ifndef FERRY_ENGINE_PROGRESS_H
#define FERRY_ENGINE_PROGRESS_H

#include <map>
#include <string>
#include <vector>

#include "engine/relay.h"

namespace ferry {

/// "12 samples/s"; whole numbers, because nobody reads fractions that change five times a second.
std::string rateText(std::uint64_t samples, std::chrono::nanoseconds time);

/// One line a route with its totals and its mean rate while it was busy, and one line an output
/// when there are several.
std::vector<std::string> summaryLines(const std::vector<std::unique_ptr<Session>> &sessions);

/// Samples that were read and did not reach an output, and those that could not be read.
std::uint64_t lostSamples(const std::vector<std::unique_ptr<Session>> &sessions);
/// Failed calls of all routes.
std::uint64_t failedCalls(const std::vector<std::unique_ptr<Session>> &sessions);

/// Totals with the rate since the last call.
class Progress {
public:
    std::vector<std::string> lines(const std::vector<std::unique_ptr<Session>> &sessions,
                                   Clock::time_point now);

private:
    struct Last {
        std::uint64_t samples = 0;
        Clock::time_point time;
    };
    std::map<const Route *, Last> last_;
};

} // namespace ferry

#endif
