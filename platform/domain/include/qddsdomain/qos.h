/* Quality of service of one reader or writer. */
#ifndef QDDSDOMAIN_QOS_H
#define QDDSDOMAIN_QOS_H

#include <stdint.h>

#include "qddsc/string.h"
#include "qddsdomain/export.h"

QDDSDOMAIN_BEGIN

typedef enum DDS_DurabilityKind {
    DDS_VOLATILE_DURABILITY = 0,
    DDS_TRANSIENT_LOCAL_DURABILITY = 1
} DDS_DurabilityKind;

/** How samples are encoded on the wire. Readers take both. */
typedef enum DDS_DataRepresentation {
    DDS_XCDR1_REPRESENTATION = 0,
    DDS_XCDR2_REPRESENTATION = 2
} DDS_DataRepresentation;

/** Which endpoints of the same topic are not talked to. */
typedef enum DDS_IgnoreLocalKind {
    DDS_IGNORE_LOCAL_NONE = 0,
    /** Those of the same participant. */
    DDS_IGNORE_LOCAL_PARTICIPANT = 1,
    /** Those of this process in the same domain. */
    DDS_IGNORE_LOCAL_PROCESS = 2
} DDS_IgnoreLocalKind;

/** Who says that a writer is alive. With a manual kind each write does, and nothing else. */
typedef enum DDS_LivelinessKind {
    DDS_AUTOMATIC_LIVELINESS = 0,
    DDS_MANUAL_BY_PARTICIPANT_LIVELINESS = 1,
    DDS_MANUAL_BY_TOPIC_LIVELINESS = 2
} DDS_LivelinessKind;

/** By which time the samples of several writers are put in order. */
typedef enum DDS_DestinationOrderKind {
    DDS_BY_RECEPTION_DESTINATION_ORDER = 0,
    DDS_BY_SOURCE_DESTINATION_ORDER = 1
} DDS_DestinationOrderKind;

/** What coherent and ordered access is about. The engine compares it and does no more. */
typedef enum DDS_PresentationScope {
    DDS_INSTANCE_PRESENTATION = 0,
    DDS_TOPIC_PRESENTATION = 1,
    DDS_GROUP_PRESENTATION = 2
} DDS_PresentationScope;

/** Fields that a reader or writer has no use for are not looked at. Times are nanoseconds; 0 is "no
 * limit" where nothing else is said. */
struct DDS_EndpointQos {
    /** 1: nothing is lost between matched endpoints; 0: best effort. */
    int32_t reliable;
    DDS_DurabilityKind durability;
    /** Samples kept of each instance; 0 keeps all. */
    int32_t historyDepth;
    /** Writers, transient local: samples of each instance kept for readers that come later; 0 keeps
     * as many as `historyDepth` says. */
    int32_t durableDepth;
    /** Readers: the most samples kept until they are taken, above which a reliable writer is held
     * up (and a best-effort sample dropped); 0 is no limit. A reliable reader that stays full keeps
     * up to 32 MiB of samples more, so that nobody waits for it but its writers. */
    int32_t maxSamples;
    /** Longest time between two samples of an instance. */
    int64_t deadline;
    /** Writers: how long a sample is worth delivering. */
    int64_t lifespan;
    /** Readers: shortest time between two samples of an instance, by their source time; others are
     * dropped. */
    int64_t timeBasedFilter;
    /** 1: of several writers of an instance only the strongest one counts. */
    int32_t exclusiveOwnership;
    /** Writers: strength in that contest. */
    int32_t ownershipStrength;
    /** Writers: 1 when the instances of a writer that goes are disposed, not only unregistered. */
    int32_t autodispose;
    /** Patterns allowed; empty is the default partition. Not owned. */
    const struct DDS_StringSeq *partitions;
    /** Readers: 1 passes over what comes from writers that are in other partitions, too, or not in
     * all of these. For who has a reader for each set of partitions. */
    int32_t exactPartitions;
    /** Writers only. */
    DDS_DataRepresentation representation;
    /** 1: no type information is announced, so that endpoints match when topic and type name
     * agree. */
    int32_t matchByNameOnly;
    DDS_IgnoreLocalKind ignoreLocal;
    /** Writers: how long a write may wait for slow readers; 0 does not wait. A full reader of this
     * process may keep it waiting when local endpoints are not ignored. */
    int64_t writeTimeout;
    DDS_LivelinessKind liveliness;
    /** Longest time without a sign of life. */
    int64_t livelinessLease;
    DDS_DestinationOrderKind destinationOrder;
    DDS_PresentationScope presentation;
    int32_t coherentAccess;
    int32_t orderedAccess;
    /** How long samples may be held back to be sent together; 0 is not at all. */
    int64_t latencyBudget;
    /** Writers. */
    int32_t transportPriority;
    /** What peers see of the endpoint; null is nothing. Not owned. */
    const char *userData;
};

QDDSDOMAIN_END

#endif
