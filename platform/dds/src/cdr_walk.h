// Walking over CDR bytes that may hold anything: nothing here reads outside of them.
#ifndef QDDSC_SRC_CDR_WALK_H
#define QDDSC_SRC_CDR_WALK_H

#include <cstring>

#include "type_code.h"

namespace qddsc {

#if __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "samples are kept in the machine's byte order, which has to be little endian"
#endif

// Positions are 64 bits wide, so that no count in a buffer can make them overflow.
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

// Reads the count in front of a string or sequence that starts at `position`, and moves behind it.
// False when it is not inside the view.
bool readCount(const CdrView &view, uint64_t &position, uint32_t &count);

// Moves from a value's start to its end; false when that is not inside the view.
bool skipValue(const CdrView &view, const DDS_TypeCode &resolved, uint64_t &position);
bool skipElements(const CdrView &view, const DDS_TypeCode &resolvedElement, uint64_t &position,
                  uint64_t count);

// The type of a child: member of a struct, element of a sequence or array.
inline const DDS_TypeCode &childType(const DDS_TypeCode &container, uint32_t index)
{
    return container.kind == DDS_TK_STRUCT ? *container.members[index].type->resolved
                                           : *container.content->resolved;
}

// Writes `count` default values from `position` on; the room is there (skipDefaults).
void writeDefaults(uint8_t *bytes, const DDS_TypeCode &resolved, uint64_t position, uint64_t count);

} // namespace qddsc

#endif
