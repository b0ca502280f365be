// Dynamic data: what paths, values and limits are rejected, and what stays the same then.
#include "fixture.h"

namespace {

TEST(DynamicData, RejectsPathsByWhatIsWrongWithThem)
{
    const Sample sample = makeFilled();
    int32_t value = 77;
    for (const char *path : {"", "nothing", "id.", "id.x", "id[0]", ".id", "id ", "tags", "tags[0]",
                             "tags[0].", "tags.name", "tags[].name", "tags[-1].name", "tags[1.name",
                             "tags[1]name", "counts[0][0]", "grid[0].x", "grid[0][0][0]", "name"}) {
        EXPECT_EQ(DDS_DynamicData_get_long(sample.get(), path, &value), DDS_RETCODE_BAD_PARAMETER)
            << path;
    }
    EXPECT_EQ(DDS_DynamicData_get_long(sample.get(), nullptr, &value), DDS_RETCODE_BAD_PARAMETER);
    for (const char *path : {"counts[3]", "counts[4294967295]", "counts[18446744073709551616]"}) {
        EXPECT_EQ(DDS_DynamicData_get_long(sample.get(), path, &value), DDS_RETCODE_NO_DATA)
            << path;
    }
    double real = 77;
    EXPECT_EQ(DDS_DynamicData_get_double(sample.get(), "grid[2][0]", &real), DDS_RETCODE_NO_DATA);
    EXPECT_EQ(DDS_DynamicData_get_double(sample.get(), "grid[0][3]", &real), DDS_RETCODE_NO_DATA);
    EXPECT_EQ(DDS_DynamicData_get_double(sample.get(), "grid[0]", &real),
              DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(value, 77);
    EXPECT_EQ(real, 77);
    EXPECT_EQ(DDS_DynamicData_get_double(sample.get(), "grid[1][2]", &real), DDS_RETCODE_OK);
}

TEST(DynamicData, RejectsValuesThatTheTypeDoesNotAllow)
{
    const Sample sample = makeFilled();
    const std::vector<uint8_t> before = bytesOf(sample);
    DDS_DynamicData *data = sample.get();
    EXPECT_EQ(setString(sample, "name", "123456789"), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(setString(sample, "name", std::string("a\0b", 3)), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(DDS_DynamicData_set_string(data, "name", nullptr, 0), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(DDS_DynamicData_set_long(data, "sky", 1), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(DDS_DynamicData_set_boolean(data, "good", 2), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(DDS_DynamicData_set_length(data, "counts", 4), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(DDS_DynamicData_set_length(data, "grid", 2), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(DDS_DynamicData_set_length(data, "name", 2), DDS_RETCODE_BAD_PARAMETER);
    EXPECT_EQ(bytesOf(sample), before);
    EXPECT_EQ(DDS_DynamicData_set_long(data, "sky", 6), DDS_RETCODE_OK);
    EXPECT_EQ(setString(sample, "name", "12345678"), DDS_RETCODE_OK);
    EXPECT_EQ(getString(sample, "name"), "12345678");
    EXPECT_EQ(getString(sample, "counts"), "error " + std::to_string(DDS_RETCODE_BAD_PARAMETER))
        << "its bytes would be those of a text";
    uint32_t length = 0;
    EXPECT_EQ(DDS_DynamicData_get_length(data, "grid", &length), DDS_RETCODE_OK);
    EXPECT_EQ(length, 2U);
    EXPECT_EQ(DDS_DynamicData_get_length(data, "grid[1]", &length), DDS_RETCODE_OK);
    EXPECT_EQ(length, 3U);
}

TEST(DynamicData, StaysAsItWasWhenALimitIsPassed)
{
    const DDS_TypeCode *type =
        typeFromIdl("struct S { string s; sequence<double> d; octet o; double last; };", "S");
    EXPECT_EQ(makeSample(type, 23), nullptr) << "a default sample takes 24 bytes";
    const Sample sample = makeSample(type, 64);
    DDS_DynamicData *data = sample.get();
    ASSERT_EQ(DDS_DynamicData_set_double(data, "last", 2.5), DDS_RETCODE_OK);
    ASSERT_EQ(DDS_DynamicData_set_length(data, "d", 4), DDS_RETCODE_OK);
    const std::vector<uint8_t> before = bytesOf(sample);
    ASSERT_EQ(before.size(), 64U);
    EXPECT_EQ(DDS_DynamicData_set_length(data, "d", 5), DDS_RETCODE_OUT_OF_RESOURCES);
    EXPECT_EQ(DDS_DynamicData_set_length(data, "d", UINT32_MAX), DDS_RETCODE_OUT_OF_RESOURCES);
    EXPECT_EQ(setString(sample, "s", "12345678"), DDS_RETCODE_OUT_OF_RESOURCES);
    EXPECT_EQ(setString(sample, "s", std::string(1000, 'x')), DDS_RETCODE_OUT_OF_RESOURCES);
    EXPECT_EQ(DDS_DynamicData_loan_cdr(data, 65), nullptr);
    const Sample unlimited = makeSample(type);
    ASSERT_EQ(DDS_DynamicData_set_length(unlimited.get(), "d", 9), DDS_RETCODE_OK);
    EXPECT_EQ(DDS_DynamicData_copy(data, unlimited.get()), DDS_RETCODE_OUT_OF_RESOURCES);
    const std::vector<uint8_t> larger = bytesOf(unlimited);
    EXPECT_EQ(DDS_DynamicData_set_cdr(data, larger.data(), larger.size(), nullptr),
              DDS_RETCODE_OUT_OF_RESOURCES);
    EXPECT_EQ(bytesOf(sample), before);
    EXPECT_EQ(setString(sample, "s", "123"), DDS_RETCODE_OK);
    double last = 0;
    EXPECT_EQ(DDS_DynamicData_get_double(data, "last", &last), DDS_RETCODE_OK);
    EXPECT_EQ(last, 2.5);
}

TEST(DynamicData, CanBeSetFromItself)
{
    const Sample sample = makeFilled();
    for (const char *path : {"words[1][1]", "tags[0].name"}) {
        const char *own = nullptr;
        size_t length = 0;
        ASSERT_EQ(DDS_DynamicData_get_string(sample.get(), "tags[1].name", &own, &length),
                  DDS_RETCODE_OK);
        EXPECT_EQ(DDS_DynamicData_set_string(sample.get(), path, own, length), DDS_RETCODE_OK);
        EXPECT_EQ(getString(sample, path), "tag one");
    }
    const std::vector<uint8_t> before = bytesOf(sample);
    EXPECT_EQ(DDS_DynamicData_copy(sample.get(), sample.get()), DDS_RETCODE_OK);
    EXPECT_EQ(bytesOf(sample), before);
}

TEST(DynamicData, IsMadeOfStructsAndTheirAliasesOnly)
{
    const DDS_TypeCode *octet = DDS_TypeCode_get_primitive(DDS_TK_OCTET);
    const DDS_DynamicDataProperty_t negative = {-1, 0};
    EXPECT_EQ(DDS_DynamicData_new(nullptr, nullptr), nullptr);
    EXPECT_EQ(DDS_DynamicData_new(octet, nullptr), nullptr);
    EXPECT_EQ(DDS_DynamicData_new(observationType(), &negative), nullptr);
    const char *idl =
        "struct S { long a; string b; }; struct T { long a; string b; }; typedef S R;";
    const DDS_TypeCode *alias = typeFromIdl(idl, "R");
    const Sample aliased = makeSample(alias);
    const Sample plain = makeSample(typeFromIdl(idl, "S"));
    const Sample other = makeSample(typeFromIdl(idl, "T"));
    ASSERT_NE(aliased, nullptr);
    EXPECT_EQ(DDS_DynamicData_get_type(aliased.get()), alias);
    EXPECT_EQ(DDS_DynamicData_copy(aliased.get(), plain.get()), DDS_RETCODE_OK);
    EXPECT_EQ(DDS_DynamicData_copy(aliased.get(), other.get()), DDS_RETCODE_BAD_PARAMETER);
}

} // namespace
