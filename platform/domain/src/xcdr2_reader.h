// Reading little-endian XCDR2 that a peer wrote: nothing is believed, and whatever does not fit
// throws Rejection.
#ifndef QDDSDOMAIN_SRC_XCDR2_READER_H
#define QDDSDOMAIN_SRC_XCDR2_READER_H

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

namespace qddsdomain {

/// What is wrong with a peer's type, for people. Stays within the reading of type objects.
struct Rejection : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class Xcdr2Reader {
public:
    Xcdr2Reader(const uint8_t *bytes, size_t length) : bytes_(bytes), end_(length) {}

    uint8_t u8()
    {
        return *take(1);
    }
    uint16_t u16()
    {
        return number<uint16_t>();
    }
    uint32_t u32()
    {
        return number<uint32_t>();
    }

    /// The next `count` bytes.
    const uint8_t *take(size_t count)
    {
        if (count > end_ - position_) {
            throw Rejection("its description ends too early");
        }
        position_ += count;
        return bytes_ + position_ - count;
    }

    std::string string()
    {
        const uint32_t length = u32();
        const uint8_t *text = take(length);
        if (length == 0 || text[length - 1] != 0) {
            throw Rejection("its description holds a string without an end");
        }
        return {text, text + length - 1};
    }

    /// Reads within a length that stands in front; what later versions put behind is passed over.
    template<typename Body> void delimited(const Body &body)
    {
        const uint32_t length = u32();
        take(length);
        const size_t outer = end_;
        end_ = position_;
        position_ -= length;
        body();
        position_ = end_;
        end_ = outer;
    }

    /// As many elements as the count in front says; each takes at least a byte.
    template<typename Body> void elements(const Body &body)
    {
        const uint32_t count = u32();
        if (count > end_ - position_) {
            throw Rejection("its description ends too early");
        }
        for (uint32_t i = 0; i < count; ++i) {
            body();
        }
    }

    /// Passes over something optional that has a length in front.
    void skipOptional()
    {
        if (u8() != 0) {
            delimited([] {});
        }
    }

private:
    template<typename Number> Number number()
    {
        take((sizeof(Number) - position_ % sizeof(Number)) % sizeof(Number));
        Number value{};
        std::memcpy(&value, take(sizeof value), sizeof value);
        return value;
    }

    const uint8_t *bytes_;
    size_t position_ = 0;
    size_t end_;
};

} // namespace qddsdomain

#endif
