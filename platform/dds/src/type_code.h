// What a type code is made of. Objects are immutable once interned, so that any thread may read
// them; the intern table owns them until the process ends.
#ifndef QDDSC_SRC_TYPE_CODE_H
#define QDDSC_SRC_TYPE_CODE_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "qddsc/type_code.h"

namespace qddsc {

// CDR aligns every value to its size, counted from the start of the buffer. So how many bytes a
// value takes depends on where it starts modulo 8, and nothing else: hence tables of 8 entries.
constexpr uint32_t RESIDUES = 8;
using SizeByResidue = std::array<uint32_t, RESIDUES>;

// A boolean or an enum within a block: not every value is one of its type.
struct Picky {
    uint32_t offset;
    const DDS_TypeCode *type;
};

// Scalars that lie without padding between them, in one block.
struct Packed {
    uint32_t bytes = 0;     // 0: no such block
    uint32_t alignment = 1; // of the first scalar
    // Bit r is set where a block that starts at residue r holds no padding: in XCDR1, and in XCDR2,
    // which aligns to 4 bytes at most and puts delimiters in between.
    uint8_t plain = 0;
    uint8_t xcdr2 = 0;
    std::vector<Picky> picky;
};

inline bool isPackedAt(uint8_t residues, uint64_t position)
{
    return ((residues >> (position % RESIDUES)) & 1U) != 0;
}

// Members of a struct that may be one block; a single member of any other kind.
struct Run {
    uint32_t begin;
    uint32_t end;
    Packed packed;
};

// How values of a type lie in CDR. A value "starts" where the one before it ended, in front of its
// own padding.
struct Layout {
    // Every value takes the same bytes: no string or sequence inside.
    bool fixed = true;
    // A default value is all zero bytes.
    bool zeroDefault = true;
    // Greatest alignment of anything inside: positions that agree modulo it are laid out alike.
    uint32_t alignment = 1;
    // No value takes fewer bytes, padding not counted.
    uint32_t minimum = 0;
    // Bytes of a default value, leading padding included; of every value when fixed.
    SizeByResidue size{};
    // Structs: distance of each member's start from the struct's start. Known up to and including
    // the first member of variable size.
    std::vector<SizeByResidue> offsets;
    // A value as one block.
    Packed packed;
    // One element of a sequence, or an innermost one of an array, of which any number are one
    // block.
    Packed elements;
    // Structs: all members.
    std::vector<Run> runs;
};

struct Member {
    std::string name;
    const DDS_TypeCode *type; // null for enumerators
    bool isKey;
    int32_t value; // of an enumerator
};

// Types nest no deeper, which bounds every recursion over types and samples.
constexpr uint32_t MAX_DEPTH = 64;

} // namespace qddsc

struct DDS_TypeCode {
    DDS_TCKind kind = DDS_TK_OCTET;
    DDS_ExtensibilityKind extensibility = DDS_EXTENSIBILITY_FINAL;
    bool keyed = false;
    bool nested = false;
    bool holdsAppendable = false; // is an appendable struct, or one is inside
    bool keyable = true;          // may be a key member: holds no sequence that would count
    uint32_t bound = 0;
    uint32_t depth = 1;                     // 1 + that of the deepest type inside
    const DDS_TypeCode *resolved = nullptr; // self, or what an alias ends at
    const DDS_TypeCode *content = nullptr;
    const DDS_TypeCode *base = nullptr;
    std::string name;
    std::vector<uint32_t> dimensions;
    uint32_t elementCount = 0;             // of an array, all dimensions
    std::vector<qddsc::Member> members;    // those of the base first
    std::vector<uint32_t> membersByName;   // indices into members, in order of name
    std::vector<int32_t> enumeratorValues; // in order of value
    qddsc::Layout layout;                  // of the resolved type
};

namespace qddsc {

inline bool isPrimitive(DDS_TCKind kind)
{
    return kind <= DDS_TK_DOUBLE;
}

// A primitive as IDL writes it.
const char *primitiveName(DDS_TCKind kind);

// Bytes and alignment of a primitive or enum; of the leading count of a string or sequence.
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

// Where `count` values end of which each takes the bytes of a default one.
uint64_t skipDefaults(const DDS_TypeCode &resolved, uint64_t position, uint64_t count);

// Fills `type.layout` from the layouts of the types inside; false when a default value would pass
// the size limit of CDR.
bool computeLayout(DDS_TypeCode &type);

// Index of a struct's member, or UINT32_MAX.
uint32_t findMember(const DDS_TypeCode &structure, std::string_view name);

inline bool isEnumerator(const DDS_TypeCode &enumeration, int32_t value)
{
    const std::vector<int32_t> &values = enumeration.enumeratorValues;
    const int64_t index = int64_t{value} - values.front();
    const auto count = static_cast<int64_t>(values.size());
    // Most have no gaps.
    return values.back() - int64_t{values.front()} < count
               ? index >= 0 && index < count
               : std::binary_search(values.begin(), values.end(), value);
}

} // namespace qddsc

#endif
