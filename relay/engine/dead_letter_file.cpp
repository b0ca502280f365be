#include "engine/dead_letter_file.h"

#include "engine/log.h"

namespace ferry {

DeadLetterFile::DeadLetterFile(StateDirectory &directory, std::uint64_t maxBytes)
    : directory_(directory), letters_({directory.deadLetters(), maxBytes, true,
                                       [](const std::string &text) {
                                           logAbout(FERRYLOG_BIT_ERROR, "FERRYRelay_deadLetters",
                                                    "dead letters", "{}", text);
                                       },
                                       ""})
{
}

StateResult DeadLetterFile::open()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return directory_.open();
}

std::string DeadLetterFile::keep(const DeadLetter &letter)
{
    const StateResult opened = open();
    if (!opened.ok()) {
        return opened.text;
    }
    const Loan &samples = letter.samples;
    return letters_
        .add({letter.route.name, letter.output, letter.reason, letter.attempts}, *letter.route.type,
             {samples.samples, samples.infos, samples.count})
        .text;
}

std::string DeadLetterFile::keep(const RouteSettings &route, const std::string &input,
                                 const std::vector<RejectedRecord> &records)
{
    const StateResult opened = open();
    if (!opened.ok()) {
        return opened.text;
    }
    std::vector<RejectedText> texts;
    texts.reserve(records.size());
    for (const RejectedRecord &record : records) {
        texts.push_back({record.raw, record.reason, record.position});
    }
    return letters_.add({route.name, input, "", 1}, texts).text;
}

} // namespace ferry
