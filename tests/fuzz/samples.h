// What must hold of every sample and key that was accepted, whatever its type.
#ifndef TESTS_FUZZ_SAMPLES_H
#define TESTS_FUZZ_SAMPLES_H

#include "../platform/fixture.h"
#include "../platform/model.h"
#include "target.h"
#include "wire.h"

using qddsdomain::Bytes;
using qddsdomain::KeyHash;
using qddsdomain::Representation;
using qddsdomain::WireType;

inline void checkKey(const WireType &wire, const Bytes &key)
{
    Bytes payload;
    Bytes again;
    for (const Representation representation : {Representation::xcdr1, Representation::xcdr2}) {
        REQUIRE(wire.encodeKey(key, representation, payload));
        REQUIRE(wire.decodeKey(payload.data(), payload.size(), again, nullptr) && again == key);
        const KeyHash hash = wire.keyHash(key, representation);
        REQUIRE(!wire.hashIsKey(representation) ||
                (wire.keyFromHash(hash, again, representation) && again == key));
    }
    Bytes sample;
    REQUIRE(wire.sampleOf(key, sample));
    REQUIRE(wire.keyOf(sample.data(), sample.size(), again) && again == key);
}

inline void checkSample(const WireType &wire, const Bytes &plain)
{
    Bytes payload;
    Bytes again;
    for (const Representation representation : {Representation::xcdr1, Representation::xcdr2}) {
        REQUIRE(wire.encode(plain.data(), plain.size(), representation, payload));
        REQUIRE(wire.decode(payload.data(), payload.size(), again, nullptr) && again == plain);
    }
    const Sample sample = makeSample(&wire.type());
    REQUIRE(DDS_DynamicData_set_cdr(sample.get(), plain.data(), plain.size(), nullptr) ==
            DDS_RETCODE_OK);
    REQUIRE(bytesOf(sample) == plain);
    model::Value value;
    value.type = &wire.type();
    REQUIRE(model::read(sample.get(), value));
    if (wire.keyType() != nullptr) {
        REQUIRE(wire.keyOf(plain.data(), plain.size(), again));
        checkKey(wire, again);
    }
}

/// The IDL of a type leads to it again, and its samples can be made.
inline void checkType(const DDS_TypeCode *type)
{
    char *idl = DDS_TypeCode_to_idl(type);
    REQUIRE(typeFromIdl(idl, DDS_TypeCode_get_name(type)) == type);
    const bool hasDefaults = std::strstr(idl, "@default(") != nullptr; // which the model lacks
    DDS_String_free(idl);
    if (DDS_TypeCode_get_kind(DDS_TypeCode_resolve(type)) == DDS_TK_STRUCT) {
        // One of more than 16 KiB says nothing that a smaller one does not.
        const Sample sample = makeSample(type, 1 << 14);
        const WireType *wire = WireType::of(DDS_TypeCode_resolve(type), nullptr);
        REQUIRE(wire != nullptr);
        if (sample != nullptr) {
            REQUIRE(hasDefaults || bytesOf(sample) == model::encode(model::makeDefault(type)));
            checkSample(*wire, bytesOf(sample));
        }
    }
}

#endif
