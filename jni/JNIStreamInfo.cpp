// See JNIStreamInfo.h.
#include "JNIStreamInfo.h"

#include <cstdint>

#include "Guards.h"
#include "Operation.h"
#include "qddsc/string.h"

using ferryjni::Operation;
using ferryjni::UtfChars;

namespace {

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

// compatibility 1
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

} // namespace

jobject FERRYJNIStreamInfo_createJavaStreamInfo(const FERRYJNIGlobal *global, JNIEnv *env,
                                                const QEL_FerrionStreamInfo *streamInfo,
                                                jobject javaTypeCode,
                                                QEL_FerrionEnvironment *environment) noexcept
{
    // compatibility 2
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
