#include "engine/retried_letters.h"

#include <algorithm>

#include "engine/dead_letter_file.h"

namespace ferry {

RetriedLetters::RetriedLetters(const std::filesystem::path &file)
    : letters_({file, 0, false, {}, ""})
{
}

/// The samples' numbers are those of their letters, below zero.
std::string RetriedLetters::keep(const DeadLetter &letter)
{
    StateResult result;
    for (std::int32_t i = 0; result.ok() && i < letter.samples.count; ++i) {
        const DDS_SequenceNumber_t &number = letter.samples.infos[i]->publication_sequence_number;
        result = letters_.failedAgain(-(std::int64_t{number.high} << 32 | number.low),
                                      letter.reason, letter.attempts);
    }
    return result.text;
}

std::string RetriedLetters::keep(const RouteSettings &, const std::string &,
                                 const std::vector<RejectedRecord> &)
{
    return "dead letters have been decoded";
}

std::unique_ptr<DeadLetterKeeper> makeKeeper(const Configuration &configuration,
                                             StateDirectory &directory)
{
    const auto retried =
        std::find_if(configuration.buffers.begin(), configuration.buffers.end(),
                     [](const OutputBuffer &buffer) { return !buffer.settings.letters.empty(); });
    if (retried != configuration.buffers.end()) {
        return std::make_unique<RetriedLetters>(retried->settings.path);
    }
    if (configuration.state.empty()) {
        return nullptr;
    }
    return std::make_unique<DeadLetterFile>(directory, configuration.deadLetterBytes);
}

} // namespace ferry
