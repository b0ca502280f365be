// JNI references, property lookup, per-sample arrays and the class path option.
#include "JNICommon.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "Heap.h"
#include "LogStatement.h"

using ferryjni::logText;

jobject FERRYJNICommon_newGlobalRef(JNIEnv *env, jobject object) noexcept
{
    jobject global = env->NewGlobalRef(object);
    if (global == nullptr) {
        logText(FERRYLOG_BIT_ERROR, "FERRYJNICommon_newGlobalRef", QEL_LOG_CREATION_FAILURE_s,
                "global reference");
    }
    return global;
}

jobject FERRYJNICommon_newGlobalRefReplacingLocalRef(JNIEnv *env, jobject *slot) noexcept
{
    jobject global = FERRYJNICommon_newGlobalRef(env, *slot);
    if (global == nullptr) {
        // compatibility 2
        logText(FERRYLOG_BIT_ERROR, "JNICommon_newGlobalRefReplacingLocalRef",
                QEL_LOG_CREATION_FAILURE_s, "global reference");
        return nullptr;
    }
    env->DeleteLocalRef(*slot);
    *slot = nullptr;
    return global;
}

void FERRYJNICommon_deleteGlobalRef(JNIEnv *env, jobject *slot) noexcept
{
    if (slot == nullptr || *slot == nullptr) {
        return;
    }
    env->DeleteGlobalRef(*slot);
    *slot = nullptr;
}

const char *FERRYJNICommon_lookup_property(const QEL_FerrionProperties *properties,
                                           const char *name) noexcept
{
    if (properties == nullptr || name == nullptr) {
        return nullptr;
    }
    for (int32_t i = 0; i < properties->count; ++i) {
        const QEL_FerrionNameValue &pair = properties->properties[i];
        // Java accepts a nameless pair (as the empty name), so a list may hold one.
        if (pair.name != nullptr && strcmp(pair.name, name) == 0) {
            return pair.value;
        }
    }
    return nullptr;
}

int32_t FERRYJNICommon_lookup_int_property(const QEL_FerrionProperties *properties,
                                           const char *name, int32_t absent) noexcept
{
    const char *text = FERRYJNICommon_lookup_property(properties, name);
    if (text == nullptr) {
        return absent;
    }
    // compatibility 12
    return static_cast<int32_t>(strtol(text, nullptr, 10)); // NOLINT(cert-err34-c)
}

namespace {

/// The shape that the three arrays share. `make` returns a fresh element or null.
template<class Element, class Make>
Element **resized(Element **old, int32_t oldCount, int32_t newCount, const char *context,
                  const char *arrayTypeName, const char *elementText, Make make) noexcept
{
    auto **grown = ferryjni::newArray<Element *>(newCount, arrayTypeName);
    if (grown == nullptr) {
        if (ferryjni::logs(FERRYLOG_BIT_ERROR)) {
            QELLog_printContextAndMsg(context, &QEL_OSAPI_MEMORY_LOG_OUT_OF_HEAP_ARRAY_dd,
                                      static_cast<int>(newCount),
                                      static_cast<int>(sizeof(Element *)));
        }
        return nullptr;
    }
    const int32_t kept = std::min(oldCount, newCount);
    if (old != nullptr) {
        std::copy_n(old, std::max(kept, int32_t{0}), grown);
    }
    for (int32_t i = kept; i < newCount; ++i) {
        grown[i] = make();
        if (grown[i] == nullptr) {
            // compatibility 6: the elements made so far stay behind
            logText(FERRYLOG_BIT_ERROR, context, QEL_LOG_CREATION_FAILURE_s, elementText);
            return nullptr;
        }
    }
    ferryjni::freeArray(old);
    return grown;
}

} // namespace

QEL_FerrionStreamInfo **FERRYJNICommon_resizeStreamInfoArray(QEL_FerrionStreamInfo **old,
                                                             int32_t oldCount,
                                                             int32_t newCount) noexcept
{
    // compatibility 1
    return resized(old, oldCount, newCount, "FERRYJNICommon_resizeStreamInfoArray",
                   "struct QEL_FerrionStreamInfo *", "sample info", [] {
                       return ferryjni::newStructure<QEL_FerrionStreamInfo>(
                           "struct QEL_FerrionStreamInfo");
                   });
}

DDS_SampleInfo **FERRYJNICommon_resizeSampleInfoArray(DDS_SampleInfo **old, int32_t oldCount,
                                                      int32_t newCount) noexcept
{
    return resized(old, oldCount, newCount, "FERRYJNICommon_resizeSampleInfoArray",
                   "struct DDS_SampleInfo *", "sample info",
                   [] { return ferryjni::newStructure<DDS_SampleInfo>("struct DDS_SampleInfo"); });
}

DDS_DynamicData **FERRYJNICommon_resizeDynamicDataArray(DDS_DynamicData **old, int32_t oldCount,
                                                        int32_t newCount,
                                                        const DDS_TypeCode *typeCode) noexcept
{
    return resized(old, oldCount, newCount, "FERRYJNICommon_resizeDynamicDataArray",
                   "struct DDS_DynamicData *", "dynamic data sample", [typeCode] {
                       return DDS_DynamicData_new(typeCode, &DDS_DYNAMIC_DATA_PROPERTY_DEFAULT);
                   });
}

char *FERRYJNICommon_generateClassPathProperty(const DDS_StringSeq *entries) noexcept
{
    constexpr char prefix[] = "-Djava.class.path=";
    static_assert(sizeof(prefix) - 1 == 18);
    const int32_t count = DDS_StringSeq_get_length(entries);
    if (count == 0) {
        logText(FERRYLOG_BIT_WARNING, "FERRYJNICommon_generateClassPathProperty", QEL_LOG_ANY_s,
                "No class path defined");
        return nullptr;
    }
    // compatibility 13
    const char *fromEnvironment = count <= 2 ? getenv("CLASSPATH") : nullptr;
    const auto entry = [entries](int32_t i) { return *DDS_StringSeq_get_reference(entries, i); };

    size_t size = sizeof(prefix) - 1;
    for (int32_t i = 0; i < count; ++i) {
        size += strlen(entry(i)) + 1;
    }
    if (fromEnvironment != nullptr) {
        size += strlen(fromEnvironment) + 1;
    }
    char *option = DDS_String_alloc(size);
    if (option == nullptr) {
        logText(FERRYLOG_BIT_ERROR, "FERRYJNICommon_generateClassPathProperty",
                QEL_LOG_CREATION_FAILURE_s, "class path string");
        return nullptr;
    }
    char *end = stpcpy(option, prefix);
    if (fromEnvironment != nullptr) {
        end = stpcpy(stpcpy(end, fromEnvironment), ":");
    }
    for (int32_t i = 0; i < count - 1; ++i) {
        end = stpcpy(stpcpy(end, entry(i)), ":");
    }
    // compatibility 14: a single entry is left out
    if (count > 1) {
        stpcpy(end, entry(count - 1));
    }
    return option;
}
