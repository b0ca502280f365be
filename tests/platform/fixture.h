// One type with everything in it, and small helpers for samples.
#ifndef TESTS_PLATFORM_FIXTURE_H
#define TESTS_PLATFORM_FIXTURE_H

#include <cstring>
#include <memory>

#include "core_fixture.h"
#include "qddsc/dynamic_data.h"
#include "qddsc/string.h"

constexpr const char *EVERYTHING_IDL = R"(
module weather {
  const long N = 3;
  enum Sky { CLEAR, @value(5) CLOUDS, RAIN };
  typedef double Grid[2][N];
  typedef sequence<long, N> Counts;
  typedef Counts MoreCounts;
  @appendable struct Base { @key long id; string<8> name; };
  module detail {
    struct Reading { octet flag; double value; };
    @nested struct Tag { string name; sequence<Reading> readings; };
  };
  @appendable struct Observation : Base {
    Sky sky;
    boolean good;
    sequence<detail::Tag> tags;
    MoreCounts counts;
    Grid grid;
    sequence<sequence<string>> words;
    detail::Reading last[2];
    char c; octet o; int8 i; short s; unsigned short us; unsigned long ul;
    long long ll, ull_; unsigned long long ull; float f; double d;
  };
};
)";

template<auto Delete> struct Deleter {
    template<typename T> void operator()(T *object) const
    {
        Delete(object);
    }
};
using Library = std::unique_ptr<DDS_TypeLibrary, Deleter<DDS_TypeLibrary_delete>>;
using Sample = std::unique_ptr<DDS_DynamicData, Deleter<DDS_DynamicData_delete>>;

inline const DDS_TypeCode *typeFromIdl(const char *idl, const char *name)
{
    const Library library(DDS_TypeLibrary_new());
    DDS_ErrorText error{};
    EXPECT_EQ(DDS_TypeLibrary_add_idl_text(library.get(), idl, "test.idl", &error), 1)
        << error.text;
    const DDS_TypeCode *type = DDS_TypeLibrary_find(library.get(), name);
    EXPECT_NE(type, nullptr) << name;
    return type;
}

inline const DDS_TypeCode *observationType()
{
    static const DDS_TypeCode *const type = typeFromIdl(EVERYTHING_IDL, "weather::Observation");
    return type;
}

inline Sample makeSample(const DDS_TypeCode *type, int32_t limit = 0)
{
    const DDS_DynamicDataProperty_t property = {0, limit};
    return Sample(DDS_DynamicData_new(type, &property));
}

inline std::vector<uint8_t> bytesOf(const Sample &sample)
{
    size_t length = 0;
    const uint8_t *bytes = DDS_DynamicData_get_cdr(sample.get(), &length);
    return {bytes, bytes + length};
}

inline DDS_ReturnCode_t setString(const Sample &sample, const char *path, const std::string &text)
{
    return DDS_DynamicData_set_string(sample.get(), path, text.data(), text.size());
}

inline std::string getString(const Sample &sample, const char *path)
{
    const char *text = nullptr;
    size_t length = 0;
    const DDS_ReturnCode_t code = DDS_DynamicData_get_string(sample.get(), path, &text, &length);
    return code == DDS_RETCODE_OK ? std::string(text, length) : "error " + std::to_string(code);
}

// The message that a text is rejected with, or what it says of the first definition left out.
inline std::string rejection(const std::string &idl)
{
    const Library library(DDS_TypeLibrary_new());
    DDS_ErrorText error{};
    if (DDS_TypeLibrary_add_idl_text(library.get(), idl.c_str(), "x.idl", &error) == 1) {
        const char *note = nullptr;
        for (uint32_t i = 0; (note = DDS_TypeLibrary_get_note(library.get(), i)) != nullptr; ++i) {
            if (std::strstr(note, " is left out: ") != nullptr) {
                return note;
            }
        }
        return "accepted";
    }
    EXPECT_EQ(DDS_TypeLibrary_get_count(library.get()), 0U);
    return error.text;
}

// A sample in which nothing is empty.
inline Sample makeFilled()
{
    Sample sample = makeSample(observationType());
    const std::pair<const char *, uint32_t> lengths[] = {
        {"tags", 2}, {"tags[0].readings", 2}, {"counts", 3}, {"words", 2}, {"words[1]", 2}};
    for (const auto &[path, length] : lengths) {
        EXPECT_EQ(DDS_DynamicData_set_length(sample.get(), path, length), DDS_RETCODE_OK) << path;
    }
    EXPECT_EQ(setString(sample, "name", "abc"), DDS_RETCODE_OK);
    EXPECT_EQ(setString(sample, "tags[1].name", "tag one"), DDS_RETCODE_OK);
    EXPECT_EQ(setString(sample, "words[1][0]", "w"), DDS_RETCODE_OK);
    EXPECT_EQ(DDS_DynamicData_set_double(sample.get(), "d", 1.5), DDS_RETCODE_OK);
    return sample;
}

#endif
