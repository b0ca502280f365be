// Writing little-endian XCDR2 (XTypes 1.3, 7.4.3): what type objects are hashed and sent in.
#ifndef QDDSDOMAIN_SRC_XCDR2_WRITER_H
#define QDDSDOMAIN_SRC_XCDR2_WRITER_H

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace qddsdomain {

class Xcdr2Writer {
public:
    void u8(uint8_t value)
    {
        bytes_.push_back(value);
    }
    void u16(uint16_t value)
    {
        number(value, 2);
    }
    void u32(uint32_t value)
    {
        number(value, 4);
    }

    void align(uint32_t size)
    {
        bytes_.resize((bytes_.size() + size - 1) / size * size);
    }

    template<typename Container> void raw(const Container &values)
    {
        bytes_.insert(bytes_.end(), values.begin(), values.end());
    }

    void string(const std::string &text)
    {
        u32(static_cast<uint32_t>(text.size() + 1));
        raw(text);
        u8(0);
    }

    /// What the body writes, behind its length.
    template<typename Body> void delimited(const Body &body)
    {
        u32(0);
        const size_t start = bytes_.size();
        body();
        patch(start - 4, static_cast<uint32_t>(bytes_.size() - start));
    }

    /// A sequence whose elements are not primitive: it has a delimiter too.
    template<typename Container, typename Body>
    void sequence(const Container &elements, const Body &body)
    {
        delimited([&] {
            u32(static_cast<uint32_t>(elements.size()));
            std::for_each(elements.begin(), elements.end(), body);
        });
    }

    const std::vector<uint8_t> &bytes() const
    {
        return bytes_;
    }

private:
    void number(uint32_t value, uint32_t size)
    {
        align(size);
        for (uint32_t i = 0; i < size; ++i) {
            bytes_.push_back(static_cast<uint8_t>(value >> (8 * i)));
        }
    }

    void patch(size_t at, uint32_t value)
    {
        for (uint32_t i = 0; i < 4; ++i) {
            bytes_[at + i] = static_cast<uint8_t>(value >> (8 * i));
        }
    }

    std::vector<uint8_t> bytes_;
};

} // namespace qddsdomain

#endif
