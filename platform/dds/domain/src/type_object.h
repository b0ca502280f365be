// Types as peers tell them to each other (XTypes 1.3, 7.3.4): type objects, and the type
// information that an endpoint announces, all as serialized bytes. Pure functions: no engine, any
// thread.
#ifndef QDDSDOMAIN_SRC_TYPE_OBJECT_H
#define QDDSDOMAIN_SRC_TYPE_OBJECT_H

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "qddsc/type_code.h"

namespace qddsdomain {

// Both in little-endian XCDR2, as the engine's own IDL compiler puts them into its descriptors.
struct TypeDescription {
    std::vector<uint8_t> typeInformation;
    std::vector<uint8_t> typeMapping;
};

// Describes a struct and every type that it uses. False, with the error filled, when it cannot.
bool describeType(const DDS_TypeCode &type, TypeDescription &description, DDS_ErrorText *error);

// A type object's identity: the hash of its serialized form.
using EquivalenceHash = std::array<uint8_t, 14>;

// Puts a type code together from a peer's complete type objects, which arrive one by one.
class TypeAssembler {
public:
    // `root` identifies the complete type object of a struct.
    explicit TypeAssembler(const EquivalenceHash &root);

    // A type object in little-endian XCDR2. It is kept under `hash`, which the caller vouches for.
    void add(const EquivalenceHash &hash, const uint8_t *bytes, size_t length);

    enum class State {
        // Type objects are missing: see missing().
        incomplete,
        made,
        // Not carried, or not well formed: see problem(). Final.
        refused
    };
    // Tries again with what is there.
    State assemble();

    const std::vector<EquivalenceHash> &missing() const;
    const DDS_TypeCode *type() const;
    // Names the type, the member and what is not carried.
    const std::string &problem() const;
};

} // namespace qddsdomain

#endif
