/* Readers: samples that arrive from a DDS domain. */
#ifndef QDDSDOMAIN_READER_H
#define QDDSDOMAIN_READER_H

#include "qddsc/dynamic_data.h"
#include "qddsc/sample_info.h"
#include "qddsdomain/participant.h"
#include "qddsdomain/qos.h"

QDDSDOMAIN_BEGIN

typedef struct DDS_DataReader DDS_DataReader;

/** Notified that there is something to take, or a notice. Runs on a thread of the engine: it must
 * not block, and must not call back into the reader. */
typedef void (*DDS_OnDataFn)(void *argument);

/** What has happened to a reader since it was made. */
struct DDS_ReaderStatistics {
    uint64_t taken;
    /** Messages that were not a sample of the type; rejected on arrival. */
    uint64_t malformed;
    /** Samples that never arrived (best effort), or that found no room. */
    uint64_t lost;
    /** Writers it is matched with now. */
    uint32_t matched;
};

/**
 * Makes a reader of a topic.
 *
 * @param topic    name of the topic.
 * @param typeName name under which the type is announced; null is that of the type code.
 * @param type     a struct, or an alias of one.
 * @param onData   may be null.
 * @return owned by the caller (DDS_DataReader_delete); null, with `error` (may be null) filled, on
 *         failure.
 */
QDDSDOMAIN_API DDS_DataReader *
DDS_DataReader_new(DDS_DomainParticipant *participant, const char *topic, const char *typeName,
                   const DDS_TypeCode *type, const struct DDS_EndpointQos *qos, DDS_OnDataFn onData,
                   void *argument, struct DDS_ErrorText *error) QDDSDOMAIN_NOEXCEPT;

/** Lets nothing more in and drops what has not been taken. Returns how many samples that is:
 * writers may believe of them that they have arrived. Afterwards the reader can only be deleted. */
QDDSDOMAIN_API uint64_t DDS_DataReader_discard(DDS_DataReader *self) QDDSDOMAIN_NOEXCEPT;

/** Once it returns `onData` does not run and will not run again. Null does nothing. */
QDDSDOMAIN_API void DDS_DataReader_delete(DDS_DataReader *self) QDDSDOMAIN_NOEXCEPT;

/**
 * Takes what is there, at most `maximum` samples, without waiting, in the order of the instances
 * and of their writers. Large samples end it earlier, see `room`. A sample without data
 * (`valid_data` 0: its instance was disposed or has no writers) has its key members set and all
 * others at their default; the end of an instance is reported behind its last sample, also when it
 * arrived before that was taken. For a type without key no end is reported.
 *
 * `publication_handle` is the writer's GUID, nil when that came and went between two takes;
 * `instance_handle` the instance's key hash, nil for a type without key. There is no reception time
 * and `publication_sequence_number` is 0: the engine does not say.
 *
 * @param samples `maximum` samples of the reader's type that are overwritten.
 * @param infos   as many records that are overwritten.
 * @param room    null, or how many bytes of sample data to take: each sample lessens it by its own,
 *                and the one that leaves none is the last one.
 * @return samples taken; -1 with `error` (may be null) filled.
 */
QDDSDOMAIN_API int32_t DDS_DataReader_take(DDS_DataReader *self, DDS_DynamicData *const *samples,
                                           struct DDS_SampleInfo *const *infos, int32_t maximum,
                                           int64_t *room,
                                           struct DDS_ErrorText *error) QDDSDOMAIN_NOEXCEPT;

/**
 * Reports once what went wrong beside the samples: messages rejected (how many, the last reason),
 * samples lost or rejected, a deadline missed, a writer whose QoS or type does not fit (which
 * policy).
 *
 * @return 1 with `text` filled, or 0 when there is nothing new.
 */
QDDSDOMAIN_API int32_t DDS_DataReader_take_notice(DDS_DataReader *self,
                                                  struct DDS_ErrorText *text) QDDSDOMAIN_NOEXCEPT;

/** Why writers of the topic that are known now are not matched; as DDS_DataWriter_get_mismatches.
 */
QDDSDOMAIN_API int32_t
DDS_DataReader_get_mismatches(DDS_DataReader *self, struct DDS_ErrorText *text) QDDSDOMAIN_NOEXCEPT;

QDDSDOMAIN_API void
DDS_DataReader_get_statistics(DDS_DataReader *self,
                              struct DDS_ReaderStatistics *statistics) QDDSDOMAIN_NOEXCEPT;

QDDSDOMAIN_END

#endif
