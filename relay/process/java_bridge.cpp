#include "process/java_bridge.h"

#include <dlfcn.h>

#include "engine/log.h"
#include "process/java_output.h"
#include "qddsc/string.h"

namespace ferry {
namespace {

/// Of the bridge's log.
constexpr std::uint32_t allModules = 0xFFFFF;

} // namespace

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
    find(setBitmaps, "FERRYLog_setBitmaps");
    find(createVm, "JNI_CreateJavaVM");
    if (complete) {
        return "";
    }
    const char *const reason = dlerror();
    return reason == nullptr ? "unknown reason" : reason;
}

FERRYJNIGlobal *JavaBridge::start(const std::vector<std::string> &options,
                                  std::uint32_t logMask) const
{
    std::vector<JavaVMOption> all = {javaoutput::vmOption()};
    for (const std::string &option : options) {
        logAbout(FERRYLOG_BIT_DEBUG, "FERRYRelay_start", "Java VM", "{}", option);
        all.push_back({const_cast<char *>(option.c_str()), nullptr});
    }
    JavaVMInitArgs arguments{JNI_VERSION_1_2, static_cast<jint>(all.size()), all.data(), JNI_FALSE};
    JavaVM *vm = nullptr;
    JNIEnv *env = nullptr;
    const jint code = createVm(&vm, reinterpret_cast<void **>(&env), &arguments);
    if (code != JNI_OK) {
        logAbout(FERRYLOG_BIT_ERROR, "FERRYRelay_start", "Java VM", "the VM does not start ({})",
                 code);
        return nullptr;
    }
    if (!javaoutput::install(env)) {
        logAbout(FERRYLOG_BIT_WARNING, "FERRYRelay_start", "Java VM",
                 "System.err stays as it is: ferry's own classes do not fit");
    }
    // That there is a VM already would be a warning.
    DDS_StringSeq none{};
    DDS_StringSeq_initialize(&none);
    FERRYJNIGlobal *const global =
        newGlobal(&none, &none, logMask & ~FERRYLOG_BIT_WARNING, FERRYJNI_DESTROY_ALWAYS);
    setBitmaps(allModules, logMask);
    return global;
}

std::string JavaBridge::ask(const FERRYJNIGlobal *global, const char *className,
                            const std::string &question) const
{
    JNIEnv *const env = getEnv(global);
    std::string answer = fmt::format("{} gives no answer", className);
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
