// Types as peers announce them to each other (XTypes 1.3, 7.3.4): type objects, and the type
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

/// Both in little-endian XCDR2, as the engine's own IDL compiler puts them into its descriptors.
struct TypeDescription {
    std::vector<uint8_t> typeInformation;
    std::vector<uint8_t> typeMapping;
};

/// Describes a struct and every type that it uses. False, with the error filled, when it cannot.
bool describeType(const DDS_TypeCode &type, TypeDescription &description, DDS_ErrorText *error);

/// A type object's identity: the hash of its serialized form.
using EquivalenceHash = std::array<uint8_t, 14>;

/// Puts a type code together from a peer's complete type objects, which arrive one by one. They may
/// be of any making: nothing in them is believed. Used by one thread at a time.
class TypeAssembler {
public:
    /// `root` identifies the complete type object of a struct.
    explicit TypeAssembler(const EquivalenceHash &root) : root_(root) {}

    /// A type object in little-endian XCDR2. It is kept under `hash`, which the caller vouches for;
    /// a second one under the same hash is dropped.
    void add(const EquivalenceHash &hash, const uint8_t *bytes, size_t length);

    enum class State {
        /// Type objects are missing: see missing().
        incomplete,
        made,
        /// Not carried, or not well formed: see problem(). Final.
        rejected
    };
    /// Tries again with what is there.
    State assemble();

    /// What the last call of assemble() lacked, each once: everything that can be known to lack by
    /// then.
    const std::vector<EquivalenceHash> &missing() const
    {
        return missing_;
    }
    /// Null until made.
    const DDS_TypeCode *type() const
    {
        return type_;
    }
    /// Names the type, the member and what is not carried; "" unless rejected.
    const std::string &problem() const
    {
        return problem_;
    }

private:
    friend class Assembly;

    EquivalenceHash root_;
    std::map<EquivalenceHash, std::vector<uint8_t>> objects_;
    std::map<EquivalenceHash, const DDS_TypeCode *> made_;
    std::vector<EquivalenceHash> missing_;
    const DDS_TypeCode *type_ = nullptr;
    std::string problem_;
};

} // namespace qddsdomain

#endif
