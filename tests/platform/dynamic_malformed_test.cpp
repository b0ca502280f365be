// Buffers that are not what they should be: refused whole, or read without harm. The samples'
// memory ends with their bytes, so that a sanitizer sees every step too far.
#include <random>

#include "fixture.h"
#include "model.h"

namespace {

// Reads and changes everything the type and the buffer together allow to reach; returns whether all
// of it was well-formed.
class Prober {
public:
    explicit Prober(const Sample &sample) : sample_(sample) {}

    bool probe(const DDS_TypeCode *type, const std::string &path)
    {
        type = DDS_TypeCode_resolve(type);
        const char *name = path.c_str() + (path.empty() ? 0 : 1);
        bool good = true;
        switch (DDS_TypeCode_get_kind(type)) {
        case DDS_TK_STRUCT:
            for (uint32_t i = 0; i < DDS_TypeCode_get_member_count(type); ++i) {
                const std::string member = DDS_TypeCode_get_member_name(type, i);
                good = probe(DDS_TypeCode_get_member_type(type, i), path + "." + member) && good;
            }
            return good;
        case DDS_TK_SEQUENCE:
        case DDS_TK_ARRAY:
            return probeElements(type, path, name);
        case DDS_TK_STRING: {
            const char *text = nullptr;
            size_t length = 0;
            const DDS_ReturnCode_t code =
                DDS_DynamicData_get_string(sample_.get(), name, &text, &length);
            if (code == DDS_RETCODE_OK) {
                EXPECT_LE(std::strlen(text), length) << name;
            }
            return code == DDS_RETCODE_OK;
        }
        default:
            return probeScalar(name);
        }
    }

    // Calls that must not do harm, whatever they return.
    void change()
    {
        DDS_DynamicData *data = sample_.get();
        DDS_DynamicData_set_string(data, "tags[0].name", "longer than before", 18);
        DDS_DynamicData_set_length(data, "words", 4);
        DDS_DynamicData_set_length(data, "tags", 1);
        DDS_DynamicData_set_double(data, "d", 2);
        DDS_DynamicData_set_length(data, "tags[0].readings", 3);
        DDS_DynamicData_set_string(data, "name", "", 0);
    }

private:
    bool probeElements(const DDS_TypeCode *type, const std::string &path, const char *name)
    {
        uint32_t count = 0;
        if (DDS_DynamicData_get_length(sample_.get(), name, &count) != DDS_RETCODE_OK) {
            return false;
        }
        bool good = true;
        const uint32_t step = count / 4 + 1; // the last elements of a count too large as well
        for (uint32_t i = 0; i < count && i + step > i; i += step) {
            std::string index = "[" + std::to_string(i) + "]";
            for (uint32_t d = 1; d < DDS_TypeCode_get_dimension_count(type); ++d) {
                index += "[0]";
            }
            good = probe(DDS_TypeCode_get_content(type), path + index) && good;
        }
        return good;
    }

    // Tries all kinds: the right one reads, no other does harm.
    bool probeScalar(const char *name)
    {
        int good = 0;
        int32_t word = 0;
        int64_t wide = 0;
        uint64_t unsignedWide = 0;
        uint32_t unsignedWord = 0;
        double real = 0;
        float single = 0;
        int16_t half = 0;
        uint16_t unsignedHalf = 0;
        char c = 0;
        uint8_t octet = 0;
        int8_t small = 0;
        const DDS_DynamicData *data = sample_.get();
        good += DDS_DynamicData_get_long(data, name, &word) == DDS_RETCODE_OK;
        good += DDS_DynamicData_get_boolean(data, name, &word) == DDS_RETCODE_OK;
        good += DDS_DynamicData_get_longlong(data, name, &wide) == DDS_RETCODE_OK;
        good += DDS_DynamicData_get_ulonglong(data, name, &unsignedWide) == DDS_RETCODE_OK;
        good += DDS_DynamicData_get_ulong(data, name, &unsignedWord) == DDS_RETCODE_OK;
        good += DDS_DynamicData_get_double(data, name, &real) == DDS_RETCODE_OK;
        good += DDS_DynamicData_get_float(data, name, &single) == DDS_RETCODE_OK;
        good += DDS_DynamicData_get_short(data, name, &half) == DDS_RETCODE_OK;
        good += DDS_DynamicData_get_ushort(data, name, &unsignedHalf) == DDS_RETCODE_OK;
        good += DDS_DynamicData_get_char(data, name, &c) == DDS_RETCODE_OK;
        good += DDS_DynamicData_get_octet(data, name, &octet) == DDS_RETCODE_OK;
        good += DDS_DynamicData_get_int8(data, name, &small) == DDS_RETCODE_OK;
        EXPECT_LE(good, 1) << name;
        return good == 1;
    }

    const Sample &sample_;
};

// Lends exactly these bytes to a sample and uses it.
void useUnchecked(const std::vector<uint8_t> &bytes)
{
    const DDS_TypeCode *type = observationType();
    Sample sample = makeSample(type, static_cast<int32_t>(std::max<size_t>(bytes.size(), 400)));
    uint8_t *place = DDS_DynamicData_loan_cdr(sample.get(), bytes.size());
    ASSERT_NE(place, nullptr);
    if (!bytes.empty()) {
        std::memcpy(place, bytes.data(), bytes.size());
    }
    Prober prober(sample);
    prober.probe(type, "");
    prober.change();
    prober.probe(type, "");
}

// Either refused, with the sample as it was, or good as a whole.
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
    EXPECT_TRUE(Prober(sample).probe(observationType(), ""));
    return true;
}

TEST(Malformed, EveryTruncationIsRefusedAndReadSafely)
{
    const Sample filled = makeFilled();
    ASSERT_TRUE(Prober(filled).probe(observationType(), ""));
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

// A small message must not make anybody take much memory or time.
TEST(Malformed, AHugeCountIsRefusedAtOnce)
{
    const DDS_TypeCode *type =
        typeFromIdl("struct E { octet b; }; struct S { sequence<sequence<E>> s; };", "S");
    const Sample sample = makeSample(type);
    const uint8_t bytes[] = {0xFF, 0xFF, 0xFF, 0x7F, 0, 0, 0, 0};
    DDS_ErrorText error{};
    EXPECT_EQ(DDS_DynamicData_set_cdr(sample.get(), bytes, sizeof bytes, &error),
              DDS_RETCODE_ERROR);
    EXPECT_STREQ(error.text, "S: s: the elements pass the end of the sample (byte 4 of 8)");
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
        {"struct S { octet o; };", {1, 2, 3, 4, 5}, "S: the sample ends at byte 1 of 5"}};
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

// Samples that are equal have equal bytes, whatever the sender left in the padding.
TEST(Malformed, PaddingOfTheSenderIsCleared)
{
    const DDS_TypeCode *type = typeFromIdl(
        "struct P { octet o; double d; }; struct S { P p; sequence<P> ps; string s; long l; };",
        "S");
    const Sample sample = makeSample(type);
    ASSERT_EQ(DDS_DynamicData_set_length(sample.get(), "ps", 2), DDS_RETCODE_OK);
    const std::vector<uint8_t> clean = bytesOf(sample);
    std::vector<uint8_t> dirty = clean;
    for (const size_t padding : {size_t{1}, size_t{7}, size_t{21}, size_t{33}, size_t{39}}) {
        ASSERT_EQ(dirty.at(padding), 0);
        dirty[padding] = 0xEE;
    }
    ASSERT_EQ(DDS_DynamicData_set_cdr(sample.get(), dirty.data(), dirty.size(), nullptr),
              DDS_RETCODE_OK);
    EXPECT_EQ(bytesOf(sample), clean);
}

} // namespace
