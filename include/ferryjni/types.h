/* Small records and constants of the plug-in interface. */
#ifndef FERRYJNI_TYPES_H
#define FERRYJNI_TYPES_H

#include <stdint.h>

#include "ferryjni/export.h"

FERRYJNI_BEGIN

struct QEL_FerrionRoute;

/** A version as hosts compare it. */
typedef struct QEL_FerrionVersion {
    int32_t major;
    int32_t minor;
    int32_t release;
} QEL_FerrionVersion;

/** Compares major, minor, release, in that order: -1, 0 or 1. Neither may be null. */
FERRYJNI_API int32_t QEL_FerrionVersion_compare(const QEL_FerrionVersion *a,
                                                const QEL_FerrionVersion *b) FERRYJNI_NOEXCEPT;

/** An instance handle as DDS lays it out. */
typedef struct QEL_FerrionInstanceHandle {
    uint8_t keyHash[16];
    /** Bytes of keyHash in use, 16. */
    int32_t keyHashLength;
    /** 0 for the nil handle. */
    int32_t isValid;
} QEL_FerrionInstanceHandle;

/** A 16-byte globally unique identifier. */
typedef struct QEL_FerrionGuid {
    uint8_t value[16];
} QEL_FerrionGuid;

typedef struct QEL_FerrionSequenceNumber {
    int32_t high;
    uint32_t low;
} QEL_FerrionSequenceNumber;

/** A writer's GUID and a sample's number within it. */
typedef struct QEL_FerrionSampleIdentity {
    QEL_FerrionGuid writerGuid;
    QEL_FerrionSequenceNumber sequenceNumber;
} QEL_FerrionSampleIdentity;

typedef struct QEL_FerrionTime {
    int32_t seconds;
    uint32_t nanoseconds;
} QEL_FerrionTime;

/** The host's write parameters. The bytes are the host's; only the default below is made here. */
typedef struct QEL_FerrionWriteParams {
    /** A true flag in the first byte. */
    uint8_t flag[4];
    QEL_FerrionSampleIdentity identity;
    QEL_FerrionSampleIdentity relatedIdentity;
    QEL_FerrionTime sourceTimestamp;
    QEL_FerrionInstanceHandle handle;
    uint8_t reserved[56];
} QEL_FerrionWriteParams;

extern FERRYJNI_API const int32_t QEL_FERRION_COUNT_UNLIMITED;
extern FERRYJNI_API const QEL_FerrionGuid QEL_FERRION_GUID_AUTO;
extern FERRYJNI_API const QEL_FerrionGuid QEL_FERRION_GUID_UNKNOWN;
extern FERRYJNI_API const QEL_FerrionInstanceHandle QEL_FERRION_INSTANCE_HANDLE_NIL;
extern FERRYJNI_API const QEL_FerrionSequenceNumber QEL_FERRION_SEQUENCE_NUMBER_UNKNOWN;
extern FERRYJNI_API const QEL_FerrionSequenceNumber QEL_FERRION_SEQUENCE_NUMBER_AUTO;
extern FERRYJNI_API const QEL_FerrionSampleIdentity QEL_FERRION_SAMPLE_IDENTITY_UNKNOWN;
extern FERRYJNI_API const QEL_FerrionSampleIdentity QEL_FERRION_SAMPLE_IDENTITY_AUTO;
extern FERRYJNI_API const QEL_FerrionTime QEL_FERRION_TIME_INVALID;
extern FERRYJNI_API const QEL_FerrionWriteParams QEL_FERRION_WRITE_PARAMS_DEFAULT;

/** Something that happened to a route. */
typedef struct QEL_FerrionRouteEvent {
    /** What happened; the host numbers it, 0 is "nothing yet". */
    int32_t kind;
    /** The route concerned; not owned. */
    struct QEL_FerrionRoute *route;
    /** Fields of the host; zero in events made here. */
    void *hostFields[4];
} QEL_FerrionRouteEvent;

/** Binds an event to a route with kind 0. Returns 1, or 0 when either is null. */
FERRYJNI_API int32_t QEL_FerrionRouteEvent_initialize(
    QEL_FerrionRouteEvent *self, struct QEL_FerrionRoute *route) FERRYJNI_NOEXCEPT;
/** Sets kind 0 and no route; null does nothing. */
FERRYJNI_API void QEL_FerrionRouteEvent_finalize(QEL_FerrionRouteEvent *self) FERRYJNI_NOEXCEPT;
/** A new event on the C heap, the caller's; null when the route is null or memory is short. */
FERRYJNI_API QEL_FerrionRouteEvent *
QEL_FerrionRouteEvent_newI(struct QEL_FerrionRoute *route) FERRYJNI_NOEXCEPT;
/** Finalizes and frees an event; null does nothing. */
FERRYJNI_API void QEL_FerrionRouteEvent_deleteI(QEL_FerrionRouteEvent *self) FERRYJNI_NOEXCEPT;

/** How a request to an output stream ended. */
typedef struct QEL_FerrionOutputStreamRequestStatus {
    QEL_FerrionInstanceHandle instance;
    /** Numbered by the host. */
    int32_t status;
} QEL_FerrionOutputStreamRequestStatus;

/** Does nothing: a status is finalized or copied into before it is read. */
FERRYJNI_API void QEL_FerrionOutputStreamRequestStatus_initialize(
    QEL_FerrionOutputStreamRequestStatus *self) FERRYJNI_NOEXCEPT;
/** Sets the nil handle and status 0. `self` must not be null. */
FERRYJNI_API void QEL_FerrionOutputStreamRequestStatus_finalize(
    QEL_FerrionOutputStreamRequestStatus *self) FERRYJNI_NOEXCEPT;
/** Copies both fields; returns the destination, or null when either is null. */
FERRYJNI_API QEL_FerrionOutputStreamRequestStatus *QEL_FerrionOutputStreamRequestStatus_copy(
    QEL_FerrionOutputStreamRequestStatus *destination,
    const QEL_FerrionOutputStreamRequestStatus *source) FERRYJNI_NOEXCEPT;

FERRYJNI_END

#endif
