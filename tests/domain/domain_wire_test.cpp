// Payloads against a naive encoder, against what the engine itself sent, and against lies.
#include <set>

#include "../fuzz/samples.h"
#include "../platform/records.h"
#include "arrivals.h"
#include "packets.h"

namespace {

using model::Value;

constexpr Representation BOTH[] = {Representation::xcdr1, Representation::xcdr2};

const WireType &wireOf(const DDS_TypeCode *type)
{
    DDS_ErrorText error{};
    const WireType *wire = WireType::of(type, &error);
    EXPECT_NE(wire, nullptr) << error.text;
    return *wire;
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
    checkKey(wire, key);
    const Value defaults = model::makeDefault(value.type);
    ASSERT_TRUE(wire.sampleOf(key, other));
    ASSERT_EQ(other, model::encode(keyPart(value, &defaults)));
    for (const Representation representation : BOTH) {
        Bytes payload;
        DDS_ErrorText error{};
        ASSERT_TRUE(wire.encodeKey(key, representation, payload));
        if (representation == Representation::xcdr1 && payload.size() < 20) {
            payload.resize(20, 0); // as a short key is sent
            ASSERT_TRUE(wire.decodeKey(payload.data(), payload.size(), other, &error))
                << error.text;
            ASSERT_EQ(other, wanted);
        }
        const Bytes big = naivePayload(keyPart(value), representation, true);
        ASSERT_TRUE(wire.decodeKey(big.data(), big.size(), other, &error)) << error.text;
        ASSERT_EQ(other, wanted);
        for (size_t size = 0; size < big.size(); ++size) {
            const Bytes cut(big.begin(), big.begin() + static_cast<std::ptrdiff_t>(size));
            const bool taken = wire.decodeKey(cut.data(), size, other, &error);
            // Where there may be delimiters, half a key may look like a whole one.
            ASSERT_TRUE(!taken || other == wanted || representation == Representation::xcdr2);
        }
        KeyHash lie;
        lie.fill(0xEE);
        ASSERT_TRUE(!wire.keyFromHash(lie, other, representation) ||
                    wire.hashIsKey(representation));
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
    for (const Record &test : recordsOf("domain/data/sent_by_the_engine.txt")) {
        SCOPED_TRACE(test.at(0));
        const WireType &wire = wireOf(typeFromIdl(test.at(0).c_str(), "S"));
        const Bytes sent = fromHex(test.at(1));
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
        EXPECT_EQ(made, fromHex(test.at(2)));
        const KeyHash hash = wire.keyHash(key, representation);
        EXPECT_EQ(Bytes(hash.begin(), hash.end()), fromHex(test.at(3)));
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
    for (const Record &test : recordsOf("domain/data/grown_types.txt")) {
        SCOPED_TRACE(test.at(0) + " -> " + test.at(1) + " as " + test.at(2));
        const Bytes sent = fromHex(test.at(3));
        Bytes payload;
        Bytes plain;
        DDS_ErrorText error{};
        ASSERT_TRUE(wireOf(typeFromIdl(test.at(0).c_str(), "S"))
                        .encode(sent.data(), sent.size(), BOTH[test.at(2) == "xcdr2"], payload));
        const bool good = wireOf(typeFromIdl(test.at(1).c_str(), "S"))
                              .decode(payload.data(), payload.size(), plain, &error);
        ASSERT_EQ(good, test.at(4) != "rejected") << error.text;
        EXPECT_TRUE(!good || plain == fromHex(test.at(4))) << testing::PrintToString(plain);
    }
}

// Either rejected with a text, or a sample that makes the trip again; in no more memory than a
// payload of that size could ask for.
TEST(DomainWire, LiesAreRejectedOrHarmless)
{
    const WireType &wire = wireOf(observationType());
    Value value;
    value.type = observationType();
    ASSERT_TRUE(model::read(makeFilled().get(), value));
    for (const int form : {0, 1, 2, 3}) {
        const Bytes good = naivePayload(value, BOTH[form / 2], form % 2 != 0);
        size_t cutAndRejected = 0;
        for (size_t at = 0; at + 4 < good.size(); ++at) {
            for (const char *lie :
                 {"", "00", "7f", "80", "ff", "00000080", "80000000", "ffffffff"}) {
                const Bytes word = fromHex(lie);
                Bytes bytes = good;
                bytes.resize(word.empty() ? at : good.size());
                std::copy(word.begin(), word.end(),
                          bytes.begin() + static_cast<std::ptrdiff_t>(at));
                const Bytes exact(bytes);
                Bytes plain;
                DDS_ErrorText error{};
                const bool taken = wire.decode(exact.data(), exact.size(), plain, &error);
                EXPECT_LE(plain.capacity(), 8 * exact.size() + 1024);
                EXPECT_EQ(taken, error.text[0] == '\0') << error.text;
                if (taken) {
                    checkSample(wire, plain);
                }
                cutAndRejected += word.empty() && !taken ? 1 : 0;
            }
        }
        EXPECT_GT(cutAndRejected, good.size() / 2);
    }
}

TEST(DomainWire, RejectionsSayWhatAndWhere)
{
    for (const Record &test : recordsOf("domain/data/rejected_payloads.txt")) {
        Bytes plain;
        DDS_ErrorText error{};
        const Bytes sent = fromHex(test.at(1));
        const WireType &wire = wireOf(typeFromIdl(test.at(0).c_str(), "S"));
        EXPECT_FALSE(wire.decode(sent.data(), sent.size(), plain, &error));
        EXPECT_EQ(error.text, test.at(2));
    }
}

// Data in either byte order, with and without inline QoS, in fragments: what is known stays as it
// is.
TEST(DomainWire, UnknownEncapsulationsAreMarkedInPackets)
{
    std::string given = "52545053 0203 0110 000102030405060708090a0b";
    std::string wanted = given;
    for (const Record &part : recordsOf("domain/data/packets.txt")) {
        const std::string start = "09010800 0000000000000000" + part.at(0);
        given += start + part.at(1);
        wanted += start + part.at(2);
    }
    Bytes packet = fromHex(given);
    for (size_t size = 0; size < packet.size(); ++size) {
        Bytes cut(packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(size));
        qddsdomain_mark_unknown_encapsulations(cut.data(), cut.size());
    }
    Bytes other = packet;
    other[0] = 'X'; // of another protocol
    const Bytes before = other;
    qddsdomain_mark_unknown_encapsulations(other.data(), other.size());
    EXPECT_EQ(other, before);
    qddsdomain_mark_unknown_encapsulations(packet.data(), packet.size());
    EXPECT_EQ(packet, fromHex(wanted));
}

// The published example of the hash, and a secret that is another each time.
TEST(DomainWire, HashesAreKeyed)
{
    const Bytes bytes = fromHex("000102030405060708090a0b0c0d0e");
    EXPECT_EQ(0xa129ca6149be45e5U,
              qddsdomain::sipHash({0x0706050403020100U, 0x0f0e0d0c0b0a0908U}, bytes.data(), 15));
    EXPECT_NE(qddsdomain::sipHash(qddsdomain::makeHashSecret(), bytes.data(), 15),
              qddsdomain::sipHash(qddsdomain::makeHashSecret(), bytes.data(), 15));
}

// The key that was used longest ago goes first.
TEST(DomainWire, SoManyKeysAreRemembered)
{
    const auto hashOf = [](size_t i) {
        return KeyHash{static_cast<uint8_t>(i), static_cast<uint8_t>(i >> 8U),
                       static_cast<uint8_t>(i >> 16U)};
    };
    const auto most = qddsdomain::Arrivals::mostKeys;
    qddsdomain::Arrivals arrivals;
    for (size_t i = 0; i < most; ++i) {
        arrivals.remember(hashOf(i), Bytes{static_cast<uint8_t>(i)});
    }
    Bytes key;
    EXPECT_TRUE(!arrivals.hasForgotten() && arrivals.recall(hashOf(0), key) && key == Bytes{0});
    arrivals.remember(hashOf(0), {});
    arrivals.remember(hashOf(most), {});
    EXPECT_TRUE(arrivals.hasForgotten() && arrivals.recall(hashOf(0), key));
    EXPECT_FALSE(arrivals.recall(hashOf(1), key));
    arrivals.reject("nobody watches");
    EXPECT_EQ(1U, arrivals.rejected());
}

// Longer than what is hashed at once: every byte counts.
TEST(DomainWire, LongKeysAreHashedToTheEnd)
{
    const DDS_TypeCode *type = typeFromIdl("@final struct S { @key string s; };", "S");
    const WireType &wire = wireOf(type);
    std::set<KeyHash> hashes;
    for (const size_t length : {500U, 510U, 511U, 512U, 513U, 600U, 5000U}) {
        for (const char last : {'a', 'b'}) {
            Value value = model::makeDefault(type);
            value.children[0].text = std::string(length, 'x') + last;
            const Bytes key = model::encode(value);
            hashes.insert(wire.keyHash(key));
        }
    }
    EXPECT_EQ(14U, hashes.size());
}

} // namespace
