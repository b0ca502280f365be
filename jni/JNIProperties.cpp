// Property lists to java.util.Properties and back. compatibility 1: all texts
#include <cstddef>

#include "Guards.h"
#include "Heap.h"
#include "JNIProperties.h"
#include "Operation.h"
#include "qddsc/string.h"

using ferryjni::Operation;
using ferryjni::UtfChars;

static_assert(offsetof(QEL_FerrionNameValue, name) == 0);
static_assert(offsetof(QEL_FerrionNameValue, value) == 8);
static_assert(sizeof(QEL_FerrionNameValue) == 16);
static_assert(offsetof(QEL_FerrionProperties, properties) == 0);
static_assert(offsetof(QEL_FerrionProperties, count) == 8);
static_assert(sizeof(QEL_FerrionProperties) == 16);

namespace {

constexpr const char *stepFailed = "get type code object";

/// A copy of a Java string's characters; null after reporting that they could not be had.
char *copyChars(const Operation &operation, JNIEnv *env, jstring string) noexcept
{
    const UtfChars chars(env, string);
    if (chars.get() == nullptr) {
        ferryjni::clearPending(env);
        operation.report("create sample info native to java");
    }
    return DDS_String_dup(chars.get());
}

bool hasMore(const Operation &operation, const FERRYJNIGlobal *global, JNIEnv *env,
             jobject names) noexcept
{
    const jboolean more = env->CallBooleanMethod(names, global->enumerationHasMoreElements);
    return !operation.threw(env, stepFailed) && more != JNI_FALSE;
}

/// Copies one property into `pair`.
void fillPair(const Operation &operation, const FERRYJNIGlobal *global, JNIEnv *env,
              jobject javaProperties, jstring key, QEL_FerrionNameValue *pair) noexcept
{
    pair->name = copyChars(operation, env, key);
    auto *value = static_cast<jstring>(
        env->CallObjectMethod(javaProperties, global->propertiesGetProperty, key));
    operation.threw(env, stepFailed);
    pair->value = value != nullptr ? copyChars(operation, env, value) : nullptr;
}

} // namespace

jobject FERRYJNIStreamInfo_createJavaProperties(const FERRYJNIGlobal *global, JNIEnv *env,
                                                const QEL_FerrionProperties *properties,
                                                QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNIStreamInfo_createJavaProperties", environment);
    jobject javaProperties = env->NewObject(global->propertiesClass, global->propertiesInit);
    operation.threw(env, "exception");
    if (javaProperties == nullptr) {
        operation.report("error getting cdr input stream object");
        return nullptr;
    }
    for (int32_t i = 0; i < properties->count; ++i) {
        // Lists are the user's and may be long; the object itself lies outside of this frame.
        const ferryjni::LocalFrame pairFrame(env);
        const QEL_FerrionNameValue &pair = properties->properties[i];
        jstring name = env->NewStringUTF(pair.name != nullptr ? pair.name : "");
        jstring value =
            name != nullptr ? env->NewStringUTF(pair.value != nullptr ? pair.value : "") : nullptr;
        // Without both strings an exception is pending, which is the failure of this pair.
        if (value != nullptr) {
            env->CallObjectMethod(javaProperties, global->propertiesSetProperty, name, value);
        }
        if (operation.threw(env, "create java type code")) {
            return javaProperties;
        }
    }
    return javaProperties;
}

QEL_FerrionProperties *
FERRYJNIStreamInfo_createNativeProperties(const FERRYJNIGlobal *global, JNIEnv *env,
                                          jobject javaProperties,
                                          QEL_FerrionEnvironment *environment) noexcept
{
    const Operation operation("FERRYJNIStreamInfo_createNativeProperties", environment);
    auto *list = ferryjni::newStructure<QEL_FerrionProperties>("struct QEL_FerrionProperties");
    if (list == nullptr) {
        operation.report("error creating JNI connection");
        return nullptr;
    }
    const ferryjni::LocalFrame frame(env);
    const jint size = env->CallIntMethod(javaProperties, global->propertiesSize);
    if (operation.threw(env, stepFailed) || size < 1) {
        return list;
    }
    list->properties =
        ferryjni::newArray<QEL_FerrionNameValue>(size, "struct QEL_FerrionNameValue");
    if (list->properties == nullptr) {
        operation.report(stepFailed);
        return list;
    }
    list->count = size;
    jobject names = env->CallObjectMethod(javaProperties, global->propertiesPropertyNames);
    operation.threw(env, stepFailed);
    if (names == nullptr) {
        return list;
    }
    // Names that come from a defaults list only are enumerated but not counted by size().
    // A full array is no reason not to ask: the enumeration may have a failure to report.
    for (int32_t k = 0; hasMore(operation, global, env, names) && k < size;) {
        const ferryjni::LocalFrame pairFrame(env);
        auto *key =
            static_cast<jstring>(env->CallObjectMethod(names, global->enumerationNextElement));
        operation.threw(env, stepFailed);
        if (key != nullptr) {
            fillPair(operation, global, env, javaProperties, key, &list->properties[k]);
            ++k;
        }
    }
    return list;
}

void FERRYJNIStreamInfo_freeNativeProperties(QEL_FerrionProperties *properties) noexcept
{
    if (properties == nullptr) {
        ferryjni::freeStructure(nullptr);
        return;
    }
    for (int32_t i = 0; i < properties->count; ++i) {
        QEL_FerrionNameValue &pair = properties->properties[i];
        DDS_String_free(pair.name);
        pair.name = nullptr;
        DDS_String_free(pair.value);
        pair.value = nullptr;
    }
    ferryjni::freeArray(properties->properties);
    properties->properties = nullptr;
    properties->count = 0;
    ferryjni::freeStructure(properties);
}
