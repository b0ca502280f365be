// Where samples go that an output will never take.
#ifndef FERRY_ENGINE_DEAD_LETTER_H
#define FERRY_ENGINE_DEAD_LETTER_H

#include <string>

#include "engine/loan.h"

namespace ferry {

/// Samples that are bad data, with all that is known of why.
struct DeadLetter {
    const std::string &route;
    /// "connection/stream" of the output.
    const std::string &output;
    const RouteSettings &settings;
    /// The reason that the output gave.
    std::string reason;
    /// How often it was offered the first of them alone.
    int attempts = 0;
    Loan samples;
};

/// Session threads, one at a time for each route.
class DeadLetterKeeper {
public:
    virtual ~DeadLetterKeeper() = default;
    /// Keeps the samples, which are on the disk when it returns "". Else it returns why it cannot
    /// at the moment, and has kept none.
    virtual std::string keep(const DeadLetter &letter) = 0;
};

} // namespace ferry

#endif
