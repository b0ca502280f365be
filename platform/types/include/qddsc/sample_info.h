/* What the middleware says about a sample beside its data. */
#ifndef QDDSC_SAMPLE_INFO_H
#define QDDSC_SAMPLE_INFO_H

#include <stdint.h>

#include "qddsc/export.h"

QDDSC_BEGIN

/** A point in time, seconds and nanoseconds since 1970-01-01 UTC; seconds -1 is "no time". */
struct DDS_Time_t {
    int32_t sec;
    uint32_t nanosec;
};

/** Identifies an instance or an entity. */
struct DDS_InstanceHandle_t {
    uint8_t keyHash[16];
    /** Bytes of keyHash in use, 16. */
    int32_t length;
    /** 0 for the nil handle. */
    int32_t isValid;
};

/** A sample's number within its writer. */
struct DDS_SequenceNumber_t {
    int32_t high;
    uint32_t low;
};

/* State values are those of the DDS standard (OMG DDS 1.4, annex A). */
#define DDS_READ_SAMPLE_STATE 0x1
#define DDS_NOT_READ_SAMPLE_STATE 0x2
#define DDS_NEW_VIEW_STATE 0x1
#define DDS_NOT_NEW_VIEW_STATE 0x2
#define DDS_ALIVE_INSTANCE_STATE 0x1
#define DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE 0x2
#define DDS_NOT_ALIVE_NO_WRITERS_INSTANCE_STATE 0x4

/** All zero is a valid, empty record; it owns nothing. */
struct DDS_SampleInfo {
    int32_t sample_state;
    int32_t view_state;
    int32_t instance_state;
    /** 1 when the sample carries data, 0 when it only reports a change of state. */
    int32_t valid_data;
    struct DDS_Time_t source_timestamp;
    struct DDS_Time_t reception_timestamp;
    struct DDS_InstanceHandle_t instance_handle;
    struct DDS_InstanceHandle_t publication_handle;
    int32_t disposed_generation_count;
    int32_t no_writers_generation_count;
    int32_t sample_rank;
    int32_t generation_rank;
    int32_t absolute_generation_rank;
    struct DDS_SequenceNumber_t publication_sequence_number;
};

QDDSC_END

#endif
