// Types from IDL: as they are written again, and where and how the rest is rejected.
#include "fixture.h"
#include "records.h"

#include <filesystem>
#include <fstream>
#include <regex>

// The parser loses a little memory with every text that it rejects; that leak is not ours.
extern "C" __attribute__((visibility("default"))) const char *__lsan_default_suppressions();
extern "C" const char *__lsan_default_suppressions()
{
    return "leak:libcycloneddsidl";
}

namespace {

TEST(Idl, IsWrittenAndReadBackAsTheSameTypes)
{
    const char *texts[] = {
        EVERYTHING_IDL,
        "enum E { X, Y }; struct P { long a; @default(\"a\\\"\\n\") string b; }; struct S { "
        "@default(-1.5) "
        "double d; P p; @default('\\'') char c; @default(Y) E e; @default(TRUE) boolean t; "
        "@default(0x10) long long l; @default(3) float f; };\n#pragma keylist S p.a\n",
        "struct _long { long _struct; double __x, x, X; string<7> _STRING; };",
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

TEST(Idl, IsRejectedByNameLineAndColumnOrChangesNothing)
{
    for (const Record &test : recordsOf("platform/data/idl_texts.txt")) {
        EXPECT_EQ(rejection(test.at(0)), test.at(1)) << test.at(0);
    }
    std::string sequences = "typedef ";
    std::string modules;
    std::string flat; // which is not deep
    for (int i = 0; i < 200000; ++i) {
        sequences += "sequence<";
        modules += "module m{";
        flat += i < 100 ? "module m { struct S" + std::to_string(i) + " { long x; }; };" : "";
    }
    std::string doubled = "#define A0 long\n";
    for (int i = 0; i < 22; ++i) {
        const std::string last = "A" + std::to_string(i);
        doubled += "#define A" + std::to_string(i + 1) + " " + last + " " + last + "\n";
    }
    EXPECT_EQ(rejection(doubled + "A16").substr(0, 9), "x.idl:24:");
    EXPECT_EQ(rejection(doubled + "A22"), "x.idl:24:1: the macros that \"A0\" stands for have no "
                                          "end in sight");
    EXPECT_EQ(rejection("#if " + std::string(101, '(') + "1").substr(0, 13), "x.idl:1:1: \"(");
    EXPECT_EQ(rejection(sequences), "x.idl:1:593: nested deeper than 64 levels");
    EXPECT_EQ(rejection(modules), "x.idl:1:585: nested deeper than 64 levels");
    EXPECT_EQ(rejection(flat), "accepted");
}

// By a value or by the name of a constant, at the limits of what the kind can hold.
TEST(Idl, GivesMembersOfEveryKindTheirDefaults)
{
    for (const Record &test : recordsOf("platform/data/idl_defaults.txt")) {
        const std::string &type = test.at(0);
        const std::string &value = test.at(1);
        const std::string begin = "enum E { X, Y }; module m { const " + type + " C = " + value +
                                  "; module n { @final struct S { @default(";
        const std::string end = ") " + type + " m; }; }; };";
        const DDS_TypeCode *const made = typeFromIdl((begin + value + end).c_str(), "m::n::S");
        for (const char *name : {"C", "m::C", "::m::C"}) {
            EXPECT_EQ(typeFromIdl((begin + name + end).c_str(), "m::n::S"), made) << type;
        }
        EXPECT_EQ(bytesOf(makeSample(made)), fromHex(test.at(2))) << type;
        const std::unique_ptr<char, Deleter<DDS_String_free>> idl(DDS_TypeCode_to_idl(made));
        EXPECT_EQ(typeFromIdl(idl.get(), "m::n::S"), made) << idl.get();
    }
}

// Where a member is part of the key, the struct that it is of is another one elsewhere.
TEST(Idl, GivesNewSamplesTheirDefaultsAndPartsOfMembersToTheKey)
{
    const DDS_TypeCode *const type = typeFromIdl(
        "enum E { X, Y }; struct P { long a; @default(\"w\\157\\x72\" \"d\") string b; long c; };\n"
        "struct Other { P p; }; @nested struct More : P { octet o; }; typedef More Named;\n"
        "struct S { octet o; P p[1]; @default(Y) E e; @default(7) long long n; P q; Named r;\n"
        "           sequence<P> s; };\n"
        "#pragma keylist S q.a",
        "S");
    const Sample sample = makeSample(type);
    const char *text = "";
    int32_t e = 0;
    int64_t n = 0;
    EXPECT_EQ(DDS_DynamicData_get_string(sample.get(), "p[0].b", &text, nullptr), DDS_RETCODE_OK);
    EXPECT_STREQ(text, "word");
    EXPECT_EQ(DDS_DynamicData_get_long(sample.get(), "e", &e), DDS_RETCODE_OK);
    EXPECT_EQ(DDS_DynamicData_get_longlong(sample.get(), "n", &n), DDS_RETCODE_OK);
    EXPECT_EQ(e * 10 + n, 17);
    EXPECT_EQ(setString(sample, "p[0].b", ""), DDS_RETCODE_OK) << "behind it all moves";
    EXPECT_EQ(DDS_DynamicData_get_string(sample.get(), "q.b", &text, nullptr), DDS_RETCODE_OK);
    EXPECT_STREQ(text, "word");
    for (const uint32_t member : {1U, 4U, 5U, 6U}) {
        const DDS_TypeCode *part = DDS_TypeCode_resolve(DDS_TypeCode_get_member_type(type, member));
        part = DDS_TypeCode_get_kind(part) != DDS_TK_STRUCT ? DDS_TypeCode_get_content(part) : part;
        EXPECT_EQ(DDS_TypeCode_is_member_key(part, 0) + 2 * DDS_TypeCode_is_member_key(part, 2), 1);
    }
    const std::unique_ptr<char, Deleter<DDS_String_free>> idl(DDS_TypeCode_to_idl(type));
    EXPECT_NE(std::strstr(idl.get(), "@nested"), nullptr) << idl.get();
    EXPECT_EQ(DDS_TypeCode_is_member_key(type, 4) + 2 * DDS_TypeCode_is_member_key(type, 1), 1);
    const DDS_TypeCode *const heir =
        typeFromIdl("struct P { long a, b; }; struct More : P { octet o; }; typedef More Named;\n"
                    "struct Heir : Named { P p; };\n#pragma keylist Heir b",
                    "Heir");
    EXPECT_EQ(DDS_TypeCode_is_member_key(heir, 0) + 2 * DDS_TypeCode_is_member_key(heir, 1), 2);
}

// One definition of a file that types do not carry leaves the others as they are.
TEST(Idl, LeavesOutWhatItDoesNotCarryAndWhatUsesThatAndNothingElse)
{
    const char *const text =
        "struct Late; typedef sequence<Late> LateList;\n"
        "module m { union U switch (long) { case 1: long x; }; typedef any X, Y[2];\n"
        " interface I { typedef long T; void f(in T t) raises (E); };\n"
        " local interface I2; exception E {}; native N; module gone { bitmask B { F }; };\n"
        " enum E3 { @value(-1) A3, B3 }; const wchar W = L'x'; typeid I \"a\"; };\n"
        "module n { typedef sequence<m::U, 3> Us; struct Direct { Us us; }; const E3 C = ::m::A3;\n"
        " struct Indirect { long y; Direct d[2]; }; struct ByScope { m::I::T t; };\n"
        " struct Good { long U, I, m, any; sequence<long> sequence; };; struct Late { octet o; };\n"
        " struct Float { double d[N1]; }; module empty {}; struct ByFlag { long a[m::B3]; }; };\n"
        "const float f = 1.5f; const long N1 = 2; struct Late { LateList more; };\n"
        "struct ByForward { Late l; }; typedef n::Good Alias;\n"
        "#pragma keylist Indirect y\n";
    const Library library(DDS_TypeLibrary_new());
    DDS_ErrorText error{};
    const std::string right = std::regex_replace(text, std::regex("double d.N1."), "double d[2]");
    EXPECT_EQ(rejection(text), "x.idl:9:26: Scoped name 'N1' cannot be resolved");
    ASSERT_EQ(DDS_TypeLibrary_add_idl_text(library.get(), right.c_str(), "x.idl", &error), 1)
        << error.text;
    std::string names;
    for (uint32_t i = 0; i < DDS_TypeLibrary_get_count(library.get()); ++i) {
        names += DDS_TypeCode_get_name(DDS_TypeLibrary_get_at(library.get(), i)) + std::string(" ");
    }
    EXPECT_EQ(names, "n::Good n::Late n::Float Alias ");
    const auto why = [&](const char *name) {
        EXPECT_EQ(name == nullptr ? nullptr : DDS_TypeLibrary_find(library.get(), name), nullptr);
        error = {};
        return DDS_TypeLibrary_explain_left_out(library.get(), name, &error) == 1
                   ? std::string(error.text)
                   : "unknown";
    };
    const std::string isUnion = "; x.idl:2:12: union U is not supported";
    const std::string isInterface = "; x.idl:3:2: interface I is not supported";
    const std::string isRecursive =
        "LateList is used before it is complete: recursive types are not "
        "supported";
    EXPECT_EQ(why("m::U"), isUnion.substr(2));
    EXPECT_EQ(why("n::Us"), "x.idl:6:12: it uses \"m::U\"" + isUnion);
    EXPECT_EQ(why("n::Indirect"), "x.idl:7:28: it uses \"n::Direct\"" + isUnion);
    EXPECT_EQ(why("n/Indirect"), why("n::Indirect"));
    EXPECT_EQ(why("n::ByScope"), "x.idl:7:61: it uses \"m::I\"" + isInterface);
    EXPECT_EQ(why("n::ByFlag"), "x.idl:9:73: it uses \"m::E3\"; x.idl:5:12: @value(-1) cannot be "
                                "applied to 'enumerator' element");
    EXPECT_EQ(why("m::Y"), "x.idl:2:63: any is not supported");
    EXPECT_EQ(why("m::I2"), "x.idl:4:2: interface I2 is not supported");
    EXPECT_EQ(why("m::gone::B"), "x.idl:4:62: bitmask B is not supported");
    EXPECT_EQ(why("Late"), "x.idl:10:56: " + isRecursive);
    EXPECT_EQ(why(nullptr), "x.idl:11:20: it uses \"Late\"; x.idl:10:56: " + isRecursive);
    EXPECT_EQ(why("Nobody"), "unknown");
    const auto add = [&](const char *idl) {
        return DDS_TypeLibrary_add_idl_text(library.get(), idl, "y.idl", &error);
    };
    EXPECT_EQ(add("module m { struct U { long x; }; };"), 0);
    EXPECT_STREQ(error.text, "y.idl:1:1: \"m::U\" is defined in another way at x.idl:2");
    EXPECT_EQ(add("module n { union Good switch (long) { case 1: long x; }; };"), 0);
    EXPECT_STREQ(error.text, "y.idl:1:1: \"n::Good\" is defined in another way at x.idl:8");
    EXPECT_EQ(add("struct Last { long x; };"), 1);
    EXPECT_EQ(why(nullptr), "unknown") << "the last text counts";
}

TEST(Idl, KeepsALibraryAsItWasWhenATextIsRejected)
{
    const Library library(DDS_TypeLibrary_new());
    DDS_ErrorText error{};
    const auto add = [&](const char *idl) {
        return DDS_TypeLibrary_add_idl_text(library.get(), idl, "x.idl", &error);
    };
    ASSERT_EQ(add("struct A { long x; };"), 1);
    ASSERT_EQ(add("struct A { long x; }; struct B { A a; };"), 1) << "the same meaning again";
    EXPECT_EQ(add("struct C { long x; }; struct A { short x; };"), 0);
    EXPECT_STREQ(error.text, "x.idl:1:1: \"A\" is defined in another way at x.idl:1");
    EXPECT_EQ(add("struct C { long x; }; struct D {"), 0);
    EXPECT_EQ(DDS_TypeLibrary_get_count(library.get()), 2U);
    EXPECT_EQ(DDS_TypeLibrary_find(library.get(), "C"), nullptr);
    EXPECT_EQ(DDS_TypeLibrary_get_at(library.get(), 2), nullptr);
    EXPECT_EQ(DDS_TypeLibrary_add_idl_text(library.get(), "struct", "x", nullptr), 0);
    EXPECT_EQ(DDS_TypeLibrary_add_idl_file(library.get(), "/nowhere/a.idl", &error), 0);
    EXPECT_STREQ(error.text, "/nowhere/a.idl: cannot be opened: No such file or directory");
}

// Folders beside the first file, and below the path; what is outside of both stays unread.
TEST(Idl, IncludesFilesOfItsFoldersOnceAndNoOthers)
{
    namespace fs = std::filesystem;
    char name[] = "/tmp/qdds-idl-XXXXXX";
    const fs::path root = fs::canonical(mkdtemp(name));
    const auto put = [&](const char *file, const char *text) {
        fs::create_directories((root / file).parent_path());
        std::ofstream(root / file) << text;
    };
    put("a/main.idl", "#include \"part.idl\"\n#include \"./part.idl\"\n#include <geo/point.idl>\n"
                      "struct Main { Part part; geo::Point p; };\n#pragma keylist Main id\n");
    put("a/part.idl",
        "\n@verbatim(1) struct Part { long x; @range(2) short y; @range(3) short z; };");
    put("path/geo/point.idl",
        "#include \"../units.idl\"\nmodule geo { struct Point { METER x; }; };");
    put("path/units.idl", "#define METER double\n");
    put("secret.idl", "struct Secret { long x; };");
    put("a/cycle.idl", "#include \"cycle2.idl\"");
    put("a/cycle2.idl", "\n#include \"cycle.idl\"");
    put("a/out.idl", "#include \"../secret.idl\"");
    put("a/absolute.idl", ("#include \"" + (root / "secret.idl").string() + "\"").c_str());
    fs::create_symlink(root / "secret.idl", root / "a/link.idl");
    put("a/linked.idl", "#include \"link.idl\"");
    put("a/bad.idl", "#include \"bad2.idl\"\n");
    put("a/bad2.idl", "\nstruct B { Foo x; };");
    const Library library(DDS_TypeLibrary_new());
    const std::string folder = root / "path";
    const char *const path[] = {folder.c_str()};
    DDS_TypeLibrary_set_include_path(library.get(), path, 1);
    const auto add = [&](const char *file) {
        DDS_ErrorText error{};
        const int32_t good =
            DDS_TypeLibrary_add_idl_file(library.get(), (root / file).c_str(), &error);
        return std::regex_replace(good == 1 ? "good" : error.text, std::regex(root.string()), "");
    };
    EXPECT_EQ(add("a/main.idl"),
              "/a/main.idl:5:1: the keys of a pragma: \"Main\" has no member \"id\"");
    put("a/main.idl", "#include \"part.idl\"\n#include \"./part.idl\"\n#include <geo/point.idl>\n"
                      "struct Main { Part part; geo::Point p; };\n#pragma keylist Main part\n");
    EXPECT_EQ(add("a/main.idl"), "good");
    const DDS_TypeCode *const type = DDS_TypeLibrary_find(library.get(), "Main");
    EXPECT_EQ(DDS_TypeCode_is_member_key(type, 0) + 2 * DDS_TypeCode_is_member_key(type, 1), 1);
    EXPECT_EQ(std::string(DDS_TypeLibrary_get_note(library.get(), 1)),
              (root / "a/part.idl").string() + ":2: @range has no effect, here and 1 times more");
    EXPECT_EQ(DDS_TypeLibrary_get_note(library.get(), 2), nullptr);
    const std::string outside = " leaves the folders that may be read: /a, /path";
    EXPECT_EQ(add("a/out.idl"), "/a/out.idl:1:1: #include \"../secret.idl\"" + outside);
    EXPECT_EQ(add("a/absolute.idl"), "/a/absolute.idl:1:1: #include \"/secret.idl\"" + outside);
    EXPECT_EQ(add("a/linked.idl"), "/a/linked.idl:1:1: #include \"link.idl\"" + outside);
    EXPECT_EQ(add("a/cycle.idl"),
              "/a/cycle2.idl:2:1: #include \"cycle.idl\": the file is being included already");
    EXPECT_EQ(add("a/bad.idl"), "/a/bad2.idl:2:12: Scoped name 'Foo' cannot be resolved");
    fs::remove_all(root);
}

// The parser is no good with threads, and complaints must come back to the thread they belong to.
TEST(Idl, IsReadByManyThreadsAtOnce)
{
    onThreads(4, [](int t) {
        const std::string name = "T" + std::to_string(t);
        for (int i = 0; i < 50; ++i) {
            EXPECT_EQ(rejection("struct A { " + name + " x; };"),
                      "x.idl:1:12: Scoped name '" + name + "' cannot be resolved");
            EXPECT_EQ(typeFromIdl(EVERYTHING_IDL, "weather::Observation"), observationType());
        }
    });
}

} // namespace
