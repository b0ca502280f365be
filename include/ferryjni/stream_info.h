/* Stream descriptions: what a discovery reader announces, and what a host asks readers and writers
 * for. Records made here live on the C heap (calloc, malloc, free). */
#ifndef FERRYJNI_STREAM_INFO_H
#define FERRYJNI_STREAM_INFO_H

#include <stdint.h>

#include "ferryjni/export.h"

FERRYJNI_BEGIN

/** A sequence of owned strings. All zero is an empty sequence. */
typedef struct QEL_FerrionStringSeq {
    /** `maximum` slots; those at and past `length` may hold strings of earlier use. */
    char **buffer;
    /** Strings in use. */
    int32_t length;
    /** Slots of `buffer`. */
    int32_t maximum;
} QEL_FerrionStringSeq;

/** typeRepresentationKind of a type given as a DDS type code (`const DDS_TypeCode *`). */
#define QEL_FERRION_TYPE_REPRESENTATION_TYPECODE 0

/** A stream's name and type, or the report that it has gone. */
typedef struct QEL_FerrionStreamInfo {
    /** 1 when the stream has gone, 0 for one that is there. */
    int32_t disposed;
    /** Owned; never null in a record made by QEL_FerrionStreamInfo_initialize. */
    char *streamName;
    /** Owned; may be null. */
    char *typeName;
    /** How to read typeRepresentation; 0 is a type code, the only kind that carries data here. */
    int32_t typeRepresentationKind;
    /** Not owned, never copied or freed. */
    void *typeRepresentation;
    /** Owned; empty in records made here. */
    QEL_FerrionStringSeq partition;
} QEL_FerrionStreamInfo;

/**
 * Fills a zeroed record with copies of the names. `partition` is not touched.
 *
 * @return 1; 0 when record or stream name is null, or memory is short (the record is finalized).
 */
FERRYJNI_API int32_t QEL_FerrionStreamInfo_initialize(QEL_FerrionStreamInfo *self, int32_t disposed,
                                                      const char *streamName, const char *typeName,
                                                      int32_t typeRepresentationKind,
                                                      void *typeRepresentation) FERRYJNI_NOEXCEPT;

/** Frees what a record owns, not the record. The partition's length and maximum stay as they were.
 * Returns 1, or 0 for null. */
FERRYJNI_API int32_t QEL_FerrionStreamInfo_finalize(QEL_FerrionStreamInfo *self) FERRYJNI_NOEXCEPT;

/** A new record of a stream that is there; the caller's (QEL_FerrionStreamInfo_deleteI). Null when
 * the name is null or memory is short. */
FERRYJNI_API QEL_FerrionStreamInfo *
QEL_FerrionStreamInfo_new_discoveredI(const char *streamName, const char *typeName,
                                      int32_t typeRepresentationKind,
                                      void *typeRepresentation) FERRYJNI_NOEXCEPT;

/** A new record of a stream that has gone; otherwise as above. */
FERRYJNI_API QEL_FerrionStreamInfo *
QEL_FerrionStreamInfo_new_disposedI(const char *streamName) FERRYJNI_NOEXCEPT;

/** Finalizes and frees a record made by the two functions above; null does nothing. */
FERRYJNI_API void QEL_FerrionStreamInfo_deleteI(QEL_FerrionStreamInfo *self) FERRYJNI_NOEXCEPT;

/** strcmp of the stream names, neither of which may be null. */
FERRYJNI_API int QEL_FerrionStreamInfo_compare(const QEL_FerrionStreamInfo *a,
                                               const QEL_FerrionStreamInfo *b) FERRYJNI_NOEXCEPT;

/** strcmp of the type names, neither of which may be null. */
FERRYJNI_API int
QEL_FerrionStreamInfo_compareByTypeName(const QEL_FerrionStreamInfo *a,
                                        const QEL_FerrionStreamInfo *b) FERRYJNI_NOEXCEPT;

/** The default partition: one empty name. Shared by all; not to be changed or freed. */
FERRYJNI_API const QEL_FerrionStringSeq *
QEL_FerrionStreamInfo_get_default_partition(void) FERRYJNI_NOEXCEPT;

/**
 * Copies strings, reusing the destination's slots; the destination never shrinks. Neither may be
 * null, nor may a string in use of the source.
 *
 * @return the destination, or null when memory is short: what was copied before stays.
 */
FERRYJNI_API QEL_FerrionStringSeq *
QEL_FerrionStringSeq_copy(QEL_FerrionStringSeq *destination,
                          const QEL_FerrionStringSeq *source) FERRYJNI_NOEXCEPT;

FERRYJNI_END

#endif
