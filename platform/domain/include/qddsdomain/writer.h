/* Writers: samples that go out to a DDS domain. */
#ifndef QDDSDOMAIN_WRITER_H
#define QDDSDOMAIN_WRITER_H

#include "qddsc/dynamic_data.h"
#include "qddsc/sample_info.h"
#include "qddsdomain/participant.h"
#include "qddsdomain/qos.h"

QDDSDOMAIN_BEGIN

typedef struct DDS_DataWriter DDS_DataWriter;

/**
 * Makes a writer of a topic; parameters and result as for DDS_DataReader_new.
 */
QDDSDOMAIN_API DDS_DataWriter *DDS_DataWriter_new(DDS_DomainParticipant *participant,
                                                  const char *topic, const char *typeName,
                                                  const DDS_TypeCode *type,
                                                  const struct DDS_EndpointQos *qos,
                                                  struct DDS_ErrorText *error) QDDSDOMAIN_NOEXCEPT;

/** Deletes a writer. What reliable readers have not acknowledged by then is lost: wait before
 * (DDS_DataWriter_wait_for_acknowledgments). Null does nothing. */
QDDSDOMAIN_API void DDS_DataWriter_delete(DDS_DataWriter *self) QDDSDOMAIN_NOEXCEPT;

/**
 * Writes one sample. It may stay in a packet that is being filled until DDS_DataWriter_flush.
 *
 * @param sample of the writer's type.
 * @param info   null, or what to take from it: the source timestamp (seconds -1: now), and, where
 *               `valid_data` is 0, the instance state: a disposed instance is disposed, one without
 *               writers unregistered; only the key members of the sample count then.
 * @return DDS_RETCODE_OK; DDS_RETCODE_OUT_OF_RESOURCES when slow readers held it up beyond the
 *         write timeout or the deadline of DDS_DataWriter_stop_by, or memory is short (the sample
 *         was not written);
 *         DDS_RETCODE_BAD_PARAMETER for a sample of another type, or one without data of a type
 *         without key; DDS_RETCODE_ERROR. `error` (may be null) says what.
 */
QDDSDOMAIN_API DDS_ReturnCode_t DDS_DataWriter_write(
    DDS_DataWriter *self, const DDS_DynamicData *sample, const struct DDS_SampleInfo *info,
    struct DDS_ErrorText *error) QDDSDOMAIN_NOEXCEPT;

/** Sends what is still in a packet that is being filled. */
QDDSDOMAIN_API void DDS_DataWriter_flush(DDS_DataWriter *self) QDDSDOMAIN_NOEXCEPT;

/** Waits until all matched reliable readers have acknowledged everything, at most `timeout`
 * nanoseconds and not beyond the deadline of DDS_DataWriter_stop_by. Returns 1 when they have. */
QDDSDOMAIN_API int32_t DDS_DataWriter_wait_for_acknowledgments(DDS_DataWriter *self,
                                                               int64_t timeout) QDDSDOMAIN_NOEXCEPT;

/** Samples that a matched reliable reader has not acknowledged yet and that are kept for it; with a
 * history depth newer samples replace those of their instance. */
QDDSDOMAIN_API uint64_t DDS_DataWriter_get_unacknowledged(DDS_DataWriter *self) QDDSDOMAIN_NOEXCEPT;

/** Waits until at least `count` readers are matched, at most `timeout` nanoseconds and not beyond
 * the deadline of DDS_DataWriter_stop_by. Returns 1 when they are. */
QDDSDOMAIN_API int32_t DDS_DataWriter_wait_for_readers(DDS_DataWriter *self, uint32_t count,
                                                       int64_t timeout) QDDSDOMAIN_NOEXCEPT;

/**
 * From now on calls on the writer that wait come back by a deadline, also one that waits already;
 * what need not wait goes on. May be called from any thread as long as the writer lives, and again
 * with an earlier deadline; a later one changes nothing. Where `ignoreLocal` is other than process
 * a write that slow readers hold up already comes back by its write timeout.
 *
 * @param deadline nanoseconds of CLOCK_MONOTONIC.
 */
QDDSDOMAIN_API void DDS_DataWriter_stop_by(DDS_DataWriter *self,
                                           int64_t deadline) QDDSDOMAIN_NOEXCEPT;

/** Why readers of the topic that are known now are not matched, for people: "2 readers do not
 * match: durability (1), partition "north" (1)", which is theirs. Looks through all endpoints of
 * the domain.
 *
 * @return 1 with `text` filled, or 0 when every known reader is matched or there is none. */
QDDSDOMAIN_API int32_t
DDS_DataWriter_get_mismatches(DDS_DataWriter *self, struct DDS_ErrorText *text) QDDSDOMAIN_NOEXCEPT;

/** Reports once a reader whose QoS or type does not fit, or a deadline missed; as
 * DDS_DataReader_take_notice. */
QDDSDOMAIN_API int32_t DDS_DataWriter_take_notice(DDS_DataWriter *self,
                                                  struct DDS_ErrorText *text) QDDSDOMAIN_NOEXCEPT;

/** Readers that it is matched with now. */
QDDSDOMAIN_API uint32_t DDS_DataWriter_get_matched(DDS_DataWriter *self) QDDSDOMAIN_NOEXCEPT;

/**
 * Which readers it is matched with now. A reader that goes leaves this list before what it had not
 * acknowledged stops counting for DDS_DataWriter_wait_for_acknowledgments.
 *
 * @param handles  `capacity` numbers that are overwritten, one for each reader; a reader has the
 *                 same one as long as it is there.
 * @return how many there are, which may be more than `capacity`.
 */
QDDSDOMAIN_API uint32_t DDS_DataWriter_get_readers(DDS_DataWriter *self, uint64_t *handles,
                                                   uint32_t capacity) QDDSDOMAIN_NOEXCEPT;

QDDSDOMAIN_END

#endif
