// What a type code is made of. Objects are immutable once interned, so that any thread may read
// them; the intern table owns them until the process ends.
#ifndef QDDSC_SRC_TYPE_CODE_H
#define QDDSC_SRC_TYPE_CODE_H

#include <memory>
#include <string>
#include <vector>

#include "qddsc/type_code.h"
#include "qddscdr/error_text.h"
#include "qddscdr/type.h"

namespace qddsc {

using qddscdr::setError;

struct Member {
    std::string name;
    const DDS_TypeCode *type; // null for enumerators
    bool isKey;
    int32_t value; // of an enumerator
    /// Default as CDR, without padding in front; empty for that of the type.
    std::string initial;
};

/// The record with the bytes that it points to.
struct Opaque {
    DDS_OpaqueType record{};
    std::string information, mapping;
};

} // namespace qddsc

struct DDS_TypeCode {
    DDS_TCKind kind = DDS_TK_OCTET;
    DDS_ExtensibilityKind extensibility = DDS_EXTENSIBILITY_FINAL;
    bool keyed = false;
    bool nested = false;
    bool holdsAppendable = false; // is an appendable struct, or one is inside
    bool keyable = true;          // may be a key member: holds no sequence that would count
    uint32_t bound = 0;
    uint32_t depth = 0;   // 1 + that of the deepest type inside; 0 of what holds no other
    uint32_t aliases = 0; // of an alias: how many are in a row
    const DDS_TypeCode *resolved = nullptr; // self, or what an alias ends at
    const DDS_TypeCode *content = nullptr;
    const DDS_TypeCode *base = nullptr;
    std::string name;
    std::vector<uint32_t> dimensions;
    uint32_t elementCount = 0;           // of an array, all dimensions
    std::vector<qddsc::Member> members;  // those of the base first
    std::vector<uint32_t> membersByName; // indices into members, in order of name
    std::unique_ptr<const qddsc::Opaque> opaque;
    /// What samples need of the type; that of the resolved type counts. Its texts are those above.
    qddscdr::Type record;
    qddscdr::Tables tables;
};

namespace qddsc {

/// Fills the record, whose types inside have theirs; false when a sample would be too large. May
/// throw std::bad_alloc.
bool makeRecord(DDS_TypeCode &type);

/// Index of a struct's member or an enum's enumerator by name, of a type code or a record, or
/// UINT32_MAX.
template<typename Type> uint32_t findMember(const Type &type, std::string_view name)
{
    const auto &order = type.membersByName;
    const auto found = std::lower_bound(
        order.begin(), order.end(), name, [&type](uint32_t index, std::string_view wanted) {
            return std::string_view(type.members[index].name) < wanted;
        });
    return found != order.end() && type.members[*found].name == name ? *found : UINT32_MAX;
}

} // namespace qddsc

#endif
