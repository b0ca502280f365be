// Layout of types in CDR, computed once when a type is made.
#include "qddscdr/type.h"

namespace qddscdr {

namespace {

/// A block while it is put together.
struct Block {
    Packed packed;
    std::vector<StrictScalar> strict;

    static Block of(const Packed &packed)
    {
        return {packed, {packed.strict.begin(), packed.strict.end()}};
    }
    Packed keptIn(Tables &tables)
    {
        if (!strict.empty()) {
            packed.strict = tables.keep(std::move(strict));
        }
        return packed;
    }
};

/// Residues r for which r + distance is among `residues`.
uint8_t shifted(uint8_t residues, uint32_t distance)
{
    const uint32_t twice = residues * 0x101U;
    return static_cast<uint8_t>(twice >> (distance % residueCount));
}

void append(Block &block, const Packed &next)
{
    Packed &packed = block.packed;
    packed.alignment = packed.bytes == 0 ? next.alignment : packed.alignment;
    for (const StrictScalar &scalar : next.strict) {
        block.strict.push_back({packed.bytes + scalar.offset, scalar.type});
    }
    packed.plain &= shifted(next.plain, packed.bytes);
    packed.xcdr2 &= shifted(next.xcdr2, packed.bytes);
    packed.bytes += next.bytes;
}

/// `count` blocks behind each other; none where they would have too many values to check.
Packed repeat(const Packed &element, uint64_t count, Tables &tables)
{
    Block block;
    if (element.bytes == 0 || (count > residueCount && !element.strict.empty())) {
        return block.packed;
    }
    block.packed.plain = UINT8_MAX;
    block.packed.xcdr2 = UINT8_MAX;
    for (uint64_t i = 0; i < std::min<uint64_t>(count, residueCount); ++i) {
        append(block, element);
    }
    block.packed.bytes = static_cast<uint32_t>(element.bytes * count);
    return block.keptIn(tables);
}

/// Elements behind each other are packed wherever 8 of them are: then their residues repeat.
void layElements(Layout &container, const Packed &element, Tables &tables)
{
    container.elements = repeat(element, residueCount, tables);
    container.elements.bytes = element.bytes;
    container.elements.strict = element.strict;
}

/// A block goes on as long as the members of a struct at position 0 need no padding.
void layRuns(Type &type, Tables &tables)
{
    std::vector<Run> runs;
    std::vector<Block> blocks; // of each run
    uint64_t position = 0;     // in a default value
    for (uint32_t i = 0; i < type.members.size(); ++i) {
        const Layout &inner = type.members[i].type->layout;
        const bool joins = !runs.empty() && blocks.back().packed.bytes > 0 &&
                           isPackedAt(inner.packed.plain, position);
        if (joins) {
            append(blocks.back(), inner.packed);
            runs.back().end = i + 1;
        } else {
            runs.push_back({i, i + 1, {}});
            blocks.push_back(Block::of(inner.packed));
        }
        position += inner.size[position % residueCount];
    }
    for (size_t i = 0; i < runs.size(); ++i) {
        runs[i].packed = blocks[i].keptIn(tables);
    }
    if (runs.size() == 1) {
        type.layout.packed = runs.front().packed;
        if (type.appendable) {
            type.layout.packed.xcdr2 = 0;
        }
    }
    type.layout.runs = tables.keep(std::move(runs));
}

Packed packScalar(const Type &type, uint32_t size, Tables &tables)
{
    constexpr uint8_t multiplesOf[] = {0, 0xFF, 0x55, 0, 0x11, 0, 0, 0, 0x01};
    Block block{{size, size, multiplesOf[size], multiplesOf[std::min(size, 4U)], {}}, {}};
    if (type.kind == DDS_TK_BOOLEAN || type.kind == DDS_TK_ENUM) {
        block.strict.push_back({0, &type});
    }
    return block.keptIn(tables);
}

void layScalar(Type &type, Tables &tables)
{
    Layout &layout = type.layout;
    const uint32_t size = scalarSize(type.kind);
    if (isPrimitive(type.kind) || type.kind == DDS_TK_ENUM) {
        layout.packed = packScalar(type, size, tables);
    }
    layout.alignment = size;
    layout.minimum = size;
    for (uint32_t residue = 0; residue < residueCount; ++residue) {
        layout.size[residue] = static_cast<uint32_t>(alignUp(residue, size)) - residue + size;
    }
    if (type.kind == DDS_TK_ENUM) {
        layout.zeroDefault = type.firstEnumerator == 0;
    } else if (type.kind == DDS_TK_STRING) {
        layout.fixed = false;
        layout.zeroDefault = false; // the length counts the NUL
        layout.minimum += 1;
        for (uint32_t &bytes : layout.size) {
            bytes += type.initial.empty() ? 1 : type.initial.size() - size;
        }
    } else if (type.kind == DDS_TK_SEQUENCE) {
        layout.fixed = false;
        layout.alignment = std::max(size, type.element->layout.alignment);
        layElements(layout, type.element->layout.packed, tables);
    }
    layout.zeroDefault = layout.zeroDefault && type.initial.empty();
}

bool layArray(Type &type, Tables &tables)
{
    Layout &layout = type.layout;
    const Type &element = *type.element;
    layout.fixed = element.layout.fixed;
    layout.zeroDefault = element.layout.zeroDefault;
    layout.alignment = element.layout.alignment;
    for (uint32_t residue = 0; residue < residueCount; ++residue) {
        const uint64_t bytes = skipDefaults(element, residue, type.elementCount) - residue;
        if (bytes > maxSample) {
            return false;
        }
        layout.size[residue] = static_cast<uint32_t>(bytes);
    }
    layout.minimum = element.layout.minimum * type.elementCount;
    layout.packed = repeat(element.layout.packed, type.elementCount, tables);
    if (element.kind == DDS_TK_ARRAY) {
        layout.elements = element.layout.elements;
    } else {
        layElements(layout, element.layout.packed, tables);
    }
    if (!isPrimitive(element.kind)) {
        layout.packed.xcdr2 &= element.kind == DDS_TK_ARRAY ? element.layout.packed.xcdr2 : 0;
    }
    return true;
}

bool layStruct(Type &type, Tables &tables)
{
    Layout &layout = type.layout;
    std::vector<SizeByResidue> offsets;
    std::array<uint64_t, residueCount> bytes{};
    for (const Member &member : type.members) {
        const Layout &inner = member.type->layout;
        if (layout.fixed) {
            SizeByResidue &offset = offsets.emplace_back();
            std::copy(bytes.begin(), bytes.end(), offset.begin());
        }
        layout.fixed = layout.fixed && inner.fixed;
        layout.zeroDefault = layout.zeroDefault && inner.zeroDefault;
        layout.alignment = std::max(layout.alignment, inner.alignment);
        layout.minimum += inner.minimum;
        for (uint32_t residue = 0; residue < residueCount; ++residue) {
            bytes[residue] += inner.size[(residue + bytes[residue]) % residueCount];
            if (bytes[residue] > maxSample) {
                return false;
            }
        }
    }
    std::copy(bytes.begin(), bytes.end(), layout.size.begin());
    layout.offsets = tables.keep(std::move(offsets));
    layRuns(type, tables);
    return true;
}

} // namespace

uint64_t skipDefaults(const Type &type, uint64_t position, uint64_t count)
{
    if (count == 0) {
        return position;
    }
    if (isPrimitive(type.kind) || type.kind == DDS_TK_ENUM) {
        const uint32_t size = scalarSize(type.kind);
        return alignUp(position, size) + count * size;
    }
    // The residue decides the step, so after at most 8 steps the steps repeat.
    const SizeByResidue &size = type.layout.size;
    std::array<uint64_t, residueCount> seenAt{};
    std::array<uint64_t, residueCount> left{}; // 0: residue not seen
    while (count > 0) {
        const uint32_t residue = position % residueCount;
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
        position += size[position % residueCount];
    }
    return position;
}

const Type &innermostElement(const Type &array, uint64_t &count)
{
    const Type *type = &array;
    for (count = 1; type->kind == DDS_TK_ARRAY; type = type->element) {
        count *= type->elementCount;
    }
    return *type;
}

bool computeLayout(Type &type, Tables &tables)
{
    switch (type.kind) {
    case DDS_TK_ARRAY:
        return layArray(type, tables);
    case DDS_TK_STRUCT:
        return layStruct(type, tables);
    default:
        layScalar(type, tables);
        return true;
    }
}

} // namespace qddscdr
