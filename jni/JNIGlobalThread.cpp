// Attaching host threads to the VM and letting go of those that this library attached. Each
// function works on the calling thread. Failures are only logged: there is no environment to write
// into.
#include "JNIGlobal.h"

#include "LogStatement.h"
#include "qddsc/participant_factory.h"
#include "qddscore/thread.h"

using ferryjni::logFailure;
using ferryjni::logText;

namespace {

/// Key of the JNI environment that this library got by attaching the thread; 0 until the first
/// attachment of the process. Never deleted: a later global record goes on using it.
uint32_t FERRYJNIGlobal_threadAttachmentKey = 0;

/// Unnamed, in the default group, not a daemon.
constexpr JavaVMAttachArgs ATTACH_ARGS = {JNI_VERSION_1_2, nullptr, nullptr};

} // namespace

JNIEnv *FERRYJNIGlobal_getEnv(const FERRYJNIGlobal *global) noexcept
{
    if (global == nullptr || global->javaVM == nullptr) {
        return nullptr;
    }
    void *env = nullptr;
    if (global->javaVM->GetEnv(&env, JNI_VERSION_1_2) != JNI_OK) {
        return nullptr;
    }
    return static_cast<JNIEnv *>(env);
}

JNIEnv *FERRYJNIGlobal_attachCurrentThread(const FERRYJNIGlobal *global) noexcept
{
    constexpr const char *context = "FERRYJNIGlobal_attachCurrentThread";
    if (JNIEnv *attached = FERRYJNIGlobal_getEnv(global)) {
        return attached;
    }
    void *env = nullptr;
    JavaVMAttachArgs arguments = ATTACH_ARGS;
    if (global->javaVM->AttachCurrentThread(&env, &arguments) != JNI_OK) {
        logFailure(context, "attach native thread to JVM");
        return nullptr;
    }
    if (FERRYJNIGlobal_rememberAttachment(static_cast<JNIEnv *>(env)) == 0) {
        logFailure(context, "remember thread attachment");
        FERRYJNIGlobal_ReallyDetachThread(global->javaVM);
        return nullptr;
    }
    logText(FERRYLOG_BIT_DEBUG, context, QEL_LOG_ANY_s, "Thread attached to Java VM");
    return static_cast<JNIEnv *>(env);
}

JNIEnv *FERRYJNIGlobal_attachCurrentThreadP(const FERRYJNIGlobal *global) noexcept
{
    return FERRYJNIGlobal_attachCurrentThread(global);
}

void FERRYJNIGlobal_detachCurrentThread(const FERRYJNIGlobal *global) noexcept
{
    constexpr const char *context = "FERRYJNIGlobal_detachCurrentThread";
    if (FERRYJNIGlobal_getThreadForDetachment() == nullptr) {
        logText(FERRYLOG_BIT_STATUS, context, QEL_LOG_ANY_s,
                "native thread not attached to Java VM");
        return;
    }
    const int detached = FERRYJNIGlobal_ReallyDetachThread(global->javaVM);
    FERRYJNIGlobal_forgetAttachment();
    if (detached != 0) {
        logText(FERRYLOG_BIT_DEBUG, context, QEL_LOG_ANY_s, "Thread dettached from Java VM");
    } else {
        logFailure(context, "detach native thread from Java VM");
    }
}

int FERRYJNIGlobal_rememberAttachment(JNIEnv *env) noexcept
{
    constexpr const char *context = "FERRYJNIGlobal_rememberAttachment";
    if (FERRYJNIGlobal_threadAttachmentKey == 0) {
        QELOsapiThreadTssFactory *factory = DDS_DomainParticipantFactory_get_tss_factoryI(
            DDS_DomainParticipantFactory_get_instance());
        if (QELOsapiThread_createKey(&FERRYJNIGlobal_threadAttachmentKey, factory) == 0) {
            logFailure(context, "initialize key");
            return 0;
        }
    }
    if (QELOsapiThread_setTss(FERRYJNIGlobal_threadAttachmentKey, env) == 0) {
        logFailure(context, "remember thread attachment");
        return 0;
    }
    return 1;
}

int FERRYJNIGlobal_forgetAttachment() noexcept
{
    if (QELOsapiThread_setTss(FERRYJNIGlobal_threadAttachmentKey, nullptr) == 0) {
        logFailure("FERRYJNIGlobal_forgetAttachment", "forget thread attachment");
        return 0;
    }
    return 1;
}

void *FERRYJNIGlobal_getThreadForDetachment() noexcept
{
    return FERRYJNIGlobal_threadAttachmentKey == 0
               ? nullptr
               : QELOsapiThread_getTss(FERRYJNIGlobal_threadAttachmentKey);
}

int FERRYJNIGlobal_ReallyDetachThread(JavaVM *javaVM) noexcept
{
    return javaVM->DetachCurrentThread() == JNI_OK ? 1 : 0;
}
