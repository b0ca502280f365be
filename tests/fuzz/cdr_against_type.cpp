// Payloads from strangers: what is accepted can be read, and makes the trip again. The first byte
// of the input picks a type, the rest is the payload.
#include <cstdlib>

#include "../platform/fixture.h"
#include "../platform/model.h"
#include "wire.h"

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

using qddsdomain::Bytes;
using qddsdomain::KeyHash;
using qddsdomain::Representation;
using qddsdomain::WireType;

constexpr const char *KEYS_IDL = R"(
enum Sky { CLEAR, CLOUDS, RAIN };
@appendable struct In { octet u; @key long k; string more; };
@appendable struct S {
  boolean b; @key In ins[2]; sequence<In, 4> list; @key Sky skies[2]; @key string<4> name;
  sequence<double> d; long long tail;
};)";
constexpr const char *HASH_IDL =
    "enum Sky { A, B }; struct S { octet o; @key string<3> s; @key octet k; @key Sky e; };";
constexpr const char *FLAT_IDL = "struct S { long a; boolean b; short c; octet d[3]; float e; };";

const WireType &typeAt(uint8_t choice)
{
    static const DDS_TypeCode *const types[] = {observationType(), typeFromIdl(KEYS_IDL, "S"),
                                                typeFromIdl(HASH_IDL, "S"),
                                                typeFromIdl(FLAT_IDL, "S")};
    return *WireType::of(types[choice % std::size(types)], nullptr);
}

void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

void checkKey(const WireType &wire, const Bytes &key)
{
    Bytes payload;
    Bytes again;
    for (const Representation representation : {Representation::xcdr1, Representation::xcdr2}) {
        require(wire.encodeKey(key, representation, payload));
        require(wire.decodeKey(payload.data(), payload.size(), again, nullptr) && again == key);
        const KeyHash hash = wire.keyHash(key, representation);
        require(!wire.hashIsKey(representation) ||
                (wire.keyFromHash(hash, again, representation) && again == key));
    }
    Bytes sample;
    require(wire.sampleOf(key, sample));
    require(wire.keyOf(sample.data(), sample.size(), again) && again == key);
}

void checkSample(const WireType &wire, const Bytes &plain)
{
    Bytes payload;
    Bytes again;
    for (const Representation representation : {Representation::xcdr1, Representation::xcdr2}) {
        require(wire.encode(plain.data(), plain.size(), representation, payload));
        require(wire.decode(payload.data(), payload.size(), again, nullptr) && again == plain);
    }
    const Sample sample = makeSample(&wire.type());
    require(DDS_DynamicData_set_cdr(sample.get(), plain.data(), plain.size(), nullptr) ==
            DDS_RETCODE_OK);
    require(bytesOf(sample) == plain);
    model::Value value;
    value.type = &wire.type();
    require(model::read(sample.get(), value));
    if (wire.keyType() != nullptr) {
        require(wire.keyOf(plain.data(), plain.size(), again));
        checkKey(wire, again);
    }
}

} // namespace

int LLVMFuzzerInitialize(int *, char ***)
{
    testing::GTEST_FLAG(break_on_failure) = true;
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0) {
        return 0;
    }
    const WireType &wire = typeAt(data[0]);
    DDS_ErrorText error{};
    Bytes plain;
    const bool good = wire.decode(data + 1, size - 1, plain, &error);
    require(good == (error.text[0] == '\0'));
    require(plain.capacity() <= 160 * size + 4096);
    if (good) {
        checkSample(wire, plain);
    }
    if (wire.keyType() != nullptr && wire.decodeKey(data + 1, size - 1, plain, nullptr)) {
        checkKey(wire, plain);
    }
    return 0;
}
