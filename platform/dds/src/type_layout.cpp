// Layout of types in CDR, computed once when a type is made.
#include <algorithm>
#include <limits>

#include "type_code.h"

namespace qddsc {

namespace {

constexpr uint64_t MAX_SAMPLE = static_cast<uint64_t>(std::numeric_limits<int32_t>::max());

// Residues r for which r + distance is among `residues`.
uint8_t shifted(uint8_t residues, uint32_t distance)
{
    const uint32_t twice = residues * 0x101U;
    return static_cast<uint8_t>(twice >> (distance % RESIDUES));
}

void append(Packed &block, const Packed &next)
{
    block.alignment = block.bytes == 0 ? next.alignment : block.alignment;
    for (const Picky &picky : next.picky) {
        block.picky.push_back({block.bytes + picky.offset, picky.type});
    }
    block.plain &= shifted(next.plain, block.bytes);
    block.xcdr2 &= shifted(next.xcdr2, block.bytes);
    block.bytes += next.bytes;
}

// `count` blocks behind each other; none where they would have too many values to check.
Packed repeat(const Packed &element, uint64_t count)
{
    Packed block;
    if (element.bytes == 0 || (count > RESIDUES && !element.picky.empty())) {
        return block;
    }
    block.plain = UINT8_MAX;
    block.xcdr2 = UINT8_MAX;
    for (uint64_t i = 0; i < std::min<uint64_t>(count, RESIDUES); ++i) {
        append(block, element);
    }
    block.bytes = static_cast<uint32_t>(element.bytes * count);
    return block;
}

// Elements behind each other are packed wherever 8 of them are: then their residues repeat.
void layElements(Layout &container, const Packed &element)
{
    container.elements = repeat(element, RESIDUES);
    container.elements.bytes = element.bytes;
    container.elements.picky = element.picky;
}

// A block goes on as long as the members of a struct at position 0 need no padding.
void layRuns(DDS_TypeCode &type)
{
    std::vector<Run> &runs = type.layout.runs;
    uint64_t position = 0; // in a default value
    for (uint32_t i = 0; i < type.members.size(); ++i) {
        const Layout &inner = type.members[i].type->layout;
        const bool joins = !runs.empty() && runs.back().packed.bytes > 0 &&
                           isPackedAt(inner.packed.plain, position);
        if (joins) {
            append(runs.back().packed, inner.packed);
            runs.back().end = i + 1;
        } else {
            runs.push_back({i, i + 1, inner.packed});
        }
        position += inner.size[position % RESIDUES];
    }
    if (runs.size() == 1) {
        type.layout.packed = runs.front().packed;
        if (type.extensibility == DDS_EXTENSIBILITY_APPENDABLE) {
            type.layout.packed.xcdr2 = 0;
        }
    }
}

Packed packScalar(const DDS_TypeCode &type, uint32_t size)
{
    constexpr uint8_t MULTIPLES[] = {0, 0xFF, 0x55, 0, 0x11, 0, 0, 0, 0x01};
    Packed block = {size, size, MULTIPLES[size], MULTIPLES[std::min(size, 4U)], {}};
    if (type.kind == DDS_TK_BOOLEAN || type.kind == DDS_TK_ENUM) {
        block.picky.push_back({0, &type});
    }
    return block;
}

void layScalar(DDS_TypeCode &type)
{
    Layout &layout = type.layout;
    const uint32_t size = scalarSize(type.kind);
    if (isPrimitive(type.kind) || type.kind == DDS_TK_ENUM) {
        layout.packed = packScalar(type, size);
    }
    layout.alignment = size;
    layout.minimum = size;
    for (uint32_t residue = 0; residue < RESIDUES; ++residue) {
        layout.size[residue] = static_cast<uint32_t>(alignUp(residue, size)) - residue + size;
    }
    if (type.kind == DDS_TK_ENUM) {
        layout.zeroDefault = type.members.front().value == 0;
    } else if (type.kind == DDS_TK_STRING) {
        layout.fixed = false;
        layout.zeroDefault = false; // the length counts the NUL
        layout.minimum += 1;
        for (uint32_t &bytes : layout.size) {
            bytes += 1;
        }
    } else if (type.kind == DDS_TK_SEQUENCE) {
        layout.fixed = false;
        layout.alignment = std::max(size, type.content->layout.alignment);
        layElements(layout, type.content->layout.packed);
    }
}

bool layArray(DDS_TypeCode &type)
{
    Layout &layout = type.layout;
    const DDS_TypeCode &element = *type.content->resolved;
    layout.fixed = element.layout.fixed;
    layout.zeroDefault = element.layout.zeroDefault;
    layout.alignment = element.layout.alignment;
    for (uint32_t residue = 0; residue < RESIDUES; ++residue) {
        const uint64_t bytes = skipDefaults(element, residue, type.elementCount) - residue;
        if (bytes > MAX_SAMPLE) {
            return false;
        }
        layout.size[residue] = static_cast<uint32_t>(bytes);
    }
    layout.minimum = element.layout.minimum * type.elementCount;
    layout.packed = repeat(element.layout.packed, type.elementCount);
    if (element.kind == DDS_TK_ARRAY) {
        layout.elements = element.layout.elements;
    } else {
        layElements(layout, element.layout.packed);
    }
    if (!isPrimitive(element.kind)) {
        layout.packed.xcdr2 &= element.kind == DDS_TK_ARRAY ? element.layout.packed.xcdr2 : 0;
    }
    return true;
}

bool layStruct(DDS_TypeCode &type)
{
    Layout &layout = type.layout;
    std::array<uint64_t, RESIDUES> bytes{};
    for (const Member &member : type.members) {
        const Layout &inner = member.type->layout;
        if (layout.fixed) {
            SizeByResidue &offset = layout.offsets.emplace_back();
            std::copy(bytes.begin(), bytes.end(), offset.begin());
        }
        layout.fixed = layout.fixed && inner.fixed;
        layout.zeroDefault = layout.zeroDefault && inner.zeroDefault;
        layout.alignment = std::max(layout.alignment, inner.alignment);
        layout.minimum += inner.minimum;
        for (uint32_t residue = 0; residue < RESIDUES; ++residue) {
            bytes[residue] += inner.size[(residue + bytes[residue]) % RESIDUES];
            if (bytes[residue] > MAX_SAMPLE) {
                return false;
            }
        }
    }
    std::copy(bytes.begin(), bytes.end(), layout.size.begin());
    layRuns(type);
    return true;
}

} // namespace

uint64_t skipDefaults(const DDS_TypeCode &resolved, uint64_t position, uint64_t count)
{
    if (count == 0) {
        return position;
    }
    if (isPrimitive(resolved.kind) || resolved.kind == DDS_TK_ENUM) {
        const uint32_t size = scalarSize(resolved.kind);
        return alignUp(position, size) + count * size;
    }
    // The residue decides the step, so after at most 8 steps the steps repeat.
    const SizeByResidue &size = resolved.layout.size;
    std::array<uint64_t, RESIDUES> seenAt{};
    std::array<uint64_t, RESIDUES> left{}; // 0: residue not seen
    while (count > 0) {
        const uint32_t residue = position % RESIDUES;
        if (left[residue] != 0) {
            const uint64_t period = left[residue] - count;
            position += (position - seenAt[residue]) * (count / period);
            count %= period;
            break;
        }
        seenAt[residue] = position;
        left[residue] = count;
        position += size[residue];
        --count;
    }
    for (; count > 0; --count) {
        position += size[position % RESIDUES];
    }
    return position;
}

bool computeLayout(DDS_TypeCode &type)
{
    switch (type.kind) {
    case DDS_TK_ALIAS:
        type.layout = type.content->layout;
        return true;
    case DDS_TK_ARRAY:
        return layArray(type);
    case DDS_TK_STRUCT:
        return layStruct(type);
    default:
        layScalar(type);
        return true;
    }
}

} // namespace qddsc
