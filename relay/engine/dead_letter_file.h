// The dead letters of a configuration, in its state directory.
#ifndef FERRY_ENGINE_DEAD_LETTER_FILE_H
#define FERRY_ENGINE_DEAD_LETTER_FILE_H

#include <mutex>

#include "engine/dead_letter.h"
#include "state/dead_letters.h"
#include "state/state_directory.h"

namespace ferry {

class DeadLetterFile : public DeadLetterKeeper {
public:
    /// The directory outlives it, and is made with the first letter.
    DeadLetterFile(StateDirectory &directory, std::uint64_t maxBytes);

    std::string keep(const DeadLetter &letter) override;
    std::string keep(const RouteSettings &route, const std::string &input,
                     const std::vector<RejectedRecord> &records) override;

private:
    StateResult open();

    StateDirectory &directory_;
    std::mutex mutex_;
    DeadLetters letters_;
};

} // namespace ferry

#endif
