// Dynamic data against the naive model: random types, random changes, equal values and bytes.
#include <gtest/gtest.h>

#include "model.h"
#include "qddsc/string.h"

namespace {

using model::Random;
using model::Value;

// One accessor, chosen by kind; the value travels as bits.
template<typename T, typename Function>
DDS_ReturnCode_t getAs(Function get, const DDS_DynamicData *data, const char *path, uint64_t &bits)
{
    T value{};
    const DDS_ReturnCode_t code = get(data, path, &value);
    bits = 0;
    std::memcpy(&bits, &value, sizeof value);
    return code;
}

template<typename T, typename Function>
DDS_ReturnCode_t setAs(Function set, DDS_DynamicData *data, const char *path, uint64_t bits)
{
    T value{};
    std::memcpy(&value, &bits, sizeof value);
    return set(data, path, value);
}

#define FOR_EACH_SCALAR(X)                                                                         \
    X(DDS_TK_BOOLEAN, int32_t, boolean)                                                            \
    X(DDS_TK_CHAR, char, char)                                                                     \
    X(DDS_TK_OCTET, uint8_t, octet)                                                                \
    X(DDS_TK_INT8, int8_t, int8)                                                                   \
    X(DDS_TK_SHORT, int16_t, short)                                                                \
    X(DDS_TK_USHORT, uint16_t, ushort)                                                             \
    X(DDS_TK_LONG, int32_t, long)                                                                  \
    X(DDS_TK_ENUM, int32_t, long)                                                                  \
    X(DDS_TK_ULONG, uint32_t, ulong)                                                               \
    X(DDS_TK_LONGLONG, int64_t, longlong)                                                          \
    X(DDS_TK_ULONGLONG, uint64_t, ulonglong)                                                       \
    X(DDS_TK_FLOAT, float, float)                                                                  \
    X(DDS_TK_DOUBLE, double, double)

DDS_ReturnCode_t get(DDS_TCKind kind, const DDS_DynamicData *data, const char *path, uint64_t &bits)
{
    switch (kind) {
#define X(KIND, TYPE, NAME)                                                                        \
    case KIND:                                                                                     \
        return getAs<TYPE>(DDS_DynamicData_get_##NAME, data, path, bits);
        FOR_EACH_SCALAR(X)
#undef X
    default:
        return DDS_RETCODE_UNSUPPORTED;
    }
}

DDS_ReturnCode_t set(DDS_TCKind kind, DDS_DynamicData *data, const char *path, uint64_t bits)
{
    switch (kind) {
#define X(KIND, TYPE, NAME)                                                                        \
    case KIND:                                                                                     \
        return setAs<TYPE>(DDS_DynamicData_set_##NAME, data, path, bits);
        FOR_EACH_SCALAR(X)
#undef X
    default:
        return DDS_RETCODE_UNSUPPORTED;
    }
}

void expectEqual(const Value &value, const DDS_DynamicData *data, const std::string &path)
{
    const DDS_TCKind kind = DDS_TypeCode_get_kind(value.type);
    const char *name = path.c_str() + (path.empty() ? 0 : 1); // without the leading dot
    if (kind == DDS_TK_STRING) {
        const char *text = nullptr;
        size_t length = 0;
        ASSERT_EQ(DDS_DynamicData_get_string(data, name, &text, &length), DDS_RETCODE_OK) << name;
        ASSERT_EQ(std::string(text, length), value.text) << name;
    } else if (kind < DDS_TK_STRUCT) {
        uint64_t bits = 0;
        ASSERT_EQ(get(kind, data, name, bits), DDS_RETCODE_OK) << name;
        ASSERT_EQ(bits, value.bits) << name;
    } else if (kind == DDS_TK_SEQUENCE) {
        uint32_t length = 0;
        ASSERT_EQ(DDS_DynamicData_get_length(data, name, &length), DDS_RETCODE_OK) << name;
        ASSERT_EQ(length, value.children.size()) << name;
    }
    for (size_t i = 0; i < value.children.size(); ++i) {
        expectEqual(value.children[i], data, path + model::step(value, i));
    }
}

void expectSameBytes(const Value &value, const DDS_DynamicData *data)
{
    size_t length = 0;
    const uint8_t *bytes = DDS_DynamicData_get_cdr(data, &length);
    ASSERT_EQ(std::vector<uint8_t>(bytes, bytes + length), model::encode(value));
}

class Mutator {
public:
    Mutator(Random &random, DDS_DynamicData *data) : random_(random), data_(data) {}

    // Changes a random value somewhere below, in the model and in the sample.
    void change(Value &value, const std::string &path)
    {
        const DDS_TCKind kind = DDS_TypeCode_get_kind(value.type);
        const char *name = path.c_str() + (path.empty() ? 0 : 1);
        const bool resize =
            kind == DDS_TK_SEQUENCE && (value.children.empty() || random_.below(4) == 0);
        if (resize) {
            const uint32_t length = random_.below(6);
            value.children.resize(length, model::makeDefault(DDS_TypeCode_get_content(value.type)));
            ASSERT_EQ(DDS_DynamicData_set_length(data_, name, length), DDS_RETCODE_OK) << name;
        } else if (!value.children.empty()) {
            const size_t child = random_.below(static_cast<uint32_t>(value.children.size()));
            change(value.children[child], path + model::step(value, child));
        } else if (kind == DDS_TK_STRING) {
            value.text.assign(random_.below(21), static_cast<char>('a' + random_.below(26)));
            ASSERT_EQ(DDS_DynamicData_set_string(data_, name, value.text.data(), value.text.size()),
                      DDS_RETCODE_OK)
                << name;
        } else {
            value.bits = bitsFor(value.type);
            ASSERT_EQ(set(kind, data_, name, value.bits), DDS_RETCODE_OK) << name;
        }
    }

private:
    uint64_t bitsFor(const DDS_TypeCode *type)
    {
        const DDS_TCKind kind = DDS_TypeCode_get_kind(type);
        if (kind == DDS_TK_BOOLEAN) {
            return random_.below(2);
        }
        if (kind == DDS_TK_ENUM) {
            const uint32_t index = random_.below(DDS_TypeCode_get_member_count(type));
            return static_cast<uint32_t>(DDS_TypeCode_get_member_value(type, index));
        }
        const size_t size = model::sizeOf(kind);
        return size < 8 ? random_.bits() & ((uint64_t{1} << (8 * size)) - 1) : random_.bits();
    }

    Random &random_;
    DDS_DynamicData *data_;
};

class DynamicModel : public testing::TestWithParam<uint32_t> {};

TEST_P(DynamicModel, AgreesAfterEveryChange)
{
    Random random(GetParam());
    for (int round = 0; round < 400; ++round) {
        const DDS_TypeCode *type = random.structure(1 + static_cast<int>(random.below(5)));
        ASSERT_NE(type, nullptr);
        Value value = model::makeDefault(type);
        DDS_DynamicData *data = DDS_DynamicData_new(type, nullptr);
        DDS_DynamicData *other = DDS_DynamicData_new(type, nullptr);
        ASSERT_NE(data, nullptr);
        expectSameBytes(value, data);
        Mutator mutator(random, data);
        for (int i = 0; i < 200 && !HasFatalFailure(); ++i) {
            mutator.change(value, "");
            expectSameBytes(value, data);
            if (i % 10 == 9) { // fills what the sample remembers about positions
                expectEqual(value, data, "");
            }
        }
        const std::vector<uint8_t> bytes = model::encode(value);
        DDS_ErrorText error{};
        ASSERT_EQ(DDS_DynamicData_set_cdr(other, bytes.data(), bytes.size(), &error),
                  DDS_RETCODE_OK)
            << error.text;
        expectSameBytes(value, other);
        EXPECT_EQ(DDS_DynamicData_clear(other), DDS_RETCODE_OK);
        expectEqual(model::makeDefault(type), other, "");
        EXPECT_EQ(DDS_DynamicData_copy(other, data), DDS_RETCODE_OK);
        expectEqual(value, other, "");
        DDS_DynamicData_delete(data);
        DDS_DynamicData_delete(other);
        if (HasFatalFailure()) {
            char *idl = DDS_TypeCode_to_idl(type);
            ADD_FAILURE() << "round " << round << "\n" << idl;
            DDS_String_free(idl);
            return;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, DynamicModel, testing::Range(1U, 9U));

} // namespace
