// The member cache: where each member is kept, in which order all are let go, and what comes of
// every failure to find one.
#include <gtest/gtest.h>

#include "harness.h"

using namespace bridge;

namespace {

FERRYJNIGlobal *resolve()
{
    const StringList none = {};
    return FERRYJNIGlobal_new(&none, &none, 0x1, FERRYJNI_DESTROY_NEVER);
}

/// What is looked up, in which order, and what each failure says stands in members.sweep.
TEST(Members, AFailureAtAnyCallComesOutAsReviewed)
{
    FERRYJNIGlobal *first = startVm();
    ASSERT_NE(first, nullptr);
    JNIEnv *env = FERRYJNIGlobal_getEnv(first);
    const auto begin = [env]() -> std::function<void(const std::string &)> {
        return [env](const std::string &line) {
            note(line);
            FERRYJNIGlobal *made = resolve();
            note(made != nullptr ? "< record" : "< null");
            FERRYJNIGlobal_destroy(made);
            EXPECT_EQ(env->ExceptionCheck(), JNI_FALSE);
        };
    };
    begin()("> new");
    transcript();
    sweep("jni", {"> new"}, begin, "members");
}

TEST(Members, StandAtTheirPositionsUntilReleasedInTheDocumentedOrder)
{
    ASSERT_NE(startVm(), nullptr);
    // Positions in the record, in the order in which members are looked up and references deleted.
    const std::vector<int> found = {1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15, 16,
                                    17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32,
                                    33, 34, 35, 36, 37, 38, 39, 40, 42, 41, 43, 44, 45, 46, 47, 48,
                                    49, 54, 55, 56, 50, 51, 52, 53, 57, 58, 59, 60, 61, 62, 63, 64,
                                    65, 66, 67, 68, 69, 70, 71, 72, 73, 74, 75, 76, 77, 78};
    const std::vector<int> deleted = {1,  5,  10, 12, 21, 24, 26, 28, 33, 37, 44, 47,
                                      50, 54, 57, 60, 63, 53, 56, 66, 68, 73, 77};
    jni.found.clear();
    FERRYJNIGlobal *other = resolve();
    ASSERT_NE(other, nullptr);
    void **slots = reinterpret_cast<void **>(reinterpret_cast<char *>(other) + 16);
    const auto at = [slots](const std::vector<int> &positions) {
        std::vector<const void *> there;
        for (const int position : positions) {
            there.push_back(slots[position - 1]);
        }
        return there;
    };
    EXPECT_EQ(jni.found, at(found));
    const std::vector<const void *> held = at(deleted);
    jni.deleted.clear();
    FERRYJNIGlobal_destroy(other);
    EXPECT_EQ(jni.deleted, held);
}

/// Of one reference nobody notices that it could not be made.
TEST(Members, WithoutTheClassOfDiscoveryAConnectionHasNone)
{
    ASSERT_NE(startVm(), nullptr);
    fault = {"jni", "NewGlobalRef", 12};
    FERRYJNIGlobal *global = resolve();
    fault = {};
    ASSERT_NE(global, nullptr);
    EXPECT_NE(global->discoveryConnectionGetOutputStreamDiscoveryReader, nullptr);
    Host host(global);
    host.given("connection");
    host.execute("> get_pub");
    EXPECT_EQ(transcript(), "\n> get_pub\n< null");
    host.deleteAll();
    FERRYJNIGlobal_destroy(global);
}

} // namespace
