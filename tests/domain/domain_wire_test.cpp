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

// Writes values as the standard says, one by one.
class NaiveEncoder {
public:
    NaiveEncoder(Representation representation, bool big)
        : two_(representation == Representation::xcdr2), big_(big)
    {
    }

    Bytes payload(const Value &value)
    {
        const bool delimited = two_ && isAppendable(value.type);
        put(value);
        const auto id = static_cast<uint8_t>((two_ ? (delimited ? 8 : 6) : 0) + (big_ ? 0 : 1));
        const auto padding = static_cast<uint8_t>(-out_.size() % 4);
        out_.insert(out_.end(), padding, 0);
        out_.insert(out_.begin(), {0, id, 0, padding});
        return out_;
    }

private:
    static bool isAppendable(const DDS_TypeCode *type)
    {
        return DDS_TypeCode_get_kind(type) == DDS_TK_STRUCT &&
               DDS_TypeCode_get_extensibility(type) == DDS_EXTENSIBILITY_APPENDABLE;
    }

    static bool isDelimited(const DDS_TypeCode *type)
    {
        const DDS_TCKind kind = DDS_TypeCode_get_kind(type);
        if (kind != DDS_TK_SEQUENCE && kind != DDS_TK_ARRAY) {
            return isAppendable(type);
        }
        const DDS_TypeCode *inner = DDS_TypeCode_resolve(DDS_TypeCode_get_content(type));
        while (kind == DDS_TK_ARRAY && DDS_TypeCode_get_kind(inner) == DDS_TK_ARRAY) {
            inner = DDS_TypeCode_resolve(DDS_TypeCode_get_content(inner));
        }
        return DDS_TypeCode_get_kind(inner) > DDS_TK_DOUBLE;
    }

    void number(uint64_t bits, size_t size)
    {
        out_.resize(out_.size() + -out_.size() % (two_ ? std::min<size_t>(size, 4) : size));
        for (size_t i = 0; i < size; ++i) {
            out_.push_back(static_cast<uint8_t>(bits >> (8 * (big_ ? size - 1 - i : i))));
        }
    }

    void put(const Value &value, bool inArray = false)
    {
        const DDS_TCKind kind = DDS_TypeCode_get_kind(value.type);
        const bool delimited =
            two_ && isDelimited(value.type) && !(inArray && kind == DDS_TK_ARRAY);
        if (delimited) {
            number(0, 4);
        }
        const size_t start = out_.size();
        if (kind == DDS_TK_STRING) {
            number(value.text.size() + 1, 4);
            out_.insert(out_.end(), value.text.c_str(), value.text.c_str() + value.text.size() + 1);
        } else if (kind < DDS_TK_STRUCT) {
            number(value.bits, model::sizeOf(kind));
        } else if (kind == DDS_TK_SEQUENCE) {
            number(value.children.size(), 4);
        }
        for (const Value &child : value.children) {
            put(child, kind == DDS_TK_ARRAY);
        }
        if (delimited) {
            Bytes behind(out_.begin() + static_cast<std::ptrdiff_t>(start), out_.end());
            out_.resize(start - 4);
            number(behind.size(), 4);
            out_.insert(out_.end(), behind.begin(), behind.end());
        }
    }

    const bool two_;
    const bool big_;
    Bytes out_;
};

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
            ASSERT_EQ(made, NaiveEncoder(representation, false).payload(value));
            ASSERT_TRUE(wire.decode(made.data(), made.size(), decoded, &error)) << error.text;
            ASSERT_EQ(decoded, plain);
            const Bytes big = NaiveEncoder(representation, true).payload(value);
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

} // namespace
