// Layout of types in CDR, computed once when a type is made.
#include <algorithm>
#include <limits>

#include "type_code.h"

namespace qddsc {

namespace {

constexpr uint64_t MAX_SAMPLE = static_cast<uint64_t>(std::numeric_limits<int32_t>::max());

void layScalar(DDS_TypeCode &type)
{
    Layout &layout = type.layout;
    const uint32_t size = scalarSize(type.kind);
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
