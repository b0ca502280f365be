// Types as peers announce them to each other (XTypes 1.3, 7.3.4): type objects, and the type
// information that an endpoint announces, all as serialized bytes. Pure functions: no engine, any
// thread.
#ifndef QDDSDOMAIN_SRC_TYPE_OBJECT_H
#define QDDSDOMAIN_SRC_TYPE_OBJECT_H

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
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

/// A type object by its form (xtypes::EK_MINIMAL or EK_COMPLETE) and hash.
using TypeObjectId = std::pair<uint8_t, EquivalenceHash>;

/// The type that an endpoint announces, to be announced again as it is. Its type objects arrive one
/// by one. Used by one thread at a time.
class TypePassage {
public:
    TypePassage() = default;
    /// `tops`: the type itself in each of its forms; `objects`: all that the type information
    /// names.
    TypePassage(std::vector<uint8_t> information, std::vector<TypeObjectId> tops,
                const std::vector<TypeObjectId> &objects);

    /// A type object in little-endian XCDR2, without a header. One that its hash does not fit is
    /// dropped: then the passage is never complete.
    void add(const TypeObjectId &id, const std::vector<uint8_t> &object);
    std::vector<TypeObjectId> missing() const;
    /// Empty unless all is there.
    TypeDescription description() const;

private:
    std::vector<uint8_t> information_;
    std::vector<TypeObjectId> tops_;
    std::map<TypeObjectId, std::vector<uint8_t>> objects_; // empty: not there yet
};

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
