#include "state/dead_letter_buffer.h"

#include <algorithm>

namespace ferry {

DeadLetterBuffer::DeadLetterBuffer(const std::filesystem::path &file, Choice choice)
    : letters_({file, 0, false, {}, ""}), choice_(std::move(choice)), left_(choice_.ids.size())
{
}

StateResult DeadLetterBuffer::append(const SampleList &)
{
    return {Fault::rejected, "dead letters are only read here"};
}

StateResult DeadLetterBuffer::oldest(StoredSlice &slice)
{
    slice.clear();
    lent_.clear();
    const auto next = choice_.ids.upper_bound(after_);
    if (next == choice_.ids.end()) {
        return {};
    }
    return letters_.visit(*next - 1, true, [&](const KeptLetter &letter) {
        return choice_.ids.count(letter.id) == 0 || take(letter, slice);
    });
}

/// Whether there may be room for another.
bool DeadLetterBuffer::take(const KeptLetter &letter, StoredSlice &slice)
{
    const std::vector<std::uint8_t> row = rowOf(letter);
    if (!lent_.empty() && slice.size() + row.size() > choice_.sliceBytes) {
        return false;
    }
    const std::size_t from = slice.size();
    std::copy(row.begin(), row.end(), slice.grow(row.size()));
    if (slice.decode(from, -letter.id, 1)) {
        lent_.push_back({letter.id, letter.attempts});
    }
    return slice.count() < choice_.maxSamples;
}

void DeadLetterBuffer::advance()
{
    if (lent_.empty()) {
        return;
    }
    // What cannot be deleted now stays, which whoever chose it sees.
    std::size_t deleted = 0;
    letters_.remove(lent_, deleted);
    after_ = lent_.back().id;
    left_.store(left_.load() - std::min<std::uint64_t>(left_.load(), lent_.size()));
    lent_.clear();
}

void DeadLetterBuffer::rewind()
{
    lent_.clear();
}

BufferLevel DeadLetterBuffer::level() const
{
    BufferLevel level;
    level.samples = left_.load();
    return level;
}

} // namespace ferry
