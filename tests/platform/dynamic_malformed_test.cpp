// Buffers that are not what they should be: rejected whole, or read without harm. The samples'
// memory ends with their bytes, so that a sanitizer sees every step too far.
#include <algorithm>

#include "fixture.h"
#include "model.h"
#include "records.h"

namespace {

bool readAll(const Sample &sample, model::Value &value)
{
    value = {};
    value.type = observationType();
    return model::read(sample.get(), value);
}

// Lends exactly these bytes to a sample and uses it: no call may do harm, whatever it returns.
void useUnchecked(const std::vector<uint8_t> &bytes)
{
    const auto limit = static_cast<int32_t>(std::max<size_t>(bytes.size(), 400));
    const Sample sample = makeSample(observationType(), limit);
    DDS_DynamicData *data = sample.get();
    uint8_t *place = DDS_DynamicData_loan_cdr(data, bytes.size());
    ASSERT_NE(place, nullptr);
    std::copy(bytes.begin(), bytes.end(), place);
    model::Value value;
    readAll(sample, value);
    setString(sample, "tags[0].name", "longer than before");
    DDS_DynamicData_set_length(data, "words", 4);
    DDS_DynamicData_set_length(data, "tags", 1);
    DDS_DynamicData_set_double(data, "d", 2);
    DDS_DynamicData_set_length(data, "tags[0].readings", 3);
    setString(sample, "name", "");
    readAll(sample, value);
}

// Either rejected, with the sample as it was, or good as a whole and without what the sender left
// in the padding: samples that are equal have equal bytes.
bool useChecked(const Sample &sample, const std::vector<uint8_t> &bytes)
{
    const std::vector<uint8_t> before = bytesOf(sample);
    // A copy that ends with its bytes.
    const std::unique_ptr<uint8_t[]> exact(new uint8_t[bytes.size() + 1]);
    std::copy(bytes.begin(), bytes.end(), exact.get() + 1);
    DDS_ErrorText error{};
    const DDS_ReturnCode_t code =
        DDS_DynamicData_set_cdr(sample.get(), exact.get() + 1, bytes.size(), &error);
    if (code != DDS_RETCODE_OK) {
        EXPECT_EQ(code, DDS_RETCODE_ERROR);
        EXPECT_STRNE(error.text, "");
        EXPECT_EQ(bytesOf(sample), before);
        return false;
    }
    model::Value value;
    EXPECT_TRUE(readAll(sample, value));
    EXPECT_EQ(bytesOf(sample), model::encode(value));
    return true;
}

TEST(Malformed, EveryTruncationIsRejectedAndReadSafely)
{
    const std::vector<uint8_t> whole = bytesOf(makeFilled());
    std::vector<uint8_t> bytes = whole;
    bytes.insert(bytes.end(), 4, 9); // one more than are dropped
    const Sample sample = makeSample(observationType());
    while (!bytes.empty()) {
        const bool good = bytes.size() - whole.size() < 4U;
        EXPECT_EQ(useChecked(sample, bytes), good) << bytes.size();
        EXPECT_TRUE(!good || bytesOf(sample) == whole);
        useUnchecked(bytes);
        bytes.pop_back();
    }
}

TEST(Malformed, EveryWordOverwrittenIsRejectedOrHarmless)
{
    const std::vector<uint8_t> good = bytesOf(makeFilled());
    const Sample sample = makeSample(observationType());
    int rejected = 0;
    for (size_t at = 0; at + 4 <= good.size(); ++at) {
        for (const uint32_t word : {0U, 1U, 2U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU, 0xFFFFFFF0U,
                                    0x20000000U, static_cast<uint32_t>(good.size())}) {
            std::vector<uint8_t> bytes = good;
            std::memcpy(bytes.data() + at, &word, sizeof word);
            rejected += useChecked(sample, bytes) ? 0 : 1;
            useUnchecked(bytes);
        }
    }
    EXPECT_GT(rejected, 100);
}

TEST(Malformed, ErrorsNameTheValueAndThePlace)
{
    for (const Record &test : recordsOf("platform/data/malformed_samples.txt")) {
        const Sample sample = makeSample(typeFromIdl(test.at(0).c_str(), "S"));
        const std::vector<uint8_t> bytes = fromHex(test.at(1));
        DDS_ErrorText error{};
        EXPECT_EQ(DDS_DynamicData_set_cdr(sample.get(), bytes.data(), bytes.size(), &error),
                  DDS_RETCODE_ERROR);
        EXPECT_EQ(error.text, test.at(2));
    }
}

TEST(Malformed, AnUncheckedBooleanOrTextIsAnErrorWhenItIsRead)
{
    const Sample sample = makeSample(
        typeFromIdl("struct I { string s; octet o; }; "
                    "struct S { sequence<string> w; boolean b; string s; I i; string t; };",
                    "S"));
    const std::vector<uint8_t> bytes =
        fromHex("00000000 02000000 01000000 78000000 00000000 01000000 02000000 7900");
    uint8_t *place = DDS_DynamicData_loan_cdr(sample.get(), bytes.size());
    std::copy(bytes.begin(), bytes.end(), place);
    int32_t value = 0;
    EXPECT_EQ(DDS_DynamicData_get_boolean(sample.get(), "b", &value), DDS_RETCODE_ERROR);
    EXPECT_EQ(getString(sample, "s"), "error 1");
    EXPECT_EQ(getString(sample, "t"), "error 1") << "i.s has not even a NUL";
    EXPECT_EQ(setString(sample, "s", "abc"), DDS_RETCODE_ERROR);
    const std::vector<uint8_t> words = fromHex("03000000 02000000 78000000 00000000 02000000 7900");
    std::copy(words.begin(), words.end(), DDS_DynamicData_loan_cdr(sample.get(), words.size()));
    EXPECT_EQ(getString(sample, "w[0]"), "x");
    EXPECT_EQ(getString(sample, "w[2]"), "error 1") << "w[1] has no end";
}

} // namespace
