// Bad data that is a dead letter already, and is so once more.
#ifndef FERRY_ENGINE_RETRIED_LETTERS_H
#define FERRY_ENGINE_RETRIED_LETTERS_H

#include <memory>

#include "engine/dead_letter.h"
#include "state/dead_letters.h"
#include "state/state_directory.h"

namespace ferry {

/// For routes that read dead letters: those that are not taken stay, with the new reason. Session
/// threads.
class RetriedLetters : public DeadLetterKeeper {
public:
    explicit RetriedLetters(const std::filesystem::path &file);

    std::string keep(const DeadLetter &letter) override;
    std::string keep(const RouteSettings &route, const std::string &input,
                     const std::vector<RejectedRecord> &records) override;

private:
    DeadLetters letters_;
};

/// The keeper of a configuration; null if it has no state directory.
std::unique_ptr<DeadLetterKeeper> makeKeeper(const Configuration &configuration,
                                             StateDirectory &directory);

} // namespace ferry

#endif
