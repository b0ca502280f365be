// Samples, their information and their type codes between native memory and Java objects. See
// JNIStreamInfo.h for what holds of all conversions.
#ifndef FERRYJNI_JNISAMPLE_H
#define FERRYJNI_JNISAMPLE_H

#include <jni.h>

#include "JNIGlobal.h"
#include "qddsc/dynamic_data.h"
#include "qddsc/sample_info.h"

/// A Java TypeCode that stands for `typeCode`; a local reference, or null (reported).
jobject FERRYJNIStreamInfo_createJavaTypeCode(const FERRYJNIGlobal *global, JNIEnv *env,
                                              const DDS_TypeCode *typeCode,
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

#endif
