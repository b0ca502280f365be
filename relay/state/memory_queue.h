// A bounded queue in memory, for an output that is not required: it never holds up anybody, drops
// the oldest samples when it is full, and is gone with the process.
#ifndef FERRY_STATE_MEMORY_QUEUE_H
#define FERRY_STATE_MEMORY_QUEUE_H

#include <list>
#include <mutex>

#include "state/sample_buffer.h"

namespace ferry {

class MemoryQueue : public SampleBuffer {
public:
    struct Limits {
        /// Of kept rows. A row that is larger has the queue for itself.
        std::uint64_t maxBytes = 0;
        /// As in StoreSettings.
        std::int32_t maxSamples = 1024;
        std::uint64_t sliceBytes = 8U << 20;
    };

    explicit MemoryQueue(const Limits &limits) : limits_(limits) {}

    StateResult append(const SampleList &samples) override;
    StateResult oldest(StoredSlice &slice) override;
    void advance() override;
    void rewind() override;
    BufferLevel level() const override;

private:
    struct Row {
        std::vector<std::uint8_t> bytes;
        std::int64_t first = 0;
        std::int32_t count = 0;
        std::int64_t time = 0;
    };
    void push(const SliceRow &row);
    void dropFor(std::size_t length);
    void remove(std::list<Row>::iterator row);

    const Limits limits_;
    mutable std::mutex mutex_;
    // Under the mutex.
    std::list<Row> rows_;
    /// Those that have gone, for those that come.
    std::list<Row> spare_;
    std::uint64_t bytes_ = 0;
    std::uint64_t samples_ = 0;
    std::uint64_t dropped_ = 0;
    std::int64_t next_ = 1;
    /// How many rows at the front are being delivered.
    std::size_t lent_ = 0;

    // The appending thread's.
    std::vector<std::uint8_t> laidOut_;
    std::vector<SliceRow> extents_;
};

} // namespace ferry

#endif
