// The parts of the failure idiom that several operations share.
#include "Operation.h"

#include "JNICommon.h"

namespace ferryjni {

jobject Operation::globalRef(JNIEnv *env, jobject local, const char *text) const noexcept
{
    jobject global = FERRYJNICommon_newGlobalRefReplacingLocalRef(env, &local);
    if (global == nullptr) {
        report(text);
    }
    return global;
}

jobject Operation::newList(JNIEnv *env, const FERRYJNIGlobal *global,
                           const char *globalRefText) const noexcept
{
    jobject list = env->NewObject(global->arrayListClass, global->arrayListInit, jint{0});
    if (threw(env, "exception")) {
        return nullptr;
    }
    if (list == nullptr) {
        report("null array list");
        return nullptr;
    }
    return globalRef(env, list, globalRefText);
}

} // namespace ferryjni
