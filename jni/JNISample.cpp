// See JNISample.h. compatibility 1: most texts
#include "JNISample.h"

#include <cstdint>

#include "Operation.h"

using ferryjni::Operation;

// The address of a native object as Java holds it.
static_assert(sizeof(void *) == sizeof(jlong));

namespace {

jlong addressOf(const void *object) noexcept
{
    return static_cast<jlong>(reinterpret_cast<intptr_t>(object));
}

/// One call of a binding helper: Java object first, native address second, whichever way it copies.
bool copySample(const Operation &operation, JNIEnv *env, jclass helper, jmethodID copy,
                jobject javaObject, const void *nativeObject, const char *text) noexcept
{
    jvalue arguments[2];
    arguments[0].l = javaObject;
    arguments[1].j = addressOf(nativeObject);
    env->CallStaticVoidMethodA(helper, copy, arguments);
    return !operation.threw(env, text);
}

} // namespace

jobject FERRYJNIStreamInfo_createJavaTypeCode(const FERRYJNIGlobal *global, JNIEnv *env,
                                              const DDS_TypeCode *typeCode,
                                              QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNIStreamInfo_createJavaTypeCode", environment);
    jobject javaTypeCode = env->CallStaticObjectMethod(
        global->typeCodeClass, global->typeCodeCreateFromNative, addressOf(typeCode));
    operation.threw(env, "create java type code");
    if (javaTypeCode == nullptr) {
        operation.report("error getting java type code object");
    }
    return javaTypeCode;
}

bool FERRYJNIStreamInfo_sampleInfoJavaToNative(const FERRYJNIGlobal *global, JNIEnv *env,
                                               jobject javaInfo, DDS_SampleInfo *info,
                                               QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNIStreamInfo_sampleInfoJavaToNative", environment);
    return copySample(operation, env, global->sampleInfoHelperClass,
                      global->sampleInfoHelperPushToNativeI, javaInfo, info,
                      "sample info java to native");
}

bool FERRYJNIStreamInfo_sampleInfoNativeToJava(const FERRYJNIGlobal *global, JNIEnv *env,
                                               const DDS_SampleInfo *info, jobject javaInfo,
                                               QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNIStreamInfo_sampleInfoNativeToJava", environment);
    return copySample(operation, env, global->sampleInfoHelperClass,
                      global->sampleInfoHelperPullFromNativeI, javaInfo, info,
                      "create sample info native to java");
}

bool FERRYJNIStreamInfo_dynamicDataJavaToNative(const FERRYJNIGlobal *global, JNIEnv *env,
                                                jobject javaSample, DDS_DynamicData *sample,
                                                QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNIStreamInfo_dynamicDataJavaToNative", environment);
    return copySample(operation, env, global->dynamicDataHelperClass,
                      global->dynamicDataHelperPushToNativeI, javaSample, sample,
                      "create java type code");
}

bool FERRYJNIStreamInfo_dynamicDataNativeToJava(const FERRYJNIGlobal *global, JNIEnv *env,
                                                const DDS_DynamicData *sample, jobject javaSample,
                                                QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNIStreamInfo_dynamicDataNativeToJava", environment);
    return copySample(operation, env, global->dynamicDataHelperClass,
                      global->dynamicDataHelperPullFromNativeI, javaSample, sample,
                      "create java type code");
}

jobject FERRYJNIStreamInfo_createJavaDynamicData(const FERRYJNIGlobal *global, JNIEnv *,
                                                 jobject javaTypeCode,
                                                 QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNIStreamInfo_createJavaDynamicData", environment);
    JNIEnv *env = operation.javaEnv(global);
    if (env == nullptr) {
        return nullptr;
    }
    jobject sample = env->NewObject(global->dynamicDataClass, global->dynamicDataInit, javaTypeCode,
                                    global->dynamicDataPropertyDefault);
    operation.threw(env, "create java type code");
    if (sample == nullptr) {
        operation.report("error getting java type code object");
    }
    return sample;
}
