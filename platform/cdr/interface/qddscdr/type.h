// A type as CDR needs it: a plain record, which is all that crosses from the library that makes
// types into one that moves their samples. Its tables and the records that it refers to belong to
// whoever made it and do not change while anybody can see them, so that any thread may read them.
// Aliases are gone: every record is that of a resolved type.
#ifndef QDDSCDR_TYPE_H
#define QDDSCDR_TYPE_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <limits>
#include <memory>
#include <string_view>
#include <vector>

#include "qddsc/kind.h"

namespace qddscdr {

struct Type;

/// Elements that somebody else owns. All zero is an empty table.
template<typename Element> struct Table {
    const Element *elements = nullptr;
    uint32_t count = 0;

    const Element *begin() const
    {
        return elements;
    }
    const Element *end() const
    {
        return elements + count;
    }
    const Element &operator[](size_t index) const
    {
        return elements[index];
    }
    uint32_t size() const
    {
        return count;
    }
    bool empty() const
    {
        return count == 0;
    }
    const Element &front() const
    {
        return elements[0];
    }
    const Element &back() const
    {
        return elements[count - 1];
    }
};

/// Owns tables of one record.
class Tables {
public:
    /// May throw std::bad_alloc.
    template<typename Element> Table<Element> keep(std::vector<Element> elements)
    {
        const auto kept = std::make_shared<const std::vector<Element>>(std::move(elements));
        owned_.push_back(kept);
        return {kept->data(), static_cast<uint32_t>(kept->size())};
    }

private:
    std::vector<std::shared_ptr<const void>> owned_;
};

/// Types nest no deeper, which bounds every recursion over types and samples.
constexpr uint32_t maxDepth = 64;

/// No sample is larger.
constexpr uint64_t maxSample = static_cast<uint64_t>(std::numeric_limits<int32_t>::max());

/// CDR aligns every value to its size, counted from the start of the buffer. So how many bytes a
/// value takes depends on where it starts modulo 8, and nothing else: hence tables of 8 entries.
constexpr uint32_t residueCount = 8;
using SizeByResidue = std::array<uint32_t, residueCount>;

/// A boolean or an enum within a block: not every value is one of its type.
struct StrictScalar {
    uint32_t offset;
    const Type *type;
};

/// Scalars that lie without padding between them, in one block.
struct Packed {
    uint32_t bytes = 0;     // 0: no such block
    uint32_t alignment = 1; // of the first scalar
    /// Bit r is set where a block that starts at residue r holds no padding: in XCDR1, and in
    /// XCDR2, which aligns to 4 bytes at most and puts delimiters in between.
    uint8_t plain = 0;
    uint8_t xcdr2 = 0;
    Table<StrictScalar> strict;
};

inline bool isPackedAt(uint8_t residues, uint64_t position)
{
    return ((residues >> (position % residueCount)) & 1U) != 0;
}

/// Members of a struct that may be one block; a single member of any other kind.
struct Run {
    uint32_t begin;
    uint32_t end;
    Packed packed;
};

/// How values of a type lie in CDR. A value "starts" where the one before it ended, in front of its
/// own padding.
struct Layout {
    /// Every value takes the same bytes: no string or sequence inside.
    bool fixed = true;
    /// A default value is all zero bytes.
    bool zeroDefault = true;
    /// Greatest alignment of anything inside: positions that agree modulo it are laid out alike.
    uint32_t alignment = 1;
    /// No value takes fewer bytes, padding not counted.
    uint32_t minimum = 0;
    /// Bytes of a default value, leading padding included; of every value when fixed.
    SizeByResidue size{};
    /// Structs: distance of each member's start from the struct's start. Known up to and including
    /// the first member of variable size.
    Table<SizeByResidue> offsets;
    /// A value as one block.
    Packed packed;
    /// One element of a sequence, or an innermost one of an array, of which any number are one
    /// block.
    Packed elements;
    /// Structs: all members.
    Table<Run> runs;
};

struct Member {
    std::string_view name; // with a NUL behind it
    const Type *type;
    bool isKey;
};

struct Type {
    DDS_TCKind kind = DDS_TK_OCTET;
    bool appendable = false;     // a struct that is
    bool keyed = false;          // a struct with key members
    uint32_t bound = 0;          // of a string or sequence; 0: none
    uint32_t elementCount = 0;   // of an array, all dimensions
    int32_t firstEnumerator = 0; // the default
    /// Of a member that has a default of its own: the value as CDR, without padding in front.
    Table<uint8_t> initial;
    std::string_view name; // of a struct or enum, with a NUL behind it
    const Type *element = nullptr;
    Table<uint32_t> dimensions;
    Table<Member> members;         // of a struct, those of its base first
    Table<uint32_t> membersByName; // indices into members, in order of name
    Table<int32_t> enumerators;    // values, in order
    Layout layout;
};

/// What IDL calls a primitive, by the number of its kind; null for other kinds.
// clang-format off
constexpr const char *idlNames[] = {
    nullptr, "boolean", "char", "octet", "int8", "short", "unsigned short", "long",
    "unsigned long", "long long", "unsigned long long", "float", "double",
    nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
// clang-format on
static_assert(std::size(idlNames) == DDS_TK_LAST + 1, "a name for each kind");

inline bool isPrimitive(DDS_TCKind kind)
{
    return kind <= DDS_TK_DOUBLE;
}

/// Bytes and alignment of a primitive or enum; of the leading count of a string or sequence.
constexpr uint32_t scalarSize(DDS_TCKind kind)
{
    switch (kind) {
    case DDS_TK_BOOLEAN:
    case DDS_TK_CHAR:
    case DDS_TK_OCTET:
    case DDS_TK_INT8:
        return 1;
    case DDS_TK_SHORT:
    case DDS_TK_USHORT:
        return 2;
    case DDS_TK_LONGLONG:
    case DDS_TK_ULONGLONG:
    case DDS_TK_DOUBLE:
        return 8;
    default:
        return 4;
    }
}

inline uint64_t alignUp(uint64_t position, uint32_t alignment)
{
    return (position + alignment - 1) & ~static_cast<uint64_t>(alignment - 1);
}

/// Where `count` values end of which each takes the bytes of a default one.
uint64_t skipDefaults(const Type &type, uint64_t position, uint64_t count);

/// Fills `type.layout` from the layouts of the types inside, with tables that `tables` owns; false
/// when a default value would be larger than maxSample. May throw std::bad_alloc.
bool computeLayout(Type &type, Tables &tables);

inline bool isEnumerator(const Type &enumeration, int32_t value)
{
    const Table<int32_t> &values = enumeration.enumerators;
    const int64_t index = int64_t{value} - values.front();
    const auto count = static_cast<int64_t>(values.size());
    // Most have no gaps.
    return values.back() - int64_t{values.front()} < count
               ? index >= 0 && index < count
               : std::binary_search(values.begin(), values.end(), value);
}

/// The type of a child: member of a struct, element of a sequence or array.
inline const Type &childType(const Type &container, uint32_t index)
{
    return container.kind == DDS_TK_STRUCT ? *container.members[index].type : *container.element;
}

/// The type of an array's elements, seen through elements that are arrays themselves: on the wire
/// such an array is one of more dimensions. `count` receives all elements.
const Type &innermostElement(const Type &array, uint64_t &count);

} // namespace qddscdr

#endif
