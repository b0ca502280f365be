// A discovery reader: a stream reader whose samples are stream infos.
#ifndef FERRYJNI_JNISTREAMREADERDISCOVERY_H
#define FERRYJNI_JNISTREAMREADERDISCOVERY_H

#include "JNIStreamReader.h"

/// Creates a reader of the connection, not yet bound to a Java reader. Null when the record, the
/// JNI environment or the arrays cannot be had; without its lists the record comes back and the
/// environment says so.
FERRYJNIStreamReader *
FERRYJNIStreamReaderDiscovery_new(FERRYJNIConnection *connection,
                                  QEL_FerrionEnvironment *environment) noexcept;

/// Binds the reader to what the given getter of the Java connection returns; false after reporting.
bool FERRYJNIStreamReaderDiscovery_enable(FERRYJNIStreamReader *reader, jmethodID getter,
                                          QEL_FerrionEnvironment *environment) noexcept;

/// Reads at most 32 stream infos; what Java gave beyond that is dropped with the loan.
void FERRYJNIStreamReaderDiscovery_read(FERRYJNIStreamReader *reader, void ***streamInfos,
                                        DDS_SampleInfo ***sampleInfos, int32_t *count,
                                        QEL_FerrionEnvironment *environment) noexcept;

/// Gives back what was lent, and the names of the `count` stream infos passed in.
void FERRYJNIStreamReaderDiscovery_return_loan(FERRYJNIStreamReader *reader, void **streamInfos,
                                               DDS_SampleInfo **sampleInfos, int32_t count,
                                               QEL_FerrionEnvironment *environment) noexcept;

void FERRYJNIStreamReaderDiscovery_delete(FERRYJNIStreamReader *reader,
                                          QEL_FerrionEnvironment *environment) noexcept;

#endif
