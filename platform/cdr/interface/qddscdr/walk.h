// Walking over CDR bytes that may hold anything: nothing here reads outside of them.
#ifndef QDDSCDR_WALK_H
#define QDDSCDR_WALK_H

#include <cstring>

#include "qddscdr/type.h"

namespace qddscdr {

#if __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "samples are kept in the machine's byte order, which has to be little endian"
#endif

/// Positions are 64 bits wide, so that no count in a buffer can make them overflow.
struct CdrView {
    const uint8_t *bytes;
    uint64_t size;

    bool holds(uint64_t position, uint64_t count) const
    {
        return position <= size && count <= size - position;
    }

    uint32_t count(uint64_t position) const
    {
        uint32_t value;
        std::memcpy(&value, bytes + position, sizeof value);
        return value;
    }
};

/// Reads the count in front of a string or sequence that starts at `position`, and moves behind it.
/// False when it is not inside the view.
bool readCount(const CdrView &view, uint64_t &position, uint32_t &count);

/// Moves from a value's start to its end; false when that is not inside the view.
bool skipValue(const CdrView &view, const Type &type, uint64_t &position);
bool skipElements(const CdrView &view, const Type &element, uint64_t &position, uint64_t count);

/// Writes `count` default values from `position` on; the room is there (skipDefaults).
void writeDefaults(uint8_t *bytes, const Type &type, uint64_t position, uint64_t count);

} // namespace qddscdr

#endif
