// What stands between a route and an output that is to go its own way: samples go in at one end, on
// the route's thread, and come out at the other, on the output's.
#ifndef FERRY_STATE_SAMPLE_BUFFER_H
#define FERRY_STATE_SAMPLE_BUFFER_H

#include <cstdint>

#include "config/configuration.h"
#include "state/result.h"
#include "state/slice.h"

namespace ferry {

/// Counted over the life of what is kept, so that a process goes on from the last one's numbers.
struct BufferLevel {
    /// Kept, and not delivered yet.
    std::uint64_t samples = 0;
    std::uint64_t bytes = 0;
    /// Given up because there was no room.
    std::uint64_t dropped = 0;
    /// Given up because their bytes are not what was appended.
    std::uint64_t damaged = 0;
    /// When the oldest of them was appended, in milliseconds since 1970; 0 if there is none.
    std::int64_t oldest = 0;
};

/// One thread appends; one other calls oldest, advance and rewind; any thread asks for the level.
class SampleBuffer {
public:
    SampleBuffer() = default;
    virtual ~SampleBuffer() = default;
    SampleBuffer(const SampleBuffer &) = delete;
    SampleBuffer &operator=(const SampleBuffer &) = delete;

    /// Takes all of the samples, or none. `full`: the buffer blocks until something is delivered,
    /// or the disk until somebody makes room. Other failures can be tried again, too, but for
    /// `rejected`: these samples can never be kept.
    virtual StateResult append(const SampleList &samples) = 0;
    /// The oldest samples, as many as one write of the output may have; none if all are delivered.
    /// Again the same until advance() is called.
    virtual StateResult oldest(StoredSlice &slice) = 0;
    /// The output has what oldest() gave last.
    virtual void advance() = 0;
    /// The output may not have what oldest() gave last: the next one gives it again.
    virtual void rewind() = 0;
    /// Never waits for a disk.
    virtual BufferLevel level() const = 0;
};

} // namespace ferry

#endif
