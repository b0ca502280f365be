// A complete type object as it was sent, read but not yet understood: other types are known by
// their hashes only.
#ifndef QDDSDOMAIN_SRC_TYPE_OBJECT_PARSE_H
#define QDDSDOMAIN_SRC_TYPE_OBJECT_PARSE_H

#include "type_object.h"

namespace qddsdomain {

/// Kinds are the TK_, TI_ and EK_ of type_object_codes.h.
struct TypeId {
    uint8_t kind = 0;
    uint32_t bound = 0;
    std::vector<uint32_t> dimensions; // of an array
    EquivalenceHash hash{};
    std::vector<TypeId> element; // one, of a collection
};

struct ParsedMember {
    std::string name;
    TypeId type; // not of an enumerator
    uint32_t id = 0;
    uint16_t flags = 0;
    int32_t value = 0; // of an enumerator
};

struct ParsedType {
    uint8_t kind = 0; // TK_...
    uint16_t flags = 0;
    std::string name; // empty for a collection
    TypeId related;   // base, target of an alias, or the collection itself
    std::vector<ParsedMember> members;

    /// "struct a::B", for people.
    std::string title() const;
};

/// Throws Rejection, which names the type as far as it was read, for what is malformed or of a kind
/// that is not carried as a whole.
ParsedType parseTypeObject(const uint8_t *bytes, size_t length);

} // namespace qddsdomain

#endif
