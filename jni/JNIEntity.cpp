// See JNIEntity.h.
#include "JNIEntity.h"

#include "Guards.h"
#include "JNIProperties.h"
#include "Operation.h"

using ferryjni::LocalFrame;
using ferryjni::Operation;

int32_t FERRYJNIEntity_update(jobject javaEntity, const FERRYJNIAdapter *adapter,
                              const QEL_FerrionProperties *properties,
                              QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNIEntity_update", environment);
    const FERRYJNIGlobal *global = adapter != nullptr ? adapter->jniGlobal : nullptr;
    JNIEnv *env = operation.javaEnv(global);
    if (env == nullptr) {
        return 0;
    }
    const LocalFrame frame(env);
    jobject javaProperties = nullptr;
    if (!ferryjni::toJavaProperties(global, env, properties, environment, &javaProperties)) {
        operation.report("error creating java Properties");
        return 0;
    }
    env->CallVoidMethod(javaEntity, global->entityUpdate, javaProperties);
    jthrowable exception = env->ExceptionOccurred();
    if (exception == nullptr) {
        return 1;
    }
    // The message is asked for while the exception is still pending, which VMs allow for a method
    // of the exception itself. It is cleared only by the description below, after the text is safe.
    auto *message =
        static_cast<jstring>(env->CallObjectMethod(exception, global->throwableGetMessage));
    bool reported = false;
    if (message != nullptr) {
        const ferryjni::UtfChars chars(env, message);
        if (chars.get() != nullptr) {
            operation.report(chars.get());
            reported = true;
        }
    }
    env->ExceptionDescribe();
    if (!reported) {
        operation.report("exception calling Entity.update()");
    }
    return 0;
}
