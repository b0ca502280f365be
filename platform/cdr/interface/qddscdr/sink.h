// The bytes that values are written to, one behind the other.
#ifndef QDDSCDR_SINK_H
#define QDDSCDR_SINK_H

#include "qddscdr/type.h"

namespace qddscdr {

using Bytes = std::vector<uint8_t>;

/// Where a transcoder writes: behind what is there, or into a block that does not grow.
class Sink {
public:
    /// Writes behind the first `start` bytes of `bytes`, over what is there. Alignment counts from
    /// `start`. Until finish() the vector may be longer than what was written.
    Sink(Bytes &bytes, size_t start) : growing_(&bytes), start_(start), end_(bytes.size())
    {
        bytes_ = bytes.data();
    }
    Sink(uint8_t *block, size_t size) : bytes_(block), end_(size) {}

    /// Bytes written.
    uint64_t position() const
    {
        return position_;
    }
    uint8_t *at(uint64_t position)
    {
        return bytes_ + start_ + position;
    }

    /// Pads with zeros to `alignment` and makes room for `size` bytes, which the caller fills. Null
    /// where a sample becomes too large.
    uint8_t *place(uint32_t alignment, uint64_t size);

    /// Cuts the bytes behind what was written.
    void finish();

private:
    bool grow(uint64_t needed);

    uint8_t *bytes_ = nullptr;
    Bytes *growing_ = nullptr;
    size_t start_ = 0;
    size_t end_ = 0; // of what bytes_ has room for
    uint64_t position_ = 0;
};

} // namespace qddscdr

#endif
