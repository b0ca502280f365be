// Host threads: attached, remembered, detached; and a long run of reads on an attached one.
#include <gtest/gtest.h>
#include <malloc.h>

#include <thread>

#include "JNIGlobal.h"
#include "ferryjni/log.h"
#include "harness.h"
#include "qddscore/thread.h"

using namespace bridge;

namespace {

bool keysFail = false;
bool storesFail = false;

class Threads : public testing::Test {
protected:
    void SetUp() override
    {
        global = startVm();
        ASSERT_NE(global, nullptr);
        transcript();
        real = global->javaVM->functions;
        invoke = *real;
        global->javaVM->functions = &invoke;
    }
    void TearDown() override
    {
        global->javaVM->functions = real;
    }
    template<class F> static std::string onThread(F work)
    {
        std::thread(work).join();
        return transcript();
    }
    FERRYJNIGlobal *global = nullptr;
    /// The VM's functions, to be replaced.
    JNIInvokeInterface_ invoke = {};
    const JNIInvokeInterface_ *real = nullptr;
};

TEST_F(Threads, AnAttachmentIsRememberedOnceAndUndoneByOneDetach)
{
    EXPECT_EQ(onThread([this] {
                  EXPECT_EQ(FERRYJNIGlobal_getEnv(global), nullptr);
                  JNIEnv *env = FERRYJNIGlobal_attachCurrentThread(global);
                  ASSERT_NE(env, nullptr);
                  EXPECT_EQ(FERRYJNIGlobal_getEnv(global), env);
                  EXPECT_EQ(FERRYJNIGlobal_attachCurrentThreadP(global), env);
                  FERRYJNIGlobal_detachCurrentThread(global);
                  EXPECT_EQ(FERRYJNIGlobal_getEnv(global), nullptr);
                  FERRYJNIGlobal_detachCurrentThread(global);
              }),
              "\nFERRYJNIGlobal_attachCurrentThread:Thread attached to Java VM"
              "\nFERRYJNIGlobal_detachCurrentThread:Thread dettached from Java VM"
              "\nFERRYJNIGlobal_detachCurrentThread:native thread not attached to Java VM");
}

TEST_F(Threads, TheOneThatMadeTheVmIsNeverDetached)
{
    JNIEnv *env = FERRYJNIGlobal_getEnv(global);
    EXPECT_EQ(FERRYJNIGlobal_attachCurrentThread(global), env);
    FERRYJNIGlobal_detachCurrentThread(global);
    EXPECT_EQ(transcript(),
              "\nFERRYJNIGlobal_detachCurrentThread:native thread not attached to Java VM");
    EXPECT_EQ(FERRYJNIGlobal_getEnv(global), env);
}

TEST_F(Threads, FailuresAreToldAndUndone)
{
    const auto attachFails = [this] {
        EXPECT_EQ(FERRYJNIGlobal_attachCurrentThread(global), nullptr);
        EXPECT_EQ(FERRYJNIGlobal_getEnv(global), nullptr);
    };
    const std::string attach = "\nFERRYJNIGlobal_attachCurrentThread:!";
    const std::string remember = "\nFERRYJNIGlobal_rememberAttachment:!";
    keysFail = true;
    EXPECT_EQ(onThread(attachFails),
              remember + "initialize key" + attach + "remember thread attachment");
    keysFail = false;
    storesFail = true;
    EXPECT_EQ(onThread(attachFails),
              remember + "remember thread attachment" + attach + "remember thread attachment");
    storesFail = false;
    invoke.AttachCurrentThread = [](JavaVM *, void **, void *) -> jint { return JNI_ERR; };
    EXPECT_EQ(onThread(attachFails), attach + "attach native thread to JVM");
}

TEST_F(Threads, AFailedDetachIsForgottenAllTheSame)
{
    static decltype(invoke.DetachCurrentThread) detach = invoke.DetachCurrentThread;
    EXPECT_EQ(onThread([this] {
                  FERRYJNIGlobal_attachCurrentThread(global);
                  invoke.DetachCurrentThread = [](JavaVM *) -> jint { return JNI_ERR; };
                  FERRYJNIGlobal_detachCurrentThread(global);
                  FERRYJNIGlobal_detachCurrentThread(global);
                  detach(global->javaVM);
                  invoke.DetachCurrentThread = detach;
                  FERRYJNIGlobal_attachCurrentThread(global);
                  storesFail = true;
                  FERRYJNIGlobal_detachCurrentThread(global);
                  storesFail = false;
              }),
              "\nFERRYJNIGlobal_attachCurrentThread:Thread attached to Java VM"
              "\nFERRYJNIGlobal_detachCurrentThread:!detach native thread from Java VM"
              "\nFERRYJNIGlobal_detachCurrentThread:native thread not attached to Java VM"
              "\nFERRYJNIGlobal_attachCurrentThread:Thread attached to Java VM"
              "\nFERRYJNIGlobal_forgetAttachment:!forget thread attachment"
              "\nFERRYJNIGlobal_detachCurrentThread:Thread dettached from Java VM");
}

TEST_F(Threads, JoinUnnamedAndNotAsDaemons)
{
    static JavaVMAttachArgs seen;
    static decltype(invoke.AttachCurrentThread) attach = invoke.AttachCurrentThread;
    invoke.AttachCurrentThread = [](JavaVM *vm, void **env, void *arguments) {
        seen = *static_cast<JavaVMAttachArgs *>(arguments);
        return attach(vm, env, arguments);
    };
    onThread([this] {
        FERRYJNIGlobal_attachCurrentThread(global);
        FERRYJNIGlobal_detachCurrentThread(global);
    });
    EXPECT_EQ(seen.version, 0x10002);
    EXPECT_EQ(seen.name, nullptr);
    EXPECT_EQ(seen.group, nullptr);
}

TEST_F(Threads, AHundredThousandSamplesLeaveNoReferencesBehind)
{
    Host host(global);
    host.given("writer");
    host.execute("! read 500 i500");
    const auto work = [&host](int times) {
        for (int i = 0; i < times; ++i) {
            host.execute("> read");
            host.execute("> return_loan");
            transcript();
        }
    };
    size_t grown = 0;
    onThread([&] {
        FERRYJNIGlobal_attachCurrentThread(global);
        work(20);
        const size_t before = mallinfo2().uordblks;
        work(200);
        const size_t after = mallinfo2().uordblks;
        grown = after > before ? after - before : 0;
        FERRYJNIGlobal_detachCurrentThread(global);
    });
    // One reference a sample and one an info would take over three megabytes.
    EXPECT_LT(grown, 1000000U);
}

} // namespace

// Stand in front of the middleware's own.
int32_t QELOsapiThread_createKey(uint32_t *key, QELOsapiThreadTssFactory *) noexcept
{
    static uint32_t last = 0;
    if (keysFail) {
        return 0;
    }
    *key = ++last;
    return 1;
}

static thread_local void *stored = nullptr;

int32_t QELOsapiThread_setTss(uint32_t, void *value) noexcept
{
    stored = storesFail ? stored : value;
    return storesFail ? 0 : 1;
}

void *QELOsapiThread_getTss(uint32_t) noexcept
{
    return stored;
}
