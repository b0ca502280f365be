// Readers: making, counting, telling; see qddsdomain/reader.h. Taking is in reader_take.cpp.
#include "reader.h"

#include <cinttypes>
#include <system_error>

#include "mismatch.h"
#include "qddscdr/error_text.h"

using namespace qddsdomain;
using qddscdr::setError;

namespace {

DDS_DataReader &of(void *argument)
{
    return *static_cast<DDS_DataReader *>(argument);
}

// Threads of the engine are in these: they count and wake.

void onDataAvailable(dds_entity_t, void *argument)
{
    of(argument).wake();
}

void onMalformed(void *argument)
{
    of(argument).wake();
}

void onMatched(dds_entity_t, const dds_subscription_matched_status_t status, void *argument)
{
    of(argument).matched.store(status.current_count, std::memory_order_relaxed);
    of(argument).writers.changed();
}

void onIncompatible(dds_entity_t, const dds_requested_incompatible_qos_status_t status,
                    void *argument)
{
    // The engine counts other partitions among the misfits, but keeping apart is what they are for.
    if (status.last_policy_id == DDS_PARTITION_QOS_POLICY_ID) {
        return;
    }
    of(argument).incompatible.add(status.total_count_change, status.last_policy_id);
    of(argument).wake();
}

void addLost(DDS_DataReader &self, Event &event, int32_t change)
{
    event.add(change);
    self.lostEver.fetch_add(static_cast<uint32_t>(change), std::memory_order_relaxed);
    self.wake();
}

void onLost(dds_entity_t, const dds_sample_lost_status_t status, void *argument)
{
    // With exclusive ownership the engine also calls lost what a weaker writer sends.
    if (!of(argument).exclusive) {
        addLost(of(argument), of(argument).lost, status.total_count_change);
    }
}

void onRejected(dds_entity_t, const dds_sample_rejected_status_t status, void *argument)
{
    // Reliable samples that find no room are tried again until they do.
    if (of(argument).reliable) {
        of(argument).full.store(true, std::memory_order_relaxed);
        callRelief();
    } else {
        addLost(of(argument), of(argument).rejected, status.total_count_change);
    }
}

void onDeadline(dds_entity_t, const dds_requested_deadline_missed_status_t status, void *argument)
{
    of(argument).deadlineMissed.add(status.total_count_change);
    of(argument).wake();
}

Listener listenerOf(DDS_DataReader *reader)
{
    Listener listener(dds_create_listener(reader));
    dds_lset_data_available(listener.get(), onDataAvailable);
    dds_lset_subscription_matched(listener.get(), onMatched);
    dds_lset_requested_incompatible_qos(listener.get(), onIncompatible);
    dds_lset_sample_lost(listener.get(), onLost);
    dds_lset_sample_rejected(listener.get(), onRejected);
    dds_lset_requested_deadline_missed(listener.get(), onDeadline);
    return listener;
}

DDS_DataReader *makeReader(const EndpointRequest &request, DDS_OnDataFn onData, void *argument,
                           DDS_ErrorText *error)
{
    if (!checkRequest(request, error)) {
        return nullptr;
    }
    auto made = std::make_unique<DDS_DataReader>();
    made->onData = onData;
    made->argument = argument;
    made->reliable = request.qos->reliable != 0;
    made->exclusive = request.qos->exclusiveOwnership != 0;
    made->topic = makeEndpointTopic(request, Representation::xcdr1, made->wire, error);
    if (made->topic.entity.get() <= 0) {
        return nullptr;
    }
    made->maxSamples = request.qos->maxSamples;
    if (request.qos->exactPartitions != 0) {
        made->writers.keepTo(partitionsOf(*request.qos));
    }
    made->timeFilter.separation = request.qos->timeBasedFilter;
    made->topic.arrivals->watch(onMalformed, made.get());
    made->participant = request.participant->entity.get();
    Entities entities =
        makeEntities(request, {"reader", dds_create_subscriber, dds_create_reader}, made->topic,
                     readerQos(*request.qos), listenerOf(made.get()), error);
    made->subscriber = std::move(entities.group);
    made->entity = std::move(entities.endpoint);
    if (made->entity.get() <= 0) {
        return nullptr;
    }
    if (made->reliable && made->maxSamples != 0) {
        enlist(*made);
    }
    return made.release();
}

/// One thing at a time; what is left comes with the next call.
bool noticeOf(DDS_DataReader &self, DDS_ErrorText *text)
{
    const uint64_t malformed = self.topic.arrivals->rejected();
    if (malformed != self.reportedMalformed) {
        setError(text, "%" PRIu64 " messages were no samples of type %s; the last one: %s",
                 malformed - self.reportedMalformed, DDS_TypeCode_get_name(&self.wire->type()),
                 self.topic.arrivals->reason().c_str());
        self.reportedMalformed = malformed;
        return true;
    }
    uint32_t detail = 0;
    uint32_t count = self.incompatible.take(detail);
    if (count > 0) {
        setError(text, "%" PRIu32 " times a writer did not match: %s", count, policyName(detail));
        return true;
    }
    struct Loss {
        Event *event;
        const char *text;
    };
    for (const Loss &loss : {Loss{&self.lost, "samples were lost"},
                             Loss{&self.rejected, "samples found no room and were dropped"},
                             Loss{&self.deadlineMissed, "times the deadline was missed"}}) {
        count = loss.event->take(detail);
        if (count > 0) {
            setError(text, "%" PRIu32 " %s", count, loss.text);
            return true;
        }
    }
    return false;
}

} // namespace

/// Once the entity has gone no thread of the engine comes in any more.
DDS_DataReader::~DDS_DataReader()
{
    if (topic.arrivals != nullptr) {
        topic.arrivals->close();
    }
    delist(*this);
    if (entity.get() > 0) {
        drain(*this);
    }
    entity.reset();
}

DDS_DataReader *DDS_DataReader_new(DDS_DomainParticipant *participant, const char *topic,
                                   const char *typeName, const DDS_TypeCode *type,
                                   const DDS_EndpointQos *qos, DDS_OnDataFn onData, void *argument,
                                   DDS_ErrorText *error) noexcept
try {
    return makeReader({participant, topic, typeName, type, qos, false}, onData, argument, error);
} catch (const std::system_error &) {
    setError(error, "no thread for a reader");
    return nullptr;
} catch (...) {
    setError(error, "no memory for a reader");
    return nullptr;
}

uint64_t DDS_DataReader_discard(DDS_DataReader *self) noexcept
try {
    self->topic.arrivals->close();
    delist(*self);
    uint64_t count = self->block == nullptr ? 0 : samplesOf(*self->block);
    for (const auto &block : self->ahead) {
        count += samplesOf(*block);
    }
    count += drain(*self);
    return count + self->topic.arrivals->lateCount();
} catch (...) {
    return 0;
}

void DDS_DataReader_delete(DDS_DataReader *self) noexcept
{
    delete self;
}

int32_t DDS_DataReader_take(DDS_DataReader *self, DDS_DynamicData *const *samples,
                            DDS_SampleInfo *const *infos, int32_t maximum, int64_t *room,
                            DDS_ErrorText *error) noexcept
try {
    return takeSamples(*self, samples, infos, maximum, room, error);
} catch (...) {
    setError(error, "no memory for what was received");
    return -1;
}

int32_t DDS_DataReader_take_notice(DDS_DataReader *self, DDS_ErrorText *text) noexcept
try {
    return noticeOf(*self, text) ? 1 : 0;
} catch (...) {
    return 0;
}

int32_t DDS_DataReader_get_mismatches(DDS_DataReader *self, DDS_ErrorText *text) noexcept
try {
    const std::string why =
        mismatchesOf({self->participant, self->entity.get(), self->subscriber.get(), false});
    setError(text, "%s", why.c_str());
    return why.empty() ? 0 : 1;
} catch (...) {
    return 0;
}

void DDS_DataReader_get_statistics(DDS_DataReader *self, DDS_ReaderStatistics *statistics) noexcept
{
    statistics->taken = self->taken.load(std::memory_order_relaxed);
    statistics->malformed = self->topic.arrivals->rejected();
    statistics->lost = self->lostEver.load(std::memory_order_relaxed);
    statistics->matched = self->matched.load(std::memory_order_relaxed);
}
