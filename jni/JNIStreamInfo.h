// Conversions between native records and Java objects: stream infos and type codes, property lists,
// samples and their information. They run on the calling thread with its JNI environment, keep no
// state and leave no exception pending. What returns a local reference opens no frame: the
// reference belongs to the frame of the operation that asked.
#ifndef FERRYJNI_JNISTREAMINFO_H
#define FERRYJNI_JNISTREAMINFO_H

#include <jni.h>

#include "JNIGlobal.h"
#include "ferryjni/stream_info.h"
#include "qddsc/dynamic_data.h"
#include "qddsc/sample_info.h"

/// A Java TypeCode that stands for `typeCode`; a local reference, or null (reported).
jobject FERRYJNIStreamInfo_createJavaTypeCode(const FERRYJNIGlobal *global, JNIEnv *env,
                                              const DDS_TypeCode *typeCode,
                                              QEL_FerrionEnvironment *environment) noexcept;

/// A Java StreamInfo of the record, with `javaTypeCode` (may be null) as its type representation; a
/// local reference, or null (reported). Null names stay null.
jobject FERRYJNIStreamInfo_createJavaStreamInfo(const FERRYJNIGlobal *global, JNIEnv *env,
                                                const QEL_FerrionStreamInfo *streamInfo,
                                                jobject javaTypeCode,
                                                QEL_FerrionEnvironment *environment) noexcept;

/// Fills a record of the discovery pool from a Java StreamInfo; strings left from an earlier
/// filling are freed first. False (reported) leaves what was filled so far, for the next filling or
/// FERRYJNIStreamInfo_nativeStreamInfoReturn to free.
bool FERRYJNIStreamInfo_streamInfoJavaToNative(const FERRYJNIGlobal *global, JNIEnv *env,
                                               jobject javaStreamInfo,
                                               QEL_FerrionStreamInfo *streamInfo,
                                               QEL_FerrionEnvironment *environment) noexcept;

/// Frees the record's names and forgets its type; true always. Twice is harmless. The record must
/// not be null; neither of the other two is looked at.
bool FERRYJNIStreamInfo_nativeStreamInfoReturn(const FERRYJNIGlobal *global,
                                               QEL_FerrionStreamInfo *streamInfo,
                                               QEL_FerrionEnvironment *environment) noexcept;

// Copies of one sample or its information, by one call of the Java binding's helper. False
// (reported) means that the target may be half written. The Java-to-native pair takes the Java
// object first, the native-to-Java pair the native one.
bool FERRYJNIStreamInfo_sampleInfoJavaToNative(const FERRYJNIGlobal *global, JNIEnv *env,
                                               jobject javaInfo, DDS_SampleInfo *info,
                                               QEL_FerrionEnvironment *environment) noexcept;
bool FERRYJNIStreamInfo_sampleInfoNativeToJava(const FERRYJNIGlobal *global, JNIEnv *env,
                                               const DDS_SampleInfo *info, jobject javaInfo,
                                               QEL_FerrionEnvironment *environment) noexcept;
bool FERRYJNIStreamInfo_dynamicDataJavaToNative(const FERRYJNIGlobal *global, JNIEnv *env,
                                                jobject javaSample, DDS_DynamicData *sample,
                                                QEL_FerrionEnvironment *environment) noexcept;
bool FERRYJNIStreamInfo_dynamicDataNativeToJava(const FERRYJNIGlobal *global, JNIEnv *env,
                                                const DDS_DynamicData *sample, jobject javaSample,
                                                QEL_FerrionEnvironment *environment) noexcept;

/// An empty Java DynamicData of the type; a local reference, or null (reported). Uses the calling
/// thread's own JNI environment; `env` is not looked at.
jobject FERRYJNIStreamInfo_createJavaDynamicData(const FERRYJNIGlobal *global, JNIEnv *env,
                                                 jobject javaTypeCode,
                                                 QEL_FerrionEnvironment *environment) noexcept;

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
