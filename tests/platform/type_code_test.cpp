// Type codes: the rules they are made by, one object for one structure, and how two differ.
#include <array>

#include "fixture.h"
#include "records.h"

namespace {

const DDS_TypeCode *primitive(DDS_TCKind kind)
{
    return DDS_TypeCode_get_primitive(kind);
}

struct Parts {
    const char *name = "S";
    const char *member = "m";
    const DDS_TypeCode *type = primitive(DDS_TK_LONG);
    const DDS_TypeCode *base = nullptr;
    int32_t isKey = 0;
    DDS_ExtensibilityKind extensibility = DDS_EXTENSIBILITY_FINAL;
    uint32_t count = 1;

    const DDS_TypeCode *make(DDS_ErrorText *error = nullptr) const
    {
        const DDS_StructMember members[] = {{member, type, isKey}, {member, type, isKey}};
        return DDS_TypeCode_create_struct(name, base, extensibility, members, count, error);
    }
};

TEST(TypeCode, RejectsWhatBreaksARule)
{
    const DDS_TypeCode *plain = Parts().make();
    const DDS_TypeCode *number = primitive(DDS_TK_LONG);
    const DDS_TypeCode *longs = DDS_TypeCode_create_sequence(number, 0, nullptr);
    const std::pair<Parts, std::string> cases[] = {
        {{"S", "a::b"}, "S: \"a::b\" is not an identifier"},
        {{"S", "m", nullptr}, "S.m: type is null"},
        {{"S", "m", longs, nullptr, 1}, "S.m: a sequence cannot be part of a key"},
        {{"S", "m", number, number}, "S: its base is not a struct"},
        {{"S", "m", number, plain}, "S has two members named m"},
        {{"S", "n", number, plain, 0, DDS_EXTENSIBILITY_APPENDABLE},
         "S and its base S differ in extensibility"},
        {{"S", "n", number, plain, 1},
         "S.n: a struct with a base cannot declare keys; declare them in the base"},
        {{"S", "m", number, nullptr, 0, DDS_EXTENSIBILITY_FINAL, 0}, "struct S has no members"},
        {{"S", "m", number, nullptr, 0, DDS_EXTENSIBILITY_FINAL, 2}, "S has two members named m"}};
    DDS_ErrorText error{};
    for (const auto &[parts, what] : cases) {
        EXPECT_EQ(parts.make(&error), nullptr) << what;
        EXPECT_EQ(error.text, what);
        EXPECT_EQ(parts.make(nullptr), nullptr) << what;
    }
    for (const char *name : {"", "1S", "a b", "a::", "::a", "a:b", "a::::b", "a-b"}) {
        EXPECT_EQ(Parts{name}.make(&error), nullptr);
        EXPECT_EQ(error.text, "\"" + std::string(name) + "\" is not the scoped name of a type");
    }

    const uint32_t dimension = 2;
    const DDS_TypeCode *array = DDS_TypeCode_create_array(number, &dimension, 1, nullptr);
    EXPECT_EQ(DDS_TypeCode_create_sequence(array, 0, &error), nullptr);
    EXPECT_STREQ(error.text, "an array that is an element needs a name: make an alias of it");
    const DDS_EnumMember members[] = {{"A", 0}, {"B", 1}, {"C", 1}, {"A", 2}};
    EXPECT_EQ(DDS_TypeCode_create_enum("E", members, 3, &error), nullptr);
    EXPECT_STREQ(error.text, "enum E has two enumerators of value 1");
    EXPECT_EQ(DDS_TypeCode_create_enum("E", members, 4, &error), nullptr);
    EXPECT_STREQ(error.text, "E has two enumerators named A");
    EXPECT_EQ(DDS_TypeCode_create_enum("E", members, 0, &error), nullptr);
    const DDS_TypeCode *deep = plain;
    for (int i = 0; i < 100 && deep != nullptr; ++i) {
        deep = DDS_TypeCode_create_sequence(deep, 0, &error);
    }
    EXPECT_EQ(deep, nullptr);
    EXPECT_STREQ(error.text, "sequence: nested deeper than 64 levels");
    const DDS_TypeCode *derived = plain;
    for (int i = 0; i < 100 && derived != nullptr; ++i) {
        const std::string member = "m" + std::to_string(i);
        derived = Parts{"S", member.c_str(), number, derived}.make();
    }
    EXPECT_EQ(derived, nullptr);
}

TEST(TypeCode, IsInternedByManyThreadsAtOnce)
{
    std::array<const DDS_TypeCode *, 4> made{};
    for (int round = 0; round < 200; ++round) {
        const std::string name = "Race" + std::to_string(round);
        onThreads(4, [&](int t) { made.at(static_cast<size_t>(t)) = Parts{name.c_str()}.make(); });
        ASSERT_NE(made[0], nullptr);
        for (const DDS_TypeCode *type : made) {
            ASSERT_EQ(type, made[0]);
        }
    }
}

// At the deepest nesting a sample can still be reached and changed everywhere.
TEST(TypeCode, NestsToItsLimit)
{
    const DDS_TypeCode *type = primitive(DDS_TK_OCTET);
    std::string path = "m";
    for (int i = 0; i < 63; ++i) {
        type = DDS_TypeCode_create_sequence(type, 0, nullptr);
        path += "[0]";
    }
    const Sample sample = makeSample(Parts{"S", "m", type}.make());
    ASSERT_NE(sample, nullptr);
    for (size_t at = 1; at < path.size(); at += 3) {
        ASSERT_EQ(DDS_DynamicData_set_length(sample.get(), path.substr(0, at).c_str(), 1),
                  DDS_RETCODE_OK);
    }
    EXPECT_EQ(DDS_DynamicData_set_octet(sample.get(), path.c_str(), 9), DDS_RETCODE_OK);
    const std::vector<uint8_t> bytes = bytesOf(sample);
    EXPECT_EQ(bytes.size(), 63U * 4 + 1);
    EXPECT_EQ(bytes.back(), 9);
    EXPECT_EQ(DDS_DynamicData_set_cdr(sample.get(), bytes.data(), bytes.size(), nullptr),
              DDS_RETCODE_OK);
}

TEST(TypeCode, DifferencesAreExplainedAndMakeOtherTypes)
{
    for (const Record &test : recordsOf("platform/data/type_differences.txt")) {
        const DDS_TypeCode *here = typeFromIdl(test.at(0).c_str(), "S");
        const DDS_TypeCode *there = typeFromIdl(test.at(1).c_str(), "S");
        DDS_ErrorText found{};
        EXPECT_NE(here, there) << test.at(2);
        EXPECT_EQ(DDS_TypeCode_explain_difference(here, there, &found), test.at(2).empty() ? 0 : 1);
        EXPECT_EQ(found.text, test.at(2));
    }
    // Each pair of types is looked at once: there are more ways to the last one than time.
    std::string chain;
    for (int i = 1; i < 30; ++i) {
        const std::string inner = "sequence<T" + std::to_string(i - 1) + ">";
        chain += "struct T" + std::to_string(i) + " { " + inner + " a; " + inner + " b; };";
    }
    const std::string named = "typedef long L; struct T0 { L x; };" + chain;
    const std::string plain = "struct T0 { long x; };" + chain;
    EXPECT_EQ(DDS_TypeCode_explain_difference(typeFromIdl(named.c_str(), "T29"),
                                              typeFromIdl(plain.c_str(), "T29"), nullptr),
              0);
}

} // namespace
