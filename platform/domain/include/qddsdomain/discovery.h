/* Discovery: readers and writers of other processes in a domain. */
#ifndef QDDSDOMAIN_DISCOVERY_H
#define QDDSDOMAIN_DISCOVERY_H

#include "qddsc/string.h"
#include "qddsc/type_code.h"
#include "qddsdomain/participant.h"
#include "qddsdomain/qos.h"

QDDSDOMAIN_BEGIN

typedef struct DDS_Discovery DDS_Discovery;

/** What a writer offers, or a reader asks for. Times are nanoseconds; 0 is no limit. */
struct DDS_DiscoveredQos {
    int32_t reliable;
    DDS_DurabilityKind durability;
    /** Writers, transient local: samples of each instance kept for readers that come later, as far
     * as the peer announces; 0 keeps all. */
    int32_t durableDepth;
    /** Longest time between two samples of an instance. */
    int64_t deadline;
    /** Writers: how long a sample is worth delivering. */
    int64_t lifespan;
    int32_t exclusiveOwnership;
    /** Writers: strength in the contest for an instance. */
    int32_t ownershipStrength;
    DDS_LivelinessKind liveliness;
    /** Longest time without a sign of life. */
    int64_t livelinessLease;
    DDS_DestinationOrderKind destinationOrder;
    DDS_PresentationScope presentation;
    int32_t coherentAccess;
    int32_t orderedAccess;
    /** 0 is none. */
    int64_t latencyBudget;
    /** What a writer sends samples in, or a reader likes best, as far as the peer says. */
    DDS_DataRepresentation representation;
};

/** One reader or writer of another process. */
struct DDS_DiscoveredEndpoint {
    uint8_t guid[16];
    /** 1 for a writer, 0 for a reader. */
    int32_t isWriter;
    const char *topic;
    const char *typeName;
    /** Null when the peer announces no type, when it has not answered in time, or when the type is
     * one that is not carried. */
    const DDS_TypeCode *type;
    /** Why `type` is null, naming what is not carried; null when there is a type. */
    const char *typeProblem;
    /** Where `type` is null: an opaque type of that name. It has the type information that the peer
     * announces if the peer has also sent all of the type. */
    const DDS_TypeCode *opaque;
    /** In order, each once, at least one; the default partition is "". */
    struct DDS_StringSeq partitions;
    int32_t isKeyed;
    struct DDS_DiscoveredQos qos;
};

/** What is done about the types of endpoints. */
typedef enum DDS_DiscoveredTypes {
    /** Types are put together of what peers send. */
    DDS_RESOLVE_TYPES = 0,
    /** All endpoints have opaque types; what peers send is kept as it is. */
    DDS_PASS_TYPES = 1
} DDS_DiscoveredTypes;

typedef enum DDS_DiscoveryEventKind {
    DDS_ENDPOINT_APPEARED = 1,
    /** Its partitions or its QoS have changed, or its type has become known. */
    DDS_ENDPOINT_CHANGED = 2,
    DDS_ENDPOINT_GONE = 3
} DDS_DiscoveryEventKind;

/** Notified that there is an event to take; runs on the discovery's thread. It must not block and
 * must not call back into the discovery. */
typedef void (*DDS_OnDiscoveryFn)(void *argument);

/**
 * Starts watching a participant's domain, on a thread of its own. Endpoints of this process are not
 * reported.
 *
 * @param types       applies to all endpoints.
 * @param typeTimeout nanoseconds that a peer gets to send an endpoint's type before the endpoint is
 *                    announced without; a type that comes later is a change.
 * @return owned by the caller (DDS_Discovery_delete); null with `error` (may be null) filled.
 */
QDDSDOMAIN_API DDS_Discovery *DDS_Discovery_new(DDS_DomainParticipant *participant,
                                                DDS_DiscoveredTypes types, int64_t typeTimeout,
                                                DDS_OnDiscoveryFn onChange, void *argument,
                                                struct DDS_ErrorText *error) QDDSDOMAIN_NOEXCEPT;

/** Stops watching; once it returns `onChange` will not run again. Null does nothing. */
QDDSDOMAIN_API void DDS_Discovery_delete(DDS_Discovery *self) QDDSDOMAIN_NOEXCEPT;

/** The next event, in order, or null. What it points to is valid until the next call or the
 * discovery's deletion; for an endpoint that has gone all fields are as they were last reported. */
QDDSDOMAIN_API const struct DDS_DiscoveredEndpoint *
DDS_Discovery_take(DDS_Discovery *self, DDS_DiscoveryEventKind *kind) QDDSDOMAIN_NOEXCEPT;

QDDSDOMAIN_END

#endif
