// Types from IDL: everything that is supported, and where and how the rest is refused.
#include <cstdio>
#include <fstream>

#include "fixture.h"
#include "records.h"

// The parser loses a little memory with every text that it refuses; that leak is not ours.
extern "C" __attribute__((visibility("default"))) const char *__lsan_default_suppressions();
extern "C" const char *__lsan_default_suppressions()
{
    return "leak:libcycloneddsidl";
}

namespace {

std::string kindsOf(const DDS_TypeCode *type)
{
    std::string text;
    for (uint32_t i = 0; i < DDS_TypeCode_get_member_count(type); ++i) {
        text += DDS_TypeCode_get_member_name(type, i);
        text += ":" + std::to_string(DDS_TypeCode_get_kind(DDS_TypeCode_get_member_type(type, i)));
        text += DDS_TypeCode_is_member_key(type, i) ? "k " : " ";
    }
    return text;
}

TEST(Idl, GivesEveryTypeAsItIsWritten)
{
    const Library library(DDS_TypeLibrary_new());
    ASSERT_EQ(DDS_TypeLibrary_add_idl_text(library.get(), EVERYTHING_IDL, "x.idl", nullptr), 1);
    const auto find = [&library](const char *name) {
        return DDS_TypeLibrary_find(library.get(), name);
    };
    std::string names;
    for (uint32_t i = 0; i < DDS_TypeLibrary_get_count(library.get()); ++i) {
        names += DDS_TypeCode_get_name(DDS_TypeLibrary_get_at(library.get(), i));
        names += " ";
    }
    EXPECT_EQ(names, "weather::Sky weather::Grid weather::Counts weather::MoreCounts weather::Base "
                     "weather::detail::Reading weather::detail::Tag weather::Observation ");
    const DDS_TypeCode *type = find("weather::Observation");
    EXPECT_EQ(kindsOf(type), "id:7k name:13 sky:14 good:1 tags:17 counts:16 grid:16 words:17 "
                             "last:18 c:2 o:3 i:4 s:5 us:6 ul:8 ll:9 ull_:9 ull:10 f:11 d:12 ");
    EXPECT_EQ(DDS_TypeCode_get_base(type), find("weather::Base"));
    EXPECT_EQ(DDS_TypeCode_is_keyed(type), 1);
    EXPECT_EQ(DDS_TypeCode_get_extensibility(type), DDS_EXTENSIBILITY_APPENDABLE);
    EXPECT_EQ(DDS_TypeCode_get_extensibility(find("weather::detail::Tag")),
              DDS_EXTENSIBILITY_FINAL);
    EXPECT_EQ(DDS_TypeCode_get_bound(DDS_TypeCode_resolve(find("weather::MoreCounts"))), 3U);
    EXPECT_EQ(find("Observation"), nullptr);
}

TEST(Idl, IsWrittenAndReadBackAsTheSameTypes)
{
    const char *texts[] = {
        EVERYTHING_IDL, "struct _long { long _struct; double __x, x, X; string<7> _STRING; };",
        "module m { struct A { long x; }; }; module m { module n { struct A { ::m::A a; }; }; };"
        "struct A { m::n::A a; m::A m; }; typedef A B[2]; typedef sequence<B, 4> C; "
        "@final struct D : A { C c; sequence<sequence<sequence<long>, 2>> d; };"};
    for (const char *text : texts) {
        const Library library(DDS_TypeLibrary_new());
        DDS_ErrorText error{};
        ASSERT_EQ(DDS_TypeLibrary_add_idl_text(library.get(), text, "x", &error), 1) << error.text;
        for (uint32_t i = 0; i < DDS_TypeLibrary_get_count(library.get()); ++i) {
            const DDS_TypeCode *type = DDS_TypeLibrary_get_at(library.get(), i);
            char *idl = DDS_TypeCode_to_idl(type);
            EXPECT_EQ(typeFromIdl(idl, DDS_TypeCode_get_name(type)), type) << idl;
            DDS_String_free(idl);
        }
    }
}

TEST(Idl, IsRefusedByNameLineAndColumnOrChangesNothing)
{
    for (const Record &test : recordsOf("platform/data/idl_texts.txt")) {
        EXPECT_EQ(refusal(test.at(0)), test.at(1)) << test.at(0);
    }
    std::string deep = "typedef ";
    for (int i = 0; i < 200000; ++i) {
        deep += "sequence<";
    }
    EXPECT_EQ(refusal(deep), "x.idl:1:593: nested deeper than 64 levels");
}

TEST(Idl, KeepsALibraryAsItWasWhenATextIsRefused)
{
    const Library library(DDS_TypeLibrary_new());
    DDS_ErrorText error{};
    const auto add = [&](const char *idl) {
        return DDS_TypeLibrary_add_idl_text(library.get(), idl, "x.idl", &error);
    };
    ASSERT_EQ(add("struct A { long x; };"), 1);
    ASSERT_EQ(add("struct A { long x; }; struct B { A a; };"), 1) << "the same meaning again";
    EXPECT_EQ(add("struct C { long x; }; struct A { short x; };"), 0);
    EXPECT_STREQ(error.text, "x.idl: A means another type in what was read before");
    EXPECT_EQ(add("struct C { long x; }; struct D {"), 0);
    EXPECT_EQ(DDS_TypeLibrary_get_count(library.get()), 2U);
    EXPECT_EQ(DDS_TypeLibrary_find(library.get(), "C"), nullptr);
    EXPECT_EQ(DDS_TypeLibrary_get_at(library.get(), 2), nullptr);
    EXPECT_EQ(DDS_TypeLibrary_add_idl_text(library.get(), "struct", "x", nullptr), 0);
    EXPECT_EQ(DDS_TypeLibrary_add_idl_file(library.get(), "/nowhere/a.idl", &error), 0);
    EXPECT_STREQ(error.text, "/nowhere/a.idl: cannot be opened: No such file or directory");
}

TEST(Idl, ReadsFiles)
{
    const std::string path = testing::TempDir() + "platform_idl_test.idl";
    DDS_ErrorText error{};
    const auto readAs = [&](const std::string &text) {
        std::ofstream(path, std::ios::binary) << text;
        const Library library(DDS_TypeLibrary_new());
        return DDS_TypeLibrary_add_idl_file(library.get(), path.c_str(), &error) == 1
                   ? DDS_TypeLibrary_find(library.get(), "weather::Observation")
                   : nullptr;
    };
    EXPECT_EQ(readAs(EVERYTHING_IDL), observationType());
    EXPECT_EQ(readAs("struct A { long x y; };"), nullptr);
    EXPECT_EQ(error.text, path + ":1:19: syntax error at \"y\"");
    EXPECT_EQ(readAs(std::string(EVERYTHING_IDL) + '\0'), nullptr);
    std::remove(path.c_str());
}

// The parser is no good with threads, and complaints must come back to the thread they belong to.
TEST(Idl, IsReadByManyThreadsAtOnce)
{
    onThreads(4, [](int t) {
        const std::string name = "T" + std::to_string(t);
        for (int i = 0; i < 50; ++i) {
            EXPECT_EQ(refusal("struct A { " + name + " x; };"),
                      "x.idl:1:12: Scoped name '" + name + "' cannot be resolved");
            EXPECT_EQ(typeFromIdl(EVERYTHING_IDL, "weather::Observation"), observationType());
        }
    });
}

} // namespace
