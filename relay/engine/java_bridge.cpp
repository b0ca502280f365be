#include "engine/java_bridge.h"

#include <dlfcn.h>

namespace ferry {

std::string JavaBridge::load(const std::filesystem::path &library)
{
    void *const handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    bool complete = handle != nullptr;
    const auto find = [&](auto &function, const char *name) {
        void *const symbol = complete ? dlsym(handle, name) : nullptr;
        function = reinterpret_cast<std::decay_t<decltype(function)>>(symbol);
        complete = symbol != nullptr;
    };
    find(newGlobal, "FERRYJNIGlobal_new");
    find(destroy, "FERRYJNIGlobal_destroy");
    find(getEnv, "FERRYJNIGlobal_getEnv");
    find(attachCurrentThread, "FERRYJNIGlobal_attachCurrentThread");
    find(detachCurrentThread, "FERRYJNIGlobal_detachCurrentThread");
    find(createAdapter, "FERRYJNIAdapter_create");
    if (complete) {
        return "";
    }
    const char *const reason = dlerror();
    return reason == nullptr ? "unknown reason" : reason;
}

std::string JavaBridge::ask(const FERRYJNIGlobal *global, const char *className,
                            const std::string &question) const
{
    JNIEnv *const env = getEnv(global);
    std::string answer = std::string(className) + " gives no answer";
    if (env == nullptr) {
        return answer;
    }
    if (env->PushLocalFrame(3) != 0) {
        env->ExceptionClear();
        return answer;
    }
    const auto size = static_cast<jsize>(question.size());
    jclass const type = env->FindClass(className);
    jmethodID const method =
        type == nullptr ? nullptr : env->GetStaticMethodID(type, "answer", "([B)[B");
    jbyteArray const argument = method == nullptr ? nullptr : env->NewByteArray(size);
    jobject result = nullptr;
    if (argument != nullptr) {
        env->SetByteArrayRegion(argument, 0, size,
                                reinterpret_cast<const jbyte *>(question.data()));
        if (env->ExceptionCheck() == JNI_FALSE) {
            result = env->CallStaticObjectMethod(type, method, argument);
        }
    }
    if (env->ExceptionCheck() != JNI_FALSE) {
        env->ExceptionDescribe();
    } else if (result != nullptr) {
        auto *const bytes = static_cast<jbyteArray>(result);
        answer.resize(static_cast<std::size_t>(env->GetArrayLength(bytes)));
        env->GetByteArrayRegion(bytes, 0, static_cast<jsize>(answer.size()),
                                reinterpret_cast<jbyte *>(answer.data()));
    }
    env->PopLocalFrame(nullptr);
    return answer;
}

} // namespace ferry
