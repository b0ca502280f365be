// A stream reader: a Java reader, its two lists, and the native samples that it lends to the host.
// Discovery readers are records of the same type.
#ifndef FERRYJNI_JNISTREAMREADER_H
#define FERRYJNI_JNISTREAMREADER_H

#include <jni.h>

#include "JNIConnection.h"
#include "JNISession.h"
#include "qddsc/dynamic_data.h"
#include "qddsc/sample_info.h"

/// A Java reader that was bound before, kept while a signal may be comparing with it.
struct FERRYJNIEarlierReader {
    /// Global reference.
    jobject javaReader;
    /// Owned.
    FERRYJNIEarlierReader *next;
};

struct FERRYJNIStreamReader : QEL_FerrionStreamReader {
    /// Global reference; read by signals on Java threads (ferryjni::boundReader).
    jobject javaReader;
    /// Not owned; set when creation has succeeded.
    FERRYJNIConnection *connection;
    /// Owned; null for discovery readers, whose listeners the connection owns.
    FERRYJNIStreamReaderListener *listener;
    /// Global references to the lists that Java fills.
    jobject javaSampleList;
    jobject javaInfoList;
    /// Slots of each array below.
    int32_t capacity;
    /// Lent to the host: pointers into the pools, or null.
    void **sampleArray;
    DDS_SampleInfo **infoArray;
    /// Own their elements; made once, overwritten by every read.
    DDS_DynamicData **dynamicDataPool;
    DDS_SampleInfo **sampleInfoPool;
    /// Discovery readers only, in place of dynamicDataPool.
    QEL_FerrionStreamInfo **streamInfoPool;
    /// Not owned.
    const DDS_TypeCode *typeCode;
    /// Only 0, a type code, carries data.
    int32_t typeRepresentationKind;
    /// 1 for a discovery reader: read and return_loan go by this alone.
    int32_t isDiscovery;
    /// Signals that are comparing their Java reader with a bound one at this moment.
    int32_t signalsComparing;
    /// Owned; discovery readers only, as no other is bound twice.
    FERRYJNIEarlierReader *earlierReaders;
};

namespace ferryjni {

/// Whether signals of a Java reader are for this reader: it is the bound one, or none is bound yet.
/// Any thread. The count is raised before the reference is read, so that no reference is released
/// in between.
inline bool takesSignalsOf(FERRYJNIStreamReader *reader, JNIEnv *env, jobject javaReader) noexcept
{
    __atomic_add_fetch(&reader->signalsComparing, 1, __ATOMIC_SEQ_CST);
    jobject bound = __atomic_load_n(&reader->javaReader, __ATOMIC_SEQ_CST);
    const bool takes = bound == nullptr || env->IsSameObject(bound, javaReader) != JNI_FALSE;
    __atomic_sub_fetch(&reader->signalsComparing, 1, __ATOMIC_SEQ_CST);
    return takes;
}

/// Binds the Java reader (a global reference) for signals to see.
inline void bindReader(FERRYJNIStreamReader *reader, jobject javaReader) noexcept
{
    __atomic_store_n(&reader->javaReader, javaReader, __ATOMIC_SEQ_CST);
}

/// Releases the references of earlier bindings.
void releaseEarlierReaders(FERRYJNIStreamReader *reader, JNIEnv *env) noexcept;

inline FERRYJNIStreamReader *asReader(QEL_FerrionStreamReader *reader) noexcept
{
    return static_cast<FERRYJNIStreamReader *>(reader);
}

/// Releases everything that a reader of either kind owns, and its record.
void releaseReader(FERRYJNIStreamReader *reader, JNIEnv *env,
                   QEL_FerrionEnvironment *environment) noexcept;

} // namespace ferryjni

/// Creates a reader. Null on early failures; after failures around the Java calls an incomplete
/// record comes back, to be dropped, and only the environment says so.
FERRYJNIStreamReader *FERRYJNIStreamReader_new(FERRYJNISession *session,
                                               const QEL_FerrionStreamInfo *streamInfo,
                                               const QEL_FerrionProperties *properties,
                                               const QEL_FerrionStreamReaderListener *hostListener,
                                               QEL_FerrionEnvironment *environment) noexcept;
void FERRYJNIStreamReader_delete(FERRYJNIStreamReader *reader,
                                 QEL_FerrionEnvironment *environment) noexcept;

/// Grows all arrays; 1, or 0 with `capacity` unchanged (some arrays may be larger already). Does
/// not log.
int32_t FERRYJNIStreamReader_resizeArrays(FERRYJNIStreamReader *reader,
                                          int32_t newCapacity) noexcept;

// Slots 17 to 19.
void FERRYJNIStreamReader_read(QEL_FerrionStreamReader *reader, void ***samples,
                               DDS_SampleInfo ***infos, int32_t *count,
                               QEL_FerrionEnvironment *environment) noexcept;
void FERRYJNIStreamReader_return_loan(QEL_FerrionStreamReader *reader, void **samples,
                                      DDS_SampleInfo **infos, int32_t count,
                                      QEL_FerrionEnvironment *environment) noexcept;
int32_t FERRYJNIStreamReader_update(QEL_FerrionStreamReader *reader,
                                    const QEL_FerrionProperties *properties,
                                    QEL_FerrionEnvironment *environment) noexcept;

#endif
