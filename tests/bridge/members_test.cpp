// The member cache, held against a list of its own: what is looked up, in which order, where it is
// kept, what each failure says, and that nothing is left behind.
#include <gtest/gtest.h>

#include "harness.h"

using namespace bridge;

namespace {

enum Kind { Class, Method, StaticMethod, Field, StaticField, Object };

struct Member {
    int position;
    Kind kind;
    const char *type;
    std::string name;
    std::string signature;
    const char *missing;
    const char *noGlobalRef;
    bool described;
};

const std::vector<Member> members = {
#define MEMBER(...) Member{__VA_ARGS__},
#include "members.inc"
#undef MEMBER
};

const std::string context = "\nFERRYJNIGlobal_new:!";
const std::string noReference =
    "\nFERRYJNICommon_newGlobalRef:!create global reference"
    "\nJNICommon_newGlobalRefReplacingLocalRef:!create global reference";
const char *const unnoticed = "error finding DiscoveryConnection class";

std::string lookupOf(const Member &member)
{
    return member.type + (member.name.empty() ? "" : " " + member.name + " " + member.signature);
}

class Members : public testing::Test {
protected:
    void SetUp() override
    {
        FERRYJNIGlobal *global = startVm();
        ASSERT_NE(global, nullptr);
        ASSERT_EQ(members.size(), 78U);
        FERRYLog_setBitmaps(0xFFFFF, 0x1);
        env = FERRYJNIGlobal_getEnv(global);
    }
    static FERRYJNIGlobal *resolve()
    {
        const StringList none = {};
        return FERRYJNIGlobal_new(&none, &none, 0x1, FERRYJNI_DESTROY_NEVER);
    }
    static void checkWithoutDiscovery(FERRYJNIGlobal *global)
    {
        EXPECT_NE(global->discoveryConnectionGetOutputStreamDiscoveryReader, nullptr);
        Host host(global);
        host.given("connection");
        host.execute("> get_pub");
        EXPECT_EQ(transcript(), "\n> get_pub\n< null");
        host.deleteAll();
        transcript();
        FERRYJNIGlobal_destroy(global);
    }
    JNIEnv *env = nullptr;
};

TEST_F(Members, EachStandsAtItsPositionUntilReleasedInTheDocumentedOrder)
{
    // Positions in the record.
    const std::vector<int> order = {1,  5,  10, 12, 21, 24, 26, 28, 33, 37, 44, 47,
                                    50, 54, 57, 60, 63, 53, 56, 66, 68, 73, 77};
    jni.found.clear();
    FERRYJNIGlobal *other = resolve();
    ASSERT_NE(other, nullptr);
    ASSERT_EQ(jni.found.size(), members.size());
    void **slots = reinterpret_cast<void **>(reinterpret_cast<char *>(other) + 16);
    for (size_t i = 0; i < members.size(); ++i) {
        EXPECT_EQ(slots[members[i].position - 1], jni.found[i])
            << members[i].type << " " << members[i].name;
    }
    std::vector<const void *> expected;
    for (const int position : order) {
        expected.push_back(slots[position - 1]);
    }
    jni.deleted.clear();
    FERRYJNIGlobal_destroy(other);
    EXPECT_EQ(jni.deleted, expected);
}

TEST_F(Members, AFailureAtAnyCallSaysWhichAndLeavesNothingBehind)
{
    const size_t references = jni.globals.size();
    const int64_t blocks = heapBlocks();
    size_t call = 0;
    for (size_t step = 1; step <= members.size(); ++step) {
        const Member &member = members[step - 1];
        for (const bool isReference : {false, true}) {
            if (isReference && member.noGlobalRef == nullptr) {
                continue;
            }
            ++call;
            for (const bool forGood : {false, true}) {
                SCOPED_TRACE(member.type + std::string(forGood ? " and all after" : ""));
                jni.lookups.clear();
                fault = {"jni", "", call, forGood};
                FERRYJNIGlobal *resolved = resolve();
                EXPECT_FALSE(fault.isPending());
                fault = {};
                // This reference alone goes unnoticed; its connections then have no discovery.
                const bool goesOn = isReference && strcmp(member.missing, unnoticed) == 0;
                EXPECT_EQ(resolved != nullptr, goesOn && !forGood);
                EXPECT_EQ(
                    transcript(),
                    (isReference ? noReference : std::string()) +
                        (!isReference && member.described ? "\n(described)" : "") +
                        (goesOn ? (forGood ? context + members[step].missing : "")
                                : context + (isReference ? member.noGlobalRef : member.missing)));
                EXPECT_EQ(env->ExceptionCheck(), JNI_FALSE);
                EXPECT_EQ(jni.lookups.size(),
                          resolved != nullptr ? members.size() : step + (goesOn ? 1 : 0));
                if (resolved == nullptr) {
                    EXPECT_EQ(jni.lookups.back(), lookupOf(members[jni.lookups.size() - 1]));
                } else {
                    checkWithoutDiscovery(resolved);
                    // The adapter's class and its connection stay.
                    EXPECT_EQ(jni.globals.size(), references + 2);
                    jni.globals.resize(references);
                }
                EXPECT_EQ(jni.globals.size(), references);
                EXPECT_EQ(heapBlocks(), blocks);
            }
        }
    }
    EXPECT_EQ(call, 78U + 23U);
}

} // namespace
