// Property lists for Java calls. See JNIStreamInfo.h for what holds of all conversions; the three
// that hosts call as well are declared in ferryjni/ferryjni.h.
#ifndef FERRYJNI_JNIPROPERTIES_H
#define FERRYJNI_JNIPROPERTIES_H

#include <jni.h>

#include "JNIGlobal.h"

namespace ferryjni {

/// Properties for a Java call: null for a null list, else a converted java.util.Properties in
/// `*javaProperties`. False when the conversion gave none; the caller reports its own text.
inline bool toJavaProperties(const FERRYJNIGlobal *global, JNIEnv *env,
                             const QEL_FerrionProperties *properties,
                             QEL_FerrionEnvironment *environment, jobject *javaProperties) noexcept
{
    *javaProperties = nullptr;
    if (properties == nullptr) {
        return true;
    }
    *javaProperties = FERRYJNIStreamInfo_createJavaProperties(global, env, properties, environment);
    return *javaProperties != nullptr;
}

} // namespace ferryjni

#endif
