// Stream infos between native records and Java objects. Like all conversions these run on the
// calling thread with its JNI environment, keep no state and leave no exception pending. What
// returns a local reference opens no frame: the reference belongs to the frame of the operation
// that asked.
#ifndef FERRYJNI_JNISTREAMINFO_H
#define FERRYJNI_JNISTREAMINFO_H

#include <jni.h>

#include "JNIGlobal.h"
#include "ferryjni/stream_info.h"

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

#endif
