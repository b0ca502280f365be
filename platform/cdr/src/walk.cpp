// See walk.h.
#include "qddscdr/walk.h"

namespace qddscdr {

namespace {

bool skipString(const CdrView &view, uint64_t &position)
{
    uint32_t length = 0;
    if (!readCount(view, position, length) || length == 0 || !view.holds(position, length)) {
        return false;
    }
    position += length;
    return true;
}

bool skipStruct(const CdrView &view, const Type &type, uint64_t &position)
{
    size_t index = type.layout.offsets.size() - 1;
    position += type.layout.offsets[index][position % residueCount];
    for (; index < type.members.size(); ++index) {
        if (!skipValue(view, *type.members[index].type, position)) {
            return false;
        }
    }
    return true;
}

void putCount(uint8_t *bytes, uint64_t position, uint32_t value)
{
    std::memcpy(bytes + position, &value, sizeof value);
}

/// Writes what is not zero of one default value; returns its end.
uint64_t pokeDefault(uint8_t *bytes, const Type &type, uint64_t position)
{
    const uint64_t end = position + type.layout.size[position % residueCount];
    if (type.layout.zeroDefault) {
        return end;
    }
    if (!type.initial.empty()) {
        const uint32_t size = type.initial.size();
        std::memcpy(bytes + end - size, type.initial.begin(), size);
        return end;
    }
    switch (type.kind) {
    case DDS_TK_STRING:
        putCount(bytes, alignUp(position, sizeof(uint32_t)), 1);
        break;
    case DDS_TK_ENUM:
        putCount(bytes, alignUp(position, sizeof(uint32_t)),
                 static_cast<uint32_t>(type.firstEnumerator));
        break;
    case DDS_TK_STRUCT:
        for (const Member &member : type.members) {
            position = pokeDefault(bytes, *member.type, position);
        }
        break;
    default: // an array: everything else is zero
        for (uint32_t i = 0; i < type.elementCount; ++i) {
            position = pokeDefault(bytes, *type.element, position);
        }
        break;
    }
    return end;
}

} // namespace

bool readCount(const CdrView &view, uint64_t &position, uint32_t &count)
{
    position = alignUp(position, sizeof count);
    if (!view.holds(position, sizeof count)) {
        return false;
    }
    count = view.count(position);
    position += sizeof count;
    return true;
}

bool skipElements(const CdrView &view, const Type &element, uint64_t &position, uint64_t count)
{
    const Layout &layout = element.layout;
    if (position > view.size || count > (view.size - position) / layout.minimum) {
        return false;
    }
    if (layout.fixed) {
        position = skipDefaults(element, position, count);
        return position <= view.size;
    }
    for (; count > 0; --count) {
        if (!skipValue(view, element, position)) {
            return false;
        }
    }
    return true;
}

bool skipValue(const CdrView &view, const Type &type, uint64_t &position)
{
    if (type.layout.fixed) {
        position += type.layout.size[position % residueCount];
        return position <= view.size;
    }
    switch (type.kind) {
    case DDS_TK_STRING:
        return skipString(view, position);
    case DDS_TK_STRUCT:
        return skipStruct(view, type, position);
    case DDS_TK_ARRAY:
        return skipElements(view, *type.element, position, type.elementCount);
    default: {
        uint32_t count = 0;
        return readCount(view, position, count) &&
               skipElements(view, *type.element, position, count);
    }
    }
}

void writeDefaults(uint8_t *bytes, const Type &type, uint64_t position, uint64_t count)
{
    const uint64_t end = skipDefaults(type, position, count);
    std::memset(bytes + position, 0, end - position);
    for (uint64_t i = 0; i < count && !type.layout.zeroDefault; ++i) {
        position = pokeDefault(bytes, type, position);
    }
}

} // namespace qddscdr
