// Writers; see qddsdomain/writer.h. The owner's thread writes, threads of the engine count.
#include "endpoint.h"

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <condition_variable>
#include <limits>
#include <mutex>

#include "engine_entities.h"
#include "mismatch.h"
#include "qddscdr/error_text.h"
#include "qddsdomain/writer.h"

using namespace qddsdomain;
using qddscdr::setError;

namespace {
constexpr int64_t neverTime =
    std::numeric_limits<int64_t>::max(); // of CLOCK_MONOTONIC, nanoseconds
}

/// Members go in reverse: the writer first.
struct DDS_DataWriter {
    const WireType *wire = nullptr;
    int64_t timeout = 0; // nanoseconds that a write may wait, of which the engine waits `slice` at
    int64_t slice = 0;   // a time
    Event incompatible;
    Event deadlineMissed;
    std::mutex mutex;
    std::condition_variable changed;  // of what is under the mutex
    std::atomic<uint32_t> matched{0}; // changed under the mutex
    int64_t stopBy = neverTime;       // under the mutex; see DDS_DataWriter_stop_by
    dds_entity_t participant = 0;     // not owned
    Topic topic;
    engine::Entity publisher;
    engine::Entity entity;
};

namespace {

constexpr int64_t nanosecondsPerSecond = 1000000000;
/// How long the engine waits at a time, so that a wait can be called off.
constexpr int64_t waitSlice = DDS_MSECS(10);

DDS_DataWriter &of(void *argument)
{
    return *static_cast<DDS_DataWriter *>(argument);
}

void onMatched(dds_entity_t, const dds_publication_matched_status_t status, void *argument)
{
    DDS_DataWriter &self = of(argument);
    const std::lock_guard<std::mutex> guard(self.mutex);
    self.matched = status.current_count;
    self.changed.notify_all();
}

void onIncompatible(dds_entity_t, const dds_offered_incompatible_qos_status_t status,
                    void *argument)
{
    // The engine counts other partitions among the misfits, but keeping apart is what they are for.
    if (status.last_policy_id == DDS_PARTITION_QOS_POLICY_ID) {
        return;
    }
    of(argument).incompatible.add(status.total_count_change, status.last_policy_id);
}

void onDeadline(dds_entity_t, const dds_offered_deadline_missed_status_t status, void *argument)
{
    of(argument).deadlineMissed.add(status.total_count_change);
}

/// Waits go by the clock that nobody sets.
int64_t now()
{
    return std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count();
}

int64_t endOf(int64_t timeout)
{
    const int64_t start = now();
    return start + std::min(timeout, neverTime - start);
}

/// What is left until `end`, or until the writer has to stop; that may have become earlier
/// meanwhile.
int64_t restUntil(DDS_DataWriter &self, int64_t end)
{
    const std::lock_guard<std::mutex> guard(self.mutex);
    return std::min(end, self.stopBy) - now();
}

DDS_DataWriter *makeWriter(const EndpointRequest &request, DDS_ErrorText *error)
{
    if (!checkRequest(request, error)) {
        return nullptr;
    }
    auto made = std::make_unique<DDS_DataWriter>();
    made->participant = request.participant->entity.get();
    made->timeout = request.qos->writeTimeout;
    // Where there may be readers in this process the engine also waits for these, behind the
    // network, and to try again would send twice.
    made->slice = request.qos->ignoreLocal == DDS_IGNORE_LOCAL_PROCESS
                      ? std::min(made->timeout, waitSlice)
                      : made->timeout;
    const Representation representation = request.qos->representation == DDS_XCDR2_REPRESENTATION
                                              ? Representation::xcdr2
                                              : Representation::xcdr1;
    made->topic = makeEndpointTopic(request, representation, made->wire, error);
    if (made->topic.entity.get() <= 0) {
        return nullptr;
    }
    const Listener listener(dds_create_listener(made.get()));
    dds_lset_publication_matched(listener.get(), onMatched);
    dds_lset_offered_incompatible_qos(listener.get(), onIncompatible);
    dds_lset_offered_deadline_missed(listener.get(), onDeadline);
    Entities entities =
        makeEntities(request, {"writer", dds_create_publisher, dds_create_writer}, made->topic,
                     writerQos(*request.qos, made->slice), listener, error);
    made->publisher = std::move(entities.group);
    made->entity = std::move(entities.endpoint);
    return made->entity.get() > 0 ? made.release() : nullptr;
}

/// Whether a sample only reports its instance's end, and how.
bool endsInstance(const DDS_SampleInfo *info)
{
    return info != nullptr && info->valid_data == 0;
}

Stamp stampOf(const DDS_SampleInfo *info)
{
    const bool timed = info != nullptr && info->source_timestamp.sec >= 0;
    Stamp stamp{timed ? info->source_timestamp.sec * nanosecondsPerSecond +
                            static_cast<int64_t>(info->source_timestamp.nanosec)
                      : dds_time(),
                false, false};
    if (endsInstance(info)) {
        stamp.dispose = info->instance_state == DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE;
        stamp.unregister = !stamp.dispose;
    }
    return stamp;
}

/// The engine's code.
dds_return_t forward(DDS_DataWriter &self, ddsi_serdata *message)
{
    retain(message);
    dds_return_t code = dds_forwardcdr(self.entity.get(), message);
    const int64_t end = code == engine::timedOut ? endOf(self.timeout - self.slice) : 0;
    while (code == engine::timedOut && self.slice < self.timeout && restUntil(self, end) > 0) {
        retain(message);
        code = dds_forwardcdr(self.entity.get(), message);
    }
    release(message);
    return code;
}

DDS_ReturnCode_t writeSample(DDS_DataWriter &self, const DDS_DynamicData *sample,
                             const DDS_SampleInfo *info, DDS_ErrorText *error)
{
    const DDS_TypeCode *type =
        sample == nullptr ? nullptr : DDS_TypeCode_resolve(DDS_DynamicData_get_type(sample));
    if (type != &self.wire->type()) {
        setError(error, "the sample is not of the writer's type %s",
                 DDS_TypeCode_get_name(&self.wire->type()));
        return DDS_RETCODE_BAD_PARAMETER;
    }
    if (endsInstance(info) && !self.wire->isKeyed()) {
        setError(error, "a sample without data of type %s, which has no key",
                 DDS_TypeCode_get_name(type));
        return DDS_RETCODE_BAD_PARAMETER;
    }
    size_t length = 0;
    const uint8_t *plain = DDS_DynamicData_get_cdr(sample, &length);
    Stamp stamp = stampOf(info);
    if (self.wire->opaque() != nullptr && info != nullptr) {
        // Of a message that was received the state is its own: with data it may dispose, too.
        stamp.dispose = info->instance_state == DDS_NOT_ALIVE_DISPOSED_INSTANCE_STATE;
    }
    ddsi_serdata *message = endsInstance(info)
                                ? makeKeySample(self.topic.type, plain, length, stamp)
                                : makeSample(self.topic.type, plain, length, stamp);
    if (message == nullptr) {
        setError(error, "the sample is malformed, or memory is short");
        return DDS_RETCODE_ERROR;
    }
    const dds_return_t code = forward(self, message);
    if (code == engine::timedOut) {
        setError(error, "slow readers held the write up %s",
                 restUntil(self, neverTime) <= 0 ? "until the writer had to stop"
                                                 : "beyond the write timeout");
        return DDS_RETCODE_OUT_OF_RESOURCES;
    }
    if (code != 0) {
        setError(error, "the engine does not write: %s", dds_strretcode(code));
        return code == engine::outOfResources ? DDS_RETCODE_OUT_OF_RESOURCES : DDS_RETCODE_ERROR;
    }
    return DDS_RETCODE_OK;
}

bool noticeOf(DDS_DataWriter &self, DDS_ErrorText *text)
{
    uint32_t detail = 0;
    uint32_t count = self.incompatible.take(detail);
    if (count > 0) {
        setError(text, "%" PRIu32 " times a reader did not match: %s", count, policyName(detail));
        return true;
    }
    count = self.deadlineMissed.take(detail);
    if (count > 0) {
        setError(text, "deadline missed %" PRIu32 " times", count);
        return true;
    }
    return false;
}

} // namespace

DDS_DataWriter *DDS_DataWriter_new(DDS_DomainParticipant *participant, const char *topic,
                                   const char *typeName, const DDS_TypeCode *type,
                                   const DDS_EndpointQos *qos, DDS_ErrorText *error) noexcept
try {
    return makeWriter({participant, topic, typeName, type, qos, true}, error);
} catch (...) {
    setError(error, "no memory for a writer");
    return nullptr;
}

void DDS_DataWriter_delete(DDS_DataWriter *self) noexcept
{
    if (self != nullptr) {
        DDS_DataWriter_flush(self);
    }
    delete self;
}

DDS_ReturnCode_t DDS_DataWriter_write(DDS_DataWriter *self, const DDS_DynamicData *sample,
                                      const DDS_SampleInfo *info, DDS_ErrorText *error) noexcept
try {
    return writeSample(*self, sample, info, error);
} catch (...) {
    setError(error, "no memory for a message");
    return DDS_RETCODE_OUT_OF_RESOURCES;
}

void DDS_DataWriter_flush(DDS_DataWriter *self) noexcept
{
    dds_write_flush(self->entity.get());
}

int32_t DDS_DataWriter_wait_for_acknowledgments(DDS_DataWriter *self, int64_t timeout) noexcept
try {
    DDS_DataWriter_flush(self);
    const int64_t end = endOf(timeout);
    qddsdomain_ask_for_acknowledgments(self->entity.get(), self->topic.type);
    for (int64_t rest = timeout;;) {
        if (dds_wait_for_acks(self->entity.get(), std::clamp<int64_t>(rest, 0, waitSlice)) == 0) {
            return 1;
        }
        rest = restUntil(*self, end);
        if (rest <= 0) {
            return 0;
        }
    }
} catch (...) {
    return 0;
}

uint64_t DDS_DataWriter_get_unacknowledged(DDS_DataWriter *self) noexcept
{
    return qddsdomain_count_unacknowledged(self->entity.get(), self->topic.type);
}

int32_t DDS_DataWriter_wait_for_readers(DDS_DataWriter *self, uint32_t count,
                                        int64_t timeout) noexcept
try {
    const int64_t end = endOf(timeout);
    std::unique_lock<std::mutex> lock(self->mutex);
    while (self->matched < count) {
        const int64_t rest = std::min(end, self->stopBy) - now();
        if (rest <= 0) {
            return 0;
        }
        self->changed.wait_for(lock, std::chrono::nanoseconds(rest));
    }
    return 1;
} catch (...) {
    return 0;
}

void DDS_DataWriter_stop_by(DDS_DataWriter *self, int64_t deadline) noexcept
try {
    const std::lock_guard<std::mutex> guard(self->mutex);
    self->stopBy = std::min(self->stopBy, deadline);
    self->changed.notify_all();
} catch (...) {
    return; // the mutex is not usable
}

int32_t DDS_DataWriter_get_mismatches(DDS_DataWriter *self, DDS_ErrorText *text) noexcept
try {
    const std::string why =
        mismatchesOf({self->participant, self->entity.get(), self->publisher.get(), true});
    setError(text, "%s", why.c_str());
    return why.empty() ? 0 : 1;
} catch (...) {
    return 0;
}

int32_t DDS_DataWriter_take_notice(DDS_DataWriter *self, DDS_ErrorText *text) noexcept
{
    return noticeOf(*self, text) ? 1 : 0;
}

uint32_t DDS_DataWriter_get_matched(DDS_DataWriter *self) noexcept
{
    return self->matched.load(std::memory_order_relaxed);
}

uint32_t DDS_DataWriter_get_readers(DDS_DataWriter *self, uint64_t *handles,
                                    uint32_t capacity) noexcept
{
    const dds_return_t count = dds_get_matched_subscriptions(self->entity.get(), handles, capacity);
    return static_cast<uint32_t>(std::max(count, 0));
}
