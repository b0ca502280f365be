// Dead letters that go to their output once more, as a buffer that a route reads. The numbers of
// its samples are those of the letters. A letter that was taken is deleted; of one that was not,
// DeadLetters::failedAgain is told before the loan comes back, and it stays.
#ifndef FERRY_STATE_DEAD_LETTER_BUFFER_H
#define FERRY_STATE_DEAD_LETTER_BUFFER_H

#include <atomic>
#include <set>

#include "state/dead_letters.h"
#include "state/sample_buffer.h"

namespace ferry {

class DeadLetterBuffer : public SampleBuffer {
public:
    struct Choice {
        std::set<std::int64_t> ids;
        /// As in StoreSettings.
        std::int32_t maxSamples = 1024;
        std::uint64_t sliceBytes = 8U << 20;
    };

    /// The chosen letters are samples of one type.
    DeadLetterBuffer(const std::filesystem::path &file, Choice choice);

    /// Nothing comes in here.
    StateResult append(const SampleList &samples) override;
    StateResult oldest(StoredSlice &slice) override;
    void advance() override;
    void rewind() override;
    BufferLevel level() const override;

private:
    bool take(const KeptLetter &letter, StoredSlice &slice);

    DeadLetters letters_;
    const Choice choice_;
    std::int64_t after_ = 0;
    std::vector<DeadLetters::Seen> lent_;
    std::atomic<std::uint64_t> left_;
};

} // namespace ferry

#endif
