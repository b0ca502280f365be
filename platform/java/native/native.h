// What the native methods of the binding share. They run on Java threads with the environment that
// Java passes in, keep nothing, and return at once when a JNI call has left an exception pending.
#ifndef QDDSJAVA_NATIVE_H
#define QDDSJAVA_NATIVE_H

#include <cstdint>

#include <jni.h>

// Declares a static native method and begins its definition.
#define QDDS_NATIVE(result, name, ...)                                                             \
    extern "C" JNIEXPORT result JNICALL name(JNIEnv *env, jclass self, __VA_ARGS__);               \
    extern "C" JNIEXPORT result JNICALL name([[maybe_unused]] JNIEnv *env,                         \
                                             [[maybe_unused]] jclass self, __VA_ARGS__)

namespace qddsjava {

template<typename T> T *pointer(jlong address)
{
    return reinterpret_cast<T *>(static_cast<uintptr_t>(address));
}

inline jlong address(const void *object)
{
    return static_cast<jlong>(reinterpret_cast<uintptr_t>(object));
}

inline void throwOutOfMemory(JNIEnv *env, const char *text)
{
    const jclass error = env->FindClass("java/lang/OutOfMemoryError");
    if (error != nullptr) {
        env->ThrowNew(error, text);
    }
}

} // namespace qddsjava

#endif
