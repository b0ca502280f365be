// Payloads from strangers: what is accepted can be read, and makes the trip again. The first byte
// of the input picks a type, the rest is the payload.
#include "samples.h"

namespace {

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
    REQUIRE(good == (error.text[0] == '\0'));
    REQUIRE(plain.capacity() <= 160 * size + 4096);
    if (good) {
        checkSample(wire, plain);
    }
    if (wire.keyType() != nullptr && wire.decodeKey(data + 1, size - 1, plain, nullptr)) {
        checkKey(wire, plain);
    }
    return 0;
}
