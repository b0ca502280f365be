// Signals of Java readers that meet what the host does to them.
#include <gtest/gtest.h>

#include <algorithm>

#include "harness.h"

using namespace bridge;

namespace {

/// The host asks for a discovery reader again, and gets another one, while a signal is comparing.
TEST(Signals, ASignalUnderWayComparesWithNoReleasedReader)
{
    FERRYJNIGlobal *global = startVm();
    ASSERT_NE(global, nullptr);
    for (const char *next : {"> get_pub", "> delete_connection"}) {
        static Host *host;
        static jobject bound;
        static JNINativeInterface_ delayed;
        static const JNINativeInterface_ *usual;
        Host made(global);
        host = &made;
        host->given("connection");
        host->execute("> get_pub");
        host->execute("! getInputStreamDiscoveryReader other");
        JNIEnv *env = FERRYJNIGlobal_getEnv(global);
        usual = env->functions;
        delayed = *usual;
        delayed.IsSameObject = [](JNIEnv *signalling, jobject with, jobject reader) -> jboolean {
            signalling->functions = usual;
            bound = with;
            host->execute("> get_pub");
            EXPECT_EQ(std::count(jni.deleted.begin(), jni.deleted.end(), bound), 0);
            return signalling->IsSameObject(with, reader);
        };
        env->functions = &delayed;
        jni.deleted.clear();
        host->execute("! signal_here 1 0");
        EXPECT_NE(transcript().find("signal to pub by pub"), std::string::npos);
        host->execute(next);
        EXPECT_EQ(std::count(jni.deleted.begin(), jni.deleted.end(), bound), 1) << next;
    }
}

TEST(Signals, NoSignalGetsThroughOnceTheReaderIsDeleted)
{
    FERRYJNIGlobal *global = startVm();
    ASSERT_NE(global, nullptr);
    bool anySignal = false;
    for (int round = 0; round < 50; ++round) {
        Host host(global);
        host.given("reader");
        host.execute("! storm 2 0");
        host.execute("! storm 2 0");
        host.execute("> delete_reader");
        act("signal 2 0");
        act("reset");
        const std::string said = transcript();
        anySignal = anySignal || said.find("signal to") != std::string::npos;
        const std::string after = said.substr(said.rfind("\n<"));
        EXPECT_EQ(after.find("signal to"), std::string::npos) << after;
        host.deleteAll();
    }
    EXPECT_TRUE(anySignal);
}

} // namespace
