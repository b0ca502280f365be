// Samples as they go over the network: encapsulation header and CDR in one of several encodings,
// against the one form that samples have inside (XCDR1, little endian, no header, padding zero).
// Pure functions over bytes: no engine, no state, any thread.
#ifndef QDDSDOMAIN_SRC_WIRE_H
#define QDDSDOMAIN_SRC_WIRE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "qddsc/type_code.h"

namespace qddscdr {
struct Type;
}

namespace qddsdomain {

using Bytes = std::vector<uint8_t>;
using KeyHash = std::array<uint8_t, 16>;

/// First two bytes of an encapsulation header, big endian (RTPS 2.5, 10.5; XTypes 1.3, 7.6.3.1.2).
enum class Encapsulation : uint16_t {
    cdrBe = 0x0000,
    cdrLe = 0x0001,
    cdr2Be = 0x0006, // final
    cdr2Le = 0x0007,
    delimitedCdr2Be = 0x0008, // appendable
    delimitedCdr2Le = 0x0009
};

constexpr size_t encapsulationSize = 4;

enum class Representation { xcdr1, xcdr2 };

/// What a type needs on the wire, made once per type. Only growing vectors allocate, which throws
/// std::bad_alloc; what they hold after a failure is not said.
class WireType {
public:
    /// `type` is a struct or an alias of one. Lives as long as the process. Null, with the error
    /// filled, when its key type cannot be made.
    static const WireType *of(const DDS_TypeCode *type, DDS_ErrorText *error);

    /// The struct.
    const DDS_TypeCode &type() const
    {
        return *whole_.code;
    }
    /// Null for a type whose samples are looked into. Of an opaque one nothing below is of use: see
    /// opaque.h.
    const DDS_OpaqueType *opaque() const
    {
        return opaque_;
    }
    /// Whether samples have keys, be they known or not.
    bool isKeyed() const
    {
        return opaque_ != nullptr ? opaque_->isKeyed != 0 : key_.code != nullptr;
    }
    /// The struct of its key members alone, nested ones included; null for a type without key, and
    /// for an opaque one. Its name is that of the type and "_key_".
    const DDS_TypeCode *keyType() const
    {
        return key_.code;
    }

    /// Turns a message's payload, header included, into a sample of `type()`; every length, bound,
    /// NUL, boolean, enumerator and delimiter is checked, and memory is taken only for what the
    /// payload holds. `plain` keeps its capacity. False with the error filled otherwise.
    ///
    /// An appendable struct may have more members than the type (they are dropped) or fewer (they
    /// are at their default): in XCDR2 every one of them, in XCDR1 the outermost only.
    bool decode(const uint8_t *payload, size_t length, Bytes &plain, DDS_ErrorText *error) const;
    /// The same for a payload that holds the key members only; gives a sample of `keyType()`.
    bool decodeKey(const uint8_t *payload, size_t length, Bytes &plainKey,
                   DDS_ErrorText *error) const;

    /// The payload of a sample or key that decode or an accessor made: header included, padded to a
    /// multiple of 4. False when the sample is malformed, which XCDR1 does not look at.
    bool encode(const uint8_t *plain, size_t length, Representation representation,
                Bytes &payload) const;
    bool encodeKey(const Bytes &plainKey, Representation representation, Bytes &payload) const;

    /// Key members of a sample, as a sample of `keyType()`; false when the sample is malformed.
    bool keyOf(const uint8_t *plain, size_t length, Bytes &plainKey) const;
    /// A sample with those key members and all others at their default; false when the key is
    /// malformed.
    bool sampleOf(const Bytes &plainKey, Bytes &plain) const;

    /// The hash that identifies an instance on the wire (RTPS 2.5, 9.6.4.8): the key's big-endian
    /// CDR where that is never longer than 16 bytes, else its MD5. It is that of the CDR which the
    /// message is in: the two differ where 8-byte members need padding or enums are in arrays.
    KeyHash keyHash(const Bytes &plainKey,
                    Representation representation = Representation::xcdr2) const;
    /// Whether keys can be had from their hashes, which are the keys themselves then.
    bool hashIsKey(Representation representation = Representation::xcdr2) const;
    bool keyFromHash(const KeyHash &hash, Bytes &plainKey,
                     Representation representation = Representation::xcdr2) const;

private:
    /// What is decoded and encoded: samples or keys.
    struct Subject {
        const DDS_TypeCode *code = nullptr;
        const qddscdr::Type *type = nullptr;
        /// Little-endian XCDR2 differs from the plain form by the outermost delimiter at most.
        bool sameInXcdr2 = false;
    };

    WireType() = default;

    Subject whole_;
    Subject key_;
    std::array<bool, 2> hashIsKey_{}; // by representation
    const DDS_OpaqueType *opaque_ = nullptr;
};

} // namespace qddsdomain

#endif
