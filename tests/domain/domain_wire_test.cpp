// Payloads against a naive encoder, against what the engine itself sent, and against lies.
#include "../platform/fixture.h"
#include "../platform/model.h"
#include "wire.h"

namespace {

using model::Value;
using qddsdomain::Bytes;
using qddsdomain::KeyHash;
using qddsdomain::Representation;
using qddsdomain::WireType;

constexpr Representation BOTH[] = {Representation::xcdr1, Representation::xcdr2};

const WireType &wireOf(const DDS_TypeCode *type)
{
    DDS_ErrorText error{};
    const WireType *wire = WireType::of(type, &error);
    EXPECT_NE(wire, nullptr) << error.text;
    return *wire;
}

Bytes fromHex(const std::string &hex)
{
    Bytes bytes;
    std::string digits;
    for (const char c : hex) {
        digits += c == ' ' ? "" : std::string(1, c);
    }
    for (size_t i = 0; i < digits.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

Bytes naivePayload(const Value &value, Representation representation, bool bigEndian)
{
    const bool xcdr2 = representation == Representation::xcdr2;
    Bytes bytes = model::encode(value, {xcdr2, bigEndian});
    const auto padding = static_cast<uint8_t>(-bytes.size() % 4);
    const int id = !xcdr2 ? 0 : model::isAppendable(value.type) ? 8 : 6;
    bytes.insert(bytes.end(), padding, 0);
    bytes.insert(bytes.begin(), {0, static_cast<uint8_t>(id + (bigEndian ? 0 : 1)), 0, padding});
    return bytes;
}

// What is left of a value as a key; or, with a default value of the same type in `others`, that
// with the key members of `value`.
Value keyPart(const Value &value, const Value *others = nullptr)
{
    Value part = others != nullptr ? *others : value;
    const bool keyed = DDS_TypeCode_is_keyed(value.type) != 0;
    part.children.clear();
    for (size_t i = 0; i < value.children.size(); ++i) {
        const Value *other = others != nullptr ? &others->children[i] : nullptr;
        if (!keyed || DDS_TypeCode_is_member_key(value.type, static_cast<uint32_t>(i)) != 0) {
            Value child = keyPart(value.children[i], other);
            part.children.push_back(std::move(child));
        } else if (other != nullptr) {
            part.children.push_back(*other);
        }
    }
    if (value.children.empty()) {
        part.bits = value.bits;
        part.text = value.text;
    }
    return part;
}

void checkKeys(const WireType &wire, const Value &value)
{
    const Bytes plain = model::encode(value);
    const Bytes wanted = model::encode(keyPart(value));
    Bytes key;
    Bytes other;
    ASSERT_TRUE(wire.keyOf(plain.data(), plain.size(), key));
    ASSERT_EQ(key, wanted);
    const Value defaults = model::makeDefault(value.type);
    ASSERT_TRUE(wire.sampleOf(key, other));
    ASSERT_EQ(other, model::encode(keyPart(value, &defaults)));
    for (const Representation representation : BOTH) {
        Bytes payload;
        DDS_ErrorText error{};
        ASSERT_TRUE(wire.encodeKey(key, representation, payload));
        ASSERT_TRUE(wire.decodeKey(payload.data(), payload.size(), other, &error)) << error.text;
        ASSERT_EQ(other, wanted);
        if (representation == Representation::xcdr1 && payload.size() < 20) {
            payload.resize(20, 0); // as a short key is sent
            ASSERT_TRUE(wire.decodeKey(payload.data(), payload.size(), other, &error))
                << error.text;
            ASSERT_EQ(other, wanted);
        }
        if (wire.hashIsKey(representation)) {
            const KeyHash hash = wire.keyHash(key, representation);
            ASSERT_TRUE(wire.keyFromHash(hash, other, representation));
            ASSERT_EQ(other, wanted);
        }
    }
}

TEST(DomainWire, RandomSamplesAgreeWithTheNaiveEncoder)
{
    model::Random random(7);
    int keyed = 0;
    for (int round = 0; round < 3000 && !HasFailure(); ++round) {
        const DDS_TypeCode *type = random.structure(1 + static_cast<int>(random.below(5)));
        const std::unique_ptr<char, Deleter<DDS_String_free>> idl(DDS_TypeCode_to_idl(type));
        SCOPED_TRACE(idl.get());
        const WireType &wire = wireOf(type);
        Value value = model::makeDefault(type);
        random.fill(value);
        const Bytes plain = model::encode(value);
        for (const Representation representation : BOTH) {
            Bytes made;
            Bytes decoded;
            DDS_ErrorText error{};
            ASSERT_TRUE(wire.encode(plain.data(), plain.size(), representation, made));
            ASSERT_EQ(made, naivePayload(value, representation, false));
            ASSERT_TRUE(wire.decode(made.data(), made.size(), decoded, &error)) << error.text;
            ASSERT_EQ(decoded, plain);
            const Bytes big = naivePayload(value, representation, true);
            ASSERT_TRUE(wire.decode(big.data(), big.size(), decoded, &error)) << error.text;
            ASSERT_EQ(decoded, plain);
        }
        if (wire.keyType() != nullptr) {
            ++keyed;
            checkKeys(wire, value);
        }
    }
    EXPECT_GT(keyed, 500);
}

// Samples, their keys and key hashes, as the engine sends them for its own generated code.
TEST(DomainWire, WhatTheEngineSendsIsReadAndMadeAgain)
{
    const std::string inner = R"(
        enum E { A, B, C };
        @appendable struct InA { octet u; @key long k; };
        @appendable struct InA2 { octet u; long k; };
        struct Fin { octet o; double d; };
        @appendable struct App { octet o; long long l; string s; };
        @appendable struct Base { @key long id; string<8> name; };)";
    const struct {
        const char *idl;
        const char *sample;
        const char *key;
        const char *hash;
    } cases[] = {
        {"@appendable struct S : Base { E e; boolean good; sequence<E> es; E ea[2]; "
         "sequence<boolean> "
         "b; sequence<Fin> f; Fin fa[2]; sequence<App> a; App aa[1]; sequence<string> t; string "
         "ta[2];"
         " sequence<sequence<long>> ll; double g[2][2]; sequence<double> d; octet tail; App last; "
         "};",
         "00090002 5e010000 11000000 04000000 61626300 02000000 01000000 0c000000 02000000 01000000"
         "02000000 08000000 01000000 02000000 03000000 01000100 1c000000 02000000 07000000 00000000"
         "0000f83f 08000000 00000000 00000440 18000000 07000000 00000000 0000f83f 08000000 00000000"
         "00000440 33000000 02000000 12000000 01000000 02000000 00000000 02000000 78000000 13000000"
         "03000000 04000000 00000000 03000000 797a0000 17000000 13000000 03000000 04000000 00000000"
         "03000000 797a0000 14000000 02000000 02000000 61000000 04000000 62636400 0d000000 02000000"
         "71000000 01000000 00000000 18000000 02000000 03000000 01000000 02000000 03000000 00000000"
         "00000000 0000f03f 00000000 00000000 00000000 00000000 00000000 00001040 02000000 00000000"
         "0000f03f 00000000 00000040 09000000 12000000 01000000 02000000 00000000 02000000 "
         "78000000",
         "00090000 11000000", "00000011000000000000000000000000"},
        {"struct S { octet a; @key octet k; @key long long l; @key long i; };",
         "00010000 01020000 00000000 03000000 00000000 04000000",
         "00010000 02000000 00000000 03000000 00000000 04000000",
         "684f33fce6520d2afeab97d397cb45ba"},
        {"struct S { @key E e; @key octet o[5]; @key boolean b; long x; };",
         "00010000 02000000 01000000 05010000 00000000", "00010002 02000000 01000000 05010000",
         "00000002010000000501000000000000"},
        {"@appendable struct S { @key InA a; @key InA2 b; long x; };",
         "00090000 1c000000 08000000 01000000 02000000 08000000 03000000 04000000 00000000",
         "00090000 02000000 03000000 04000000", "00000002030000000000000400000000"},
        {"struct S { @key E s[2]; @key double d; long x; };",
         "00070000 08000000 01000000 02000000 00000000 0000f03f 00000000",
         "00070000 08000000 01000000 02000000 00000000 0000f03f",
         "a1fc474e9ab10106b3b06186c3cd255e"},
        // Its MD5, as the standard asks; the engine sends a short key itself.
        {"struct S { @key string color; long x; long y; long z; };",
         "00010000 05000000 424c5545 00000000 01000000 00000000 00000000",
         "00010003 05000000 424c5545 00000000", "cac217c318363f8ef1160eeedef9e886"}};
    for (const auto &test : cases) {
        SCOPED_TRACE(test.idl);
        const WireType &wire = wireOf(typeFromIdl((inner + test.idl).c_str(), "S"));
        const Bytes sent = fromHex(test.sample);
        const auto representation = sent[1] == 1 ? Representation::xcdr1 : Representation::xcdr2;
        Bytes plain;
        Bytes key;
        Bytes made;
        DDS_ErrorText error{};
        ASSERT_TRUE(wire.decode(sent.data(), sent.size(), plain, &error)) << error.text;
        ASSERT_TRUE(wire.encode(plain.data(), plain.size(), representation, made));
        EXPECT_EQ(made, sent);
        ASSERT_TRUE(wire.keyOf(plain.data(), plain.size(), key));
        ASSERT_TRUE(wire.encodeKey(key, representation, made));
        EXPECT_EQ(made, fromHex(test.key));
        const KeyHash hash = wire.keyHash(key, representation);
        EXPECT_EQ(Bytes(hash.begin(), hash.end()), fromHex(test.hash));
    }
}

// Peers of another make put delimiters into keys as into samples.
TEST(DomainWire, AKeyWithDelimitersIsReadToo)
{
    const WireType &wire = wireOf(typeFromIdl(
        "@appendable struct I { @key long k; octet o; }; @appendable struct S { @key I i; };",
        "S"));
    Bytes key;
    DDS_ErrorText error{};
    const Bytes sent = fromHex("00090000 08000000 04000000 07000000");
    ASSERT_TRUE(wire.decodeKey(sent.data(), sent.size(), key, &error)) << error.text;
    EXPECT_EQ(key, fromHex("07000000"));
}

TEST(DomainWire, AppendableTypesMayGrowAndOthersMayNot)
{
    const char *older = "@appendable struct I { octet a; };"
                        "@appendable struct S { octet x; sequence<I> i; octet y; };";
    const char *newer = "@appendable struct I { octet a, e; string b; }; @appendable struct S { "
                        "octet x; sequence<I> i; octet y; long z; double more; };";
    const char *few = "@appendable struct I { octet a; };"
                      "@appendable struct S { sequence<I> i; };";
    const char *vast = "@appendable struct I { octet a; double d[1000]; };"
                       "@appendable struct S { sequence<I> i; };";
    const char *octet = "@appendable struct S { octet x; };";
    const char *number = "@appendable struct S { octet x; long long y; };";
    const struct {
        const char *from;
        const char *to;
        Representation representation;
        const char *sent;
        const char *read; // null: refused
    } cases[] = {{older, newer, BOTH[1], "01000000 02000000 010203",
                  "01000000 02000000 01000000 01000000 00020000 01000000 00030000 00000000 "
                  "00000000 00000000"},
                 {newer, older, BOTH[1],
                  "01000000 01000000 02000000 02000000 61000400 05000000 00000000 00000000",
                  "01000000 01000000 0204"},
                 // A few bytes must not claim any amount of memory.
                 {few, vast, BOTH[1], "02000000 0102", nullptr},
                 // XCDR1 has no delimiters: only the end of the outermost struct tells.
                 {octet, number, BOTH[0], "01", "01000000 00000000 00000000 00000000"},
                 {number, octet, BOTH[0], "01000000 00000000 02000000 00000000", "01"},
                 {older, newer, BOTH[0], "01000000 02000000 010203", nullptr},
                 {octet + 12, number + 12, BOTH[0], "01", nullptr},
                 {number + 12, octet + 12, BOTH[0], "01000000 00000000 02000000 00000000", nullptr},
                 {number + 12, octet + 12, BOTH[1], "01000000 00000000 02000000 00000000", nullptr},
                 {octet, octet + 12, BOTH[1], "01", nullptr}};
    for (const auto &test : cases) {
        SCOPED_TRACE(std::string(test.from) + " -> " + test.to);
        const Bytes sent = fromHex(test.sent);
        Bytes payload;
        Bytes plain;
        DDS_ErrorText error{};
        ASSERT_TRUE(wireOf(typeFromIdl(test.from, "S"))
                        .encode(sent.data(), sent.size(), test.representation, payload));
        const bool good =
            wireOf(typeFromIdl(test.to, "S")).decode(payload.data(), payload.size(), plain, &error);
        ASSERT_EQ(good, test.read != nullptr) << error.text;
        EXPECT_TRUE(!good || plain == fromHex(test.read)) << testing::PrintToString(plain);
    }
}

// Either refused with a text, or a sample that makes the trip again; in no more memory than a
// payload of that size could ask for.
bool useMalformed(const WireType &wire, const Bytes &payload)
{
    const Bytes exact(payload);
    Bytes plain;
    DDS_ErrorText error{};
    const bool good = wire.decode(exact.data(), exact.size(), plain, &error);
    EXPECT_LE(plain.capacity(), 8 * payload.size() + 1024);
    EXPECT_EQ(good, error.text[0] == '\0') << error.text;
    for (const Representation representation : BOTH) {
        Bytes made;
        Bytes again;
        if (good) {
            EXPECT_TRUE(wire.encode(plain.data(), plain.size(), representation, made));
            EXPECT_TRUE(wire.decode(made.data(), made.size(), again, &error)) << error.text;
            EXPECT_EQ(again, plain);
        }
    }
    return good;
}

TEST(DomainWire, LiesAreRefusedOrHarmless)
{
    const WireType &wire = wireOf(observationType());
    const Sample sample = makeFilled();
    Value value;
    value.type = observationType();
    ASSERT_TRUE(model::read(sample.get(), value));
    for (const Representation representation : BOTH) {
        for (const bool big : {false, true}) {
            const Bytes good = naivePayload(value, representation, big);
            int refused = 0;
            for (size_t size = 0; size + 4 < good.size(); ++size) {
                const Bytes prefix(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(size));
                refused += useMalformed(wire, prefix) ? 0 : 1;
            }
            EXPECT_GT(refused, static_cast<int>(good.size() / 2));
            for (size_t at = 0; at < good.size(); ++at) {
                for (const char *lie :
                     {"00", "7f", "80", "ff", "00000080", "80000000", "ffffffff"}) {
                    Bytes bytes = good;
                    const Bytes word = fromHex(lie);
                    std::copy_n(word.begin(), std::min(word.size(), bytes.size() - at),
                                bytes.begin() + static_cast<std::ptrdiff_t>(at));
                    useMalformed(wire, bytes);
                }
            }
        }
    }
}

TEST(DomainWire, RefusalsSayWhatAndWhere)
{
    const char *texts = "struct S { sequence<string> s; };";
    const char *nested = "@appendable struct I { octet o; };"
                         "@appendable struct S { sequence<I> s; long l; };";
    const struct {
        const char *idl;
        const char *sent;
        const char *text;
    } cases[] = {{texts, "0001", "S: a payload of 2 bytes has no encapsulation header"},
                 {texts, "00030000 00000000", "S: encapsulation 0x0003 (PL_CDR) is not supported"},
                 {texts, "00090000 00000000",
                  "S: encapsulation 0x0009 is for appendable types, this one is not"},
                 {texts, "00070003 04000000 00000000",
                  "S: s: a delimiter passes the end of what encloses it (byte 4 of 5)"},
                 {nested, "00090000 0c000000 0c000000 01000000 01000000 01000000",
                  "S: s: a delimiter passes the end of what encloses it (byte 8 of 20)"},
                 {texts, "00070000 08000000 00000000 00000000",
                  "S: s: a delimiter is not the size of its elements (byte 8 of 12)"},
                 {texts, "00070000 05000000 01000000 02000000",
                  "S: s[0]: the payload ends early (byte 8 of 12)"},
                 {texts, "00070000 04000000 ffffff7f",
                  "S: s: the elements pass the end of the payload (byte 8 of 8)"},
                 {texts, "00000000 00000001 00000002 6100 0000 00000000 00000000",
                  "S: the payload ends at byte 10 of 20"}};
    for (const auto &test : cases) {
        Bytes plain;
        DDS_ErrorText error{};
        const Bytes sent = fromHex(test.sent);
        const WireType &wire = wireOf(typeFromIdl(test.idl, "S"));
        EXPECT_FALSE(wire.decode(sent.data(), sent.size(), plain, &error));
        EXPECT_STREQ(error.text, test.text);
    }
}

} // namespace
