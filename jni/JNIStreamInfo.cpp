// Conversions of stream infos, type codes and samples. Several texts speak of another conversion
// than the one that failed; they are fixed and operators match on them.
#include "JNIStreamInfo.h"

#include <cstddef>
#include <cstdint>

#include "Guards.h"
#include "Operation.h"
#include "qddsc/string.h"

using ferryjni::Operation;
using ferryjni::UtfChars;

// The address of a native object as Java holds it.
static_assert(sizeof(void *) == sizeof(jlong));

namespace {

jlong addressOf(const void *object) noexcept
{
    return static_cast<jlong>(reinterpret_cast<intptr_t>(object));
}

/// Constructs a Java object; null after reporting why not. An exception that is pending already (an
/// argument could not be made) counts as the construction's own.
template<class... Arguments>
jobject construct(const Operation &operation, JNIEnv *env, jclass type, jmethodID constructor,
                  Arguments... arguments) noexcept
{
    jobject object = nullptr;
    if (env->ExceptionCheck() == JNI_FALSE) {
        object = env->NewObject(type, constructor, arguments...);
    }
    operation.threw(env, "exception");
    if (object == nullptr) {
        operation.report("error getting cdr input stream object");
    }
    return object;
}

jstring newString(JNIEnv *env, const char *text) noexcept
{
    return text != nullptr ? env->NewStringUTF(text) : nullptr;
}

constexpr const char *conversionFailed = "create sample info native to java";

/// Calls a getter that returns a String and stores a copy of it (null for null) in `*slot`.
bool copyName(const Operation &operation, JNIEnv *env, jobject object, jmethodID getter,
              char **slot) noexcept
{
    auto *name = static_cast<jstring>(env->CallObjectMethod(object, getter));
    if (operation.threw(env, conversionFailed)) {
        return false;
    }
    *slot = nullptr;
    if (name == nullptr) {
        return true;
    }
    const UtfChars chars(env, name);
    *slot = DDS_String_dup(chars.get());
    if (*slot == nullptr) {
        ferryjni::clearPending(env);
        operation.report(conversionFailed);
        return false;
    }
    return true;
}

/// The native type code behind a TypeInfo's representation (0 for none) in `*address`.
bool nativeTypeCode(const Operation &operation, const FERRYJNIGlobal *global, JNIEnv *env,
                    jobject typeInfo, jlong *address) noexcept
{
    *address = 0;
    jobject representation = env->CallObjectMethod(typeInfo, global->typeInfoGetTypeRepresentation);
    if (operation.threw(env, conversionFailed)) {
        return false;
    }
    if (representation == nullptr) {
        return true;
    }
    // Adapters may put any object there, and a method of TypeCode called on another class's object
    // would take the process down.
    if (env->IsInstanceOf(representation, global->typeCodeClass) == JNI_FALSE) {
        operation.report(conversionFailed);
        return false;
    }
    *address = env->CallLongMethod(representation, global->typeCodeGetNativeTypecode);
    return !operation.threw(env, conversionFailed);
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

jobject FERRYJNIStreamInfo_createJavaStreamInfo(const FERRYJNIGlobal *global, JNIEnv *env,
                                                const QEL_FerrionStreamInfo *streamInfo,
                                                jobject javaTypeCode,
                                                QEL_FerrionEnvironment *environment) noexcept
{
    // Log filters know this function by its short name.
    const Operation operation("FERRYJNIStreamInfo_createJava", environment);
    jobject typeInfo = construct(operation, env, global->typeInfoClass, global->typeInfoInit,
                                 newString(env, streamInfo->typeName), javaTypeCode);
    if (typeInfo == nullptr) {
        return nullptr;
    }
    const jboolean disposed = streamInfo->disposed != 0 ? JNI_TRUE : JNI_FALSE;
    return construct(operation, env, global->streamInfoClass, global->streamInfoInit,
                     newString(env, streamInfo->streamName), typeInfo, disposed);
}

bool FERRYJNIStreamInfo_streamInfoJavaToNative(const FERRYJNIGlobal *global, JNIEnv *env,
                                               jobject javaStreamInfo,
                                               QEL_FerrionStreamInfo *streamInfo,
                                               QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNIStreamInfo_streamInfoJavaToNative", environment);
    // The list takes any object, and one of another class would take the process down below.
    if (env->IsInstanceOf(javaStreamInfo, global->streamInfoClass) == JNI_FALSE) {
        operation.report(conversionFailed);
        return false;
    }
    // An element that failed half-way is a null entry in the loan, so its names never come back
    // through the return of the loan.
    FERRYJNIStreamInfo_nativeStreamInfoReturn(global, streamInfo, environment);

    if (!copyName(operation, env, javaStreamInfo, global->streamInfoGetStreamName,
                  &streamInfo->streamName)) {
        return false;
    }
    jobject typeInfo = env->CallObjectMethod(javaStreamInfo, global->streamInfoGetTypeInfo);
    if (operation.threw(env, conversionFailed)) {
        return false;
    }
    jlong typeCode = 0;
    if (typeInfo != nullptr) {
        if (!copyName(operation, env, typeInfo, global->typeInfoGetTypeName,
                      &streamInfo->typeName) ||
            !nativeTypeCode(operation, global, env, typeInfo, &typeCode)) {
            return false;
        }
    }
    streamInfo->typeRepresentationKind = QEL_FERRION_TYPE_REPRESENTATION_TYPECODE;
    streamInfo->typeRepresentation = reinterpret_cast<void *>(static_cast<intptr_t>(typeCode));
    const jboolean disposed = env->CallBooleanMethod(javaStreamInfo, global->streamInfoIsDisposed);
    if (operation.threw(env, "exception calling StreamInfo.isDisposed method")) {
        return false;
    }
    streamInfo->disposed = disposed != JNI_FALSE ? 1 : 0;
    return true;
}

bool FERRYJNIStreamInfo_nativeStreamInfoReturn(const FERRYJNIGlobal *,
                                               QEL_FerrionStreamInfo *streamInfo,
                                               QEL_FerrionEnvironment *) noexcept
{
    DDS_String_free(streamInfo->streamName);
    streamInfo->streamName = nullptr;
    DDS_String_free(streamInfo->typeName);
    streamInfo->typeName = nullptr;
    streamInfo->typeRepresentation = nullptr;
    return true;
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
