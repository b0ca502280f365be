// Host threads: attached, remembered, detached.
#include <gtest/gtest.h>

#include <map>
#include <thread>

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
                  std::thread([this] {
                      FERRYJNIGlobal_attachCurrentThread(global);
                      FERRYJNIGlobal_detachCurrentThread(global);
                  }).join();
                  // Whatever other threads did meanwhile.
                  FERRYJNIGlobal_detachCurrentThread(global);
                  EXPECT_EQ(FERRYJNIGlobal_getEnv(global), nullptr);
                  FERRYJNIGlobal_detachCurrentThread(global);
              }),
              "\nFERRYJNIGlobal_attachCurrentThread:Thread attached to Java VM"
              "\nFERRYJNIGlobal_attachCurrentThread:Thread attached to Java VM"
              "\nFERRYJNIGlobal_detachCurrentThread:Thread dettached from Java VM"
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
    const std::string remembered = attach + "remember thread attachment";
    keysFail = true;
    EXPECT_EQ(onThread(attachFails), remember + "initialize key" + remembered);
    keysFail = false;
    storesFail = true;
    EXPECT_EQ(onThread(attachFails), remember + "remember thread attachment" + remembered);
    storesFail = false;
    static JavaVMAttachArgs seen;
    invoke.AttachCurrentThread = [](JavaVM *, void **, void *arguments) -> jint {
        seen = *static_cast<JavaVMAttachArgs *>(arguments);
        return JNI_ERR;
    };
    EXPECT_EQ(onThread(attachFails), attach + "attach native thread to JVM");
    EXPECT_TRUE(seen.version == 0x10002 && seen.name == nullptr && seen.group == nullptr);
}

TEST_F(Threads, AFailedDetachIsForgottenAllTheSame)
{
    invoke.DetachCurrentThread = [](JavaVM *) -> jint { return JNI_ERR; };
    const std::string detach = "\nFERRYJNIGlobal_detachCurrentThread:";
    EXPECT_EQ(onThread([this] {
                  FERRYJNIGlobal_attachCurrentThread(global);
                  FERRYJNIGlobal_detachCurrentThread(global);
                  FERRYJNIGlobal_detachCurrentThread(global);
                  storesFail = true;
                  EXPECT_EQ(FERRYJNIGlobal_forgetAttachment(), 0);
                  storesFail = false;
                  EXPECT_EQ(FERRYJNIGlobal_forgetAttachment(), 1);
                  real->DetachCurrentThread(global->javaVM);
              }),
              "\nFERRYJNIGlobal_attachCurrentThread:Thread attached to Java VM" + detach +
                  "!detach native thread from Java VM" + detach +
                  "native thread not attached to Java VM"
                  "\nFERRYJNIGlobal_forgetAttachment:!forget thread attachment");
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

static thread_local std::map<uint32_t, void *> stored;

int32_t QELOsapiThread_setTss(uint32_t key, void *value) noexcept
{
    if (storesFail) {
        return 0;
    }
    stored[key] = value;
    return 1;
}

void *QELOsapiThread_getTss(uint32_t key) noexcept
{
    return stored[key];
}
