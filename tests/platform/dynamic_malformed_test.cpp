// Buffers that are not what they should be: refused whole, or read without harm. The samples'
// memory ends with their bytes, so that a sanitizer sees every step too far.
#include <algorithm>
#include <random>

#include "fixture.h"
#include "model.h"

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

// Either refused, with the sample as it was, or good as a whole and without what the sender left in
// the padding: samples that are equal have equal bytes.
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

TEST(Malformed, EveryTruncationIsRefusedAndReadSafely)
{
    const Sample filled = makeFilled();
    std::vector<uint8_t> bytes = bytesOf(filled);
    const Sample sample = makeSample(observationType());
    for (int trailer = 0; trailer < 4; ++trailer) {
        EXPECT_TRUE(useChecked(sample, bytes)) << trailer;
        EXPECT_EQ(bytesOf(sample), bytesOf(filled)) << "bytes behind the sample are dropped";
        bytes.push_back(9);
    }
    EXPECT_FALSE(useChecked(sample, bytes));
    bytes = bytesOf(filled);
    while (!bytes.empty()) {
        bytes.pop_back();
        EXPECT_FALSE(useChecked(sample, bytes)) << bytes.size();
        useUnchecked(bytes);
    }
}

TEST(Malformed, EveryWordOverwrittenIsRefusedOrHarmless)
{
    const std::vector<uint8_t> good = bytesOf(makeFilled());
    const Sample sample = makeSample(observationType());
    int refused = 0;
    for (size_t at = 0; at + 4 <= good.size(); ++at) {
        for (const uint32_t word : {0U, 1U, 2U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU, 0xFFFFFFF0U,
                                    0x20000000U, static_cast<uint32_t>(good.size())}) {
            std::vector<uint8_t> bytes = good;
            std::memcpy(bytes.data() + at, &word, sizeof word);
            refused += useChecked(sample, bytes) ? 0 : 1;
            useUnchecked(bytes);
        }
    }
    EXPECT_GT(refused, 100);
}

TEST(Malformed, NoiseIsRefusedOrHarmless)
{
    const std::vector<uint8_t> good = bytesOf(makeFilled());
    const Sample sample = makeSample(observationType());
    std::mt19937 random(1);
    for (int round = 0; round < 3000; ++round) {
        std::vector<uint8_t> bytes = good;
        for (uint32_t i = 0; i < 1 + random() % 6; ++i) {
            bytes[random() % bytes.size()] =
                static_cast<uint8_t>(random() % 4 ? random() % 8 : random());
        }
        useChecked(sample, bytes);
        useUnchecked(bytes);
    }
}

TEST(Malformed, ErrorsNameTheValueAndThePlace)
{
    const struct {
        const char *idl;
        std::vector<uint8_t> bytes;
        const char *what;
    } cases[] = {
        {"struct S { boolean b[2]; };", {1, 2}, "S: b: a boolean is neither 0 nor 1 (byte 1 of 2)"},
        {"enum E { A }; struct T { E e; }; struct S { sequence<T> t; };",
         {2, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0},
         "S: t[1].e: an enum holds a value that is not an enumerator (byte 8 of 12)"},
        {"struct S { string<1> s; };",
         {3, 0, 0, 0, 'a', 'b', 0},
         "S: s: a string is longer than its bound (byte 4 of 7)"},
        {"struct S { string s; };",
         {3, 0, 0, 0, 'a', 'b', 'c'},
         "S: s: a string does not end in NUL (byte 4 of 7)"},
        {"struct S { string s; };",
         {3, 0, 0, 0, 'a', 0, 0},
         "S: s: a string holds a NUL (byte 4 of 7)"},
        {"struct S { sequence<octet, 1> s; };",
         {2, 0, 0, 0, 1, 2},
         "S: s: a sequence is longer than its bound (byte 4 of 6)"},
        {"struct S { octet o; };", {1, 2, 3, 4, 5}, "S: the sample ends at byte 1 of 5"},
        // A small message must not make anybody take much memory or time.
        {"struct E { octet b; }; struct S { sequence<sequence<E>> s; };",
         {0xFF, 0xFF, 0xFF, 0x7F, 0, 0, 0, 0},
         "S: s: the elements pass the end of the sample (byte 4 of 8)"}};
    for (const auto &test : cases) {
        const Sample sample = makeSample(typeFromIdl(test.idl, "S"));
        DDS_ErrorText error{};
        EXPECT_EQ(
            DDS_DynamicData_set_cdr(sample.get(), test.bytes.data(), test.bytes.size(), &error),
            DDS_RETCODE_ERROR);
        EXPECT_STREQ(error.text, test.what);
    }
}

TEST(Malformed, AnUncheckedBooleanOrTextIsAnErrorWhenItIsRead)
{
    const Sample sample = makeSample(typeFromIdl("struct S { boolean b; string s; };", "S"));
    const uint8_t bytes[] = {2, 0, 0, 0, 1, 0, 0, 0, 'x'};
    std::memcpy(DDS_DynamicData_loan_cdr(sample.get(), sizeof bytes), bytes, sizeof bytes);
    int32_t value = 0;
    EXPECT_EQ(DDS_DynamicData_get_boolean(sample.get(), "b", &value), DDS_RETCODE_ERROR);
    EXPECT_EQ(getString(sample, "s"), "error 1");
    EXPECT_EQ(setString(sample, "s", "abc"), DDS_RETCODE_ERROR);
}

} // namespace
