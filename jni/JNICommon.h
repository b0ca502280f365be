// JNI references, property lookup, per-sample arrays and the class path option. These only log;
// their callers report into the host's environment.
#ifndef FERRYJNI_JNICOMMON_H
#define FERRYJNI_JNICOMMON_H

#include <jni.h>

#include "ferryjni/properties.h"
#include "ferryjni/stream_info.h"
#include "qddsc/dynamic_data.h"
#include "qddsc/sample_info.h"
#include "qddsc/string.h"

/// A new global reference, or null (logged). Does not look at pending exceptions.
jobject FERRYJNICommon_newGlobalRef(JNIEnv *env, jobject object) noexcept;

/// Exchanges the local reference in `*slot` for a global one: on success the local one is deleted
/// and the slot null; on failure the slot and its reference are untouched.
jobject FERRYJNICommon_newGlobalRefReplacingLocalRef(JNIEnv *env, jobject *slot) noexcept;

/// Deletes the global reference in `*slot` and clears it; a null address or slot does nothing.
void FERRYJNICommon_deleteGlobalRef(JNIEnv *env, jobject *slot) noexcept;

/// The value of the first pair of that name (not copied), or null. List and name may be null.
const char *FERRYJNICommon_lookup_property(const QEL_FerrionProperties *properties,
                                           const char *name) noexcept;

/// The value of a property read as strtol does in base 10, its low 32 bits; `absent` when the list
/// has no such property.
int32_t FERRYJNICommon_lookup_int_property(const QEL_FerrionProperties *properties,
                                           const char *name, int32_t absent) noexcept;

// Growing the arrays of a stream reader. The new array takes over the elements of the old one
// (which may be null), new slots get fresh elements. On failure null: the old array stands
// unchanged, and what was made of the new one is abandoned.
QEL_FerrionStreamInfo **FERRYJNICommon_resizeStreamInfoArray(QEL_FerrionStreamInfo **old,
                                                             int32_t oldCount,
                                                             int32_t newCount) noexcept;
DDS_SampleInfo **FERRYJNICommon_resizeSampleInfoArray(DDS_SampleInfo **old, int32_t oldCount,
                                                      int32_t newCount) noexcept;
DDS_DynamicData **FERRYJNICommon_resizeDynamicDataArray(DDS_DynamicData **old, int32_t oldCount,
                                                        int32_t newCount,
                                                        const DDS_TypeCode *typeCode) noexcept;

/// "-Djava.class.path=..." for the VM, owned by the caller (DDS_String_free); null when there are
/// no entries or memory is short (logged).
char *FERRYJNICommon_generateClassPathProperty(const DDS_StringSeq *entries) noexcept;

#endif
