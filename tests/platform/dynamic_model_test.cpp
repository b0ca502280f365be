// Dynamic data against the naive model: random types, random changes, equal values and bytes.
#include "fixture.h"
#include "model.h"

namespace {

using model::Random;
using model::Value;

void expectEqual(const Sample &sample, const Value &value)
{
    Value found;
    found.type = value.type;
    ASSERT_TRUE(model::read(sample.get(), found));
    ASSERT_EQ(model::encode(found), model::encode(value));
}

// Changes a random value somewhere below, in the model and in the sample.
void change(Random &random, const Sample &sample, Value &value, const std::string &path = "")
{
    const DDS_TCKind kind = DDS_TypeCode_get_kind(value.type);
    const char *name = path.c_str() + (path.empty() ? 0 : 1); // without the leading dot
    if (kind == DDS_TK_SEQUENCE && (value.children.empty() || random.below(4) == 0)) {
        const uint32_t length = random.below(6);
        value.children.resize(length, model::makeDefault(DDS_TypeCode_get_content(value.type)));
        ASSERT_EQ(DDS_DynamicData_set_length(sample.get(), name, length), DDS_RETCODE_OK) << name;
    } else if (!value.children.empty()) {
        const size_t child = random.below(static_cast<uint32_t>(value.children.size()));
        change(random, sample, value.children[child], path + model::step(value, child));
    } else if (kind == DDS_TK_STRING) {
        value.text = random.text();
        ASSERT_EQ(setString(sample, name, value.text), DDS_RETCODE_OK) << name;
    } else {
        value.bits = random.scalar(value.type);
        ASSERT_EQ(SCALARS[accessKind(kind)].set(sample.get(), name, value.bits), DDS_RETCODE_OK)
            << name;
    }
}

class DynamicModel : public testing::TestWithParam<uint32_t> {};

TEST_P(DynamicModel, AgreesAfterEveryChange)
{
    Random random(GetParam());
    for (int round = 0; round < 400 && !HasFailure(); ++round) {
        const DDS_TypeCode *type = random.structure(1 + static_cast<int>(random.below(5)));
        ASSERT_NE(type, nullptr);
        const std::unique_ptr<char, Deleter<DDS_String_free>> idl(DDS_TypeCode_to_idl(type));
        SCOPED_TRACE("round " + std::to_string(round) + "\n" + idl.get());
        Value value = model::makeDefault(type);
        const Sample sample = makeSample(type);
        ASSERT_NE(sample, nullptr);
        EXPECT_EQ(bytesOf(sample), model::encode(value));
        for (int i = 0; i < 200 && !HasFailure(); ++i) {
            change(random, sample, value);
            EXPECT_EQ(bytesOf(sample), model::encode(value));
            if (i % 10 == 9) { // fills what the sample remembers about positions
                expectEqual(sample, value);
            }
        }
        const Sample other = makeSample(type);
        const std::vector<uint8_t> bytes = model::encode(value);
        DDS_ErrorText error{};
        EXPECT_EQ(DDS_DynamicData_set_cdr(other.get(), bytes.data(), bytes.size(), &error),
                  DDS_RETCODE_OK)
            << error.text;
        EXPECT_EQ(bytesOf(other), bytes);
        EXPECT_EQ(DDS_DynamicData_clear(other.get()), DDS_RETCODE_OK);
        expectEqual(other, model::makeDefault(type));
        EXPECT_EQ(DDS_DynamicData_copy(other.get(), sample.get()), DDS_RETCODE_OK);
        expectEqual(other, value);
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, DynamicModel, testing::Range(1U, 9U));

} // namespace
