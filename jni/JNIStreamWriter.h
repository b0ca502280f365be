// A stream writer: a Java writer, its two lists, and the Java samples that batches are copied into.
#ifndef FERRYJNI_JNISTREAMWRITER_H
#define FERRYJNI_JNISTREAMWRITER_H

#include <jni.h>

#include "JNISession.h"
#include "qddsc/sample_info.h"

struct FERRYJNIStreamWriter : QEL_FerrionStreamWriter {
    /// Global reference.
    jobject javaWriter;
    /// Not owned.
    FERRYJNISession *session;
    /// Global reference to the stream's type.
    jobject javaTypeCode;
    /// Global references to the lists that carry one batch.
    jobject javaSampleList;
    jobject javaInfoList;
    /// Only 0, a type code, carries data.
    int32_t typeRepresentationKind;
    /// Most samples handed to Java in one call; slots of the arrays below.
    int32_t maxSamplesPerWrite;
    /// Global references, one object per batch position: made once, overwritten by every batch.
    jobject *javaSamples;
    jobject *javaInfos;
};

/// Creates a writer. Null on early failures; after failures around the Java calls an incomplete
/// record comes back, to be dropped, and only the environment says so.
FERRYJNIStreamWriter *FERRYJNIStreamWriter_new(FERRYJNISession *session,
                                               const QEL_FerrionStreamInfo *streamInfo,
                                               const QEL_FerrionProperties *properties,
                                               QEL_FerrionEnvironment *environment) noexcept;
void FERRYJNIStreamWriter_delete(FERRYJNIStreamWriter *writer,
                                 QEL_FerrionEnvironment *environment) noexcept;

/// Makes the Java sample and information of one batch position, unless they are there. 1, or 0
/// after reporting.
int32_t FERRYJNIStreamWriter_prepareJavaSample(FERRYJNIStreamWriter *writer, jobject *sampleSlot,
                                               jobject *infoSlot, JNIEnv *env,
                                               QEL_FerrionEnvironment *environment) noexcept;

// Slots 20 and 21.
int32_t FERRYJNIStreamWriter_write(QEL_FerrionStreamWriter *writer, void *const *samples,
                                   DDS_SampleInfo *const *infos, int32_t count,
                                   QEL_FerrionEnvironment *environment) noexcept;
int32_t FERRYJNIStreamWriter_update(QEL_FerrionStreamWriter *writer,
                                    const QEL_FerrionProperties *properties,
                                    QEL_FerrionEnvironment *environment) noexcept;

#endif
