#include "state/memory_queue.h"

#include <algorithm>
#include <chrono>
#include <iterator>

namespace ferry {
namespace {

/// Small rows are used again, as many as that.
constexpr std::size_t mostSpare = 16;
constexpr std::size_t largestSpare = 1U << 20;

} // namespace

StateResult MemoryQueue::append(const SampleList &samples)
{
    layOut(samples, limits_.maxSamples, limits_.sliceBytes, laidOut_, extents_);
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const SliceRow &row : extents_) {
        dropFor(row.length);
        push(row);
    }
    return {};
}

void MemoryQueue::push(const SliceRow &row)
{
    if (spare_.empty()) {
        spare_.emplace_back();
    }
    rows_.splice(rows_.end(), spare_, spare_.begin());
    Row &fresh = rows_.back();
    const auto from = laidOut_.begin() + static_cast<std::ptrdiff_t>(row.from);
    fresh.bytes.assign(from, from + static_cast<std::ptrdiff_t>(row.length));
    fresh.first = next_;
    fresh.count = row.count;
    fresh.time = std::chrono::duration_cast<std::chrono::milliseconds>(
                     std::chrono::system_clock::now().time_since_epoch())
                     .count();
    next_ += row.count;
    bytes_ += row.length;
    samples_ += static_cast<std::uint64_t>(row.count);
}

/// What is being delivered stays.
void MemoryQueue::dropFor(std::size_t length)
{
    while (rows_.size() > lent_ && bytes_ + length > limits_.maxBytes) {
        const auto row = std::next(rows_.begin(), static_cast<std::ptrdiff_t>(lent_));
        dropped_ += static_cast<std::uint64_t>(row->count);
        remove(row);
    }
}

void MemoryQueue::remove(std::list<Row>::iterator row)
{
    bytes_ -= row->bytes.size();
    samples_ -= static_cast<std::uint64_t>(row->count);
    if (spare_.size() < mostSpare && row->bytes.capacity() <= largestSpare) {
        spare_.splice(spare_.end(), rows_, row);
    } else {
        rows_.erase(row);
    }
}

StateResult MemoryQueue::oldest(StoredSlice &slice)
{
    slice.clear();
    const std::lock_guard<std::mutex> lock(mutex_);
    lent_ = 0;
    for (const Row &row : rows_) {
        const bool fits = slice.count() + row.count <= limits_.maxSamples &&
                          slice.size() + row.bytes.size() <= limits_.sliceBytes;
        if (lent_ > 0 && !fits) {
            break;
        }
        const std::size_t from = slice.size();
        std::copy(row.bytes.begin(), row.bytes.end(), slice.grow(row.bytes.size()));
        slice.decode(from, row.first, row.count);
        ++lent_;
    }
    return {};
}

void MemoryQueue::advance()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    for (; lent_ > 0; --lent_) {
        remove(rows_.begin());
    }
}

void MemoryQueue::rewind()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    lent_ = 0;
}

BufferLevel MemoryQueue::level() const
{
    const std::lock_guard<std::mutex> lock(mutex_);
    return {samples_, bytes_, dropped_, 0, rows_.empty() ? 0 : rows_.front().time};
}

} // namespace ferry
