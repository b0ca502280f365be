// Where samples go that an output will never take, and records that an input could not decode.
#ifndef FERRY_ENGINE_DEAD_LETTER_H
#define FERRY_ENGINE_DEAD_LETTER_H

#include <string>
#include <vector>

#include "engine/call.h"
#include "engine/loan.h"

namespace ferry {

/// Samples that are bad data, with all that is known of why.
struct DeadLetter {
    const RouteSettings &route;
    /// "connection/stream" of the output.
    const std::string &output;
    /// What the output said of the first of them.
    const std::string &reason;
    /// How often it was offered the first of them alone.
    int attempts = 0;
    Loan samples;
};

/// Session threads.
class DeadLetterKeeper {
public:
    virtual ~DeadLetterKeeper() = default;
    /// Keeps the samples, which are on the disk when it returns "". Else it returns why it cannot
    /// at the moment, and has kept none.
    virtual std::string keep(const DeadLetter &letter) = 0;
    /// The same for records; `input` is "connection/stream".
    virtual std::string keep(const RouteSettings &route, const std::string &input,
                             const std::vector<RejectedRecord> &records) = 0;
};

} // namespace ferry

#endif
