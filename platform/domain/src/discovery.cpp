// Discovery: see qddsdomain/discovery.h. One thread waits for the engine's built-in topics and asks
// for types; a guard condition ends it.
#include "discovery.h"

#include <algorithm>
#include <cstring>
#include <tuple>

#include "endpoint.h"
#include "qddscdr/error_text.h"
#include "qddscore/log.h"

using namespace qddsdomain;
using qddscdr::setError;

namespace {

constexpr size_t atOnce = 64;
Guid guidOf(const dds_guid_t &key)
{
    Guid guid;
    std::memcpy(guid.data(), key.v, guid.size());
    return guid;
}

/// From the entity kind at the end of the GUID (RTPS 2.5, 9.3.1.2).
bool isKeyed(const Guid &guid)
{
    const uint8_t kind = guid[15] & 0x3FU;
    return kind == 0x02 || kind == 0x07;
}

int64_t limitOf(dds_duration_t time)
{
    return time == DDS_INFINITY ? 0 : time;
}

/// Samples of each instance that a late reader gets. A peer that keeps none apart for them
/// announces the engine's default of one.
int32_t durableDepthOf(const dds_qos_t &qos)
{
    dds_history_kind_t kind = DDS_HISTORY_KEEP_LAST;
    int32_t depth = 1;
    (void)dds_qget_durability_service(&qos, nullptr, &kind, &depth, nullptr, nullptr, nullptr);
    return kind == DDS_HISTORY_KEEP_ALL ? 0 : std::max(depth, 1);
}

/// The first one that an endpoint names: a writer sends in it.
DDS_DataRepresentation representationOf(const dds_qos_t &qos)
{
    uint32_t count = 0;
    dds_data_representation_id_t *values = nullptr;
    (void)dds_qget_data_representation(&qos, &count, &values);
    const bool second = count > 0 && values[0] == DDS_DATA_REPRESENTATION_XCDR2;
    dds_free(values);
    return second ? DDS_XCDR2_REPRESENTATION : DDS_XCDR1_REPRESENTATION;
}

DDS_DiscoveredQos qosOf(const dds_qos_t &qos)
{
    DDS_DiscoveredQos made{};
    dds_reliability_kind_t reliability = DDS_RELIABILITY_BEST_EFFORT;
    dds_durability_kind_t durability = DDS_DURABILITY_VOLATILE;
    dds_ownership_kind_t ownership = DDS_OWNERSHIP_SHARED;
    dds_duration_t deadline = DDS_INFINITY;
    dds_duration_t lifespan = DDS_INFINITY;
    dds_duration_t lease = DDS_INFINITY;
    dds_liveliness_kind_t liveliness = DDS_LIVELINESS_AUTOMATIC;
    dds_destination_order_kind_t order = DDS_DESTINATIONORDER_BY_RECEPTION_TIMESTAMP;
    dds_presentation_access_scope_kind_t scope = DDS_PRESENTATION_INSTANCE;
    bool coherent = false;
    bool ordered = false;
    // Whatever the peer does not announce keeps its default.
    (void)dds_qget_reliability(&qos, &reliability, nullptr);
    (void)dds_qget_durability(&qos, &durability);
    (void)dds_qget_ownership(&qos, &ownership);
    (void)dds_qget_ownership_strength(&qos, &made.ownershipStrength);
    (void)dds_qget_deadline(&qos, &deadline);
    (void)dds_qget_lifespan(&qos, &lifespan);
    (void)dds_qget_liveliness(&qos, &liveliness, &lease);
    (void)dds_qget_destination_order(&qos, &order);
    (void)dds_qget_presentation(&qos, &scope, &coherent, &ordered);
    (void)dds_qget_latency_budget(&qos, &made.latencyBudget);
    made.reliable = reliability == DDS_RELIABILITY_RELIABLE ? 1 : 0;
    made.durability = durability == DDS_DURABILITY_VOLATILE ? DDS_VOLATILE_DURABILITY
                                                            : DDS_TRANSIENT_LOCAL_DURABILITY;
    made.durableDepth = durableDepthOf(qos);
    made.deadline = limitOf(deadline);
    made.lifespan = limitOf(lifespan);
    made.exclusiveOwnership = ownership == DDS_OWNERSHIP_EXCLUSIVE ? 1 : 0;
    made.liveliness = static_cast<DDS_LivelinessKind>(liveliness);
    made.livelinessLease = limitOf(lease);
    made.destinationOrder = static_cast<DDS_DestinationOrderKind>(order);
    made.presentation = static_cast<DDS_PresentationScope>(scope);
    made.coherentAccess = coherent ? 1 : 0;
    made.orderedAccess = ordered ? 1 : 0;
    made.latencyBudget = limitOf(made.latencyBudget);
    made.representation = representationOf(qos);
    return made;
}

RemoteEndpoint endpointOf(const dds_builtintopic_endpoint_t &sample, bool isWriter)
{
    RemoteEndpoint made;
    made.guid = guidOf(sample.key);
    made.isWriter = isWriter;
    made.topic = sample.topic_name;
    made.typeName = sample.type_name;
    made.partitions = partitionsOf(sample.qos);
    made.keyed = isKeyed(made.guid);
    made.qos = qosOf(*sample.qos);
    return made;
}

bool isSame(const DDS_DiscoveredQos &a, const DDS_DiscoveredQos &b)
{
    const auto all = [](const DDS_DiscoveredQos &qos) {
        return std::tie(qos.reliable, qos.durability, qos.durableDepth, qos.deadline, qos.lifespan,
                        qos.exclusiveOwnership, qos.ownershipStrength, qos.liveliness,
                        qos.livelinessLease, qos.destinationOrder, qos.presentation,
                        qos.coherentAccess, qos.orderedAccess, qos.latencyBudget,
                        qos.representation);
    };
    return all(a) == all(b);
}

} // namespace

DDS_Discovery::~DDS_Discovery()
{
    if (thread.joinable()) {
        (void)dds_set_guardcondition(stop.get(), true);
        thread.join();
    }
}

/// Whatever part of this process a participant belongs to. What was seen once stays known, as
/// endpoints may be reported when their participant has gone.
bool DDS_Discovery::isOwn(const dds_guid_t &key)
{
    if (ownParticipants.count(guidOf(key)) != 0) {
        return true;
    }
    const auto domain = static_cast<dds_domainid_t>(*participant->domain);
    for (const dds_guid_t &own : engine::ownParticipants(domain)) {
        ownParticipants.insert(guidOf(own));
    }
    return ownParticipants.count(guidOf(key)) != 0;
}

void DDS_Discovery::report(DDS_DiscoveryEventKind kind, const RemoteEndpoint &endpoint)
{
    const std::lock_guard<std::mutex> guard(mutex);
    events.push_back({kind, endpoint});
    reported = true;
}

void DDS_Discovery::see(dds_builtintopic_endpoint_t &sample, dds_instance_handle_t handle,
                        bool isWriter)
{
    if (isOwn(sample.participant_key)) {
        return;
    }
    RemoteEndpoint seen = endpointOf(sample, isWriter);
    const auto known = endpoints.find(handle);
    if (known != endpoints.end()) {
        RemoteEndpoint &endpoint = known->second;
        if (endpoint.partitions != seen.partitions || !isSame(endpoint.qos, seen.qos)) {
            endpoint.partitions = std::move(seen.partitions);
            endpoint.qos = seen.qos;
            if (endpoint.announced) {
                report(DDS_ENDPOINT_CHANGED, endpoint);
            }
        }
        return;
    }
    EquivalenceHash hash;
    if (typeOf(sample, hash)) {
        std::weak_ptr<ArrivingType> &there = types[hash];
        seen.arriving = there.lock();
        if (seen.arriving == nullptr) {
            seen.arriving = std::make_shared<ArrivingType>(hash, passageOf(sample));
            there = seen.arriving;
        }
    }
    seen.patience = Clock::now() + typeTimeout;
    if (seen.arriving != nullptr) {
        seen.arriving->patience = seen.patience;
    }
    endpoints.emplace(handle, std::move(seen));
}

void DDS_Discovery::lose(dds_instance_handle_t handle)
{
    const auto known = endpoints.find(handle);
    if (known == endpoints.end()) {
        return;
    }
    if (known->second.announced) {
        report(DDS_ENDPOINT_GONE, known->second);
    }
    const std::shared_ptr<ArrivingType> type = known->second.arriving;
    endpoints.erase(known);
    if (type != nullptr && type.use_count() == 1) {
        types.erase(type->hash);
    }
}

/// A sample of one that has gone carries nothing but the handle.
void DDS_Discovery::takeFrom(dds_entity_t reader, bool ofWriters)
{
    std::array<void *, atOnce> samples{};
    std::array<dds_sample_info_t, atOnce> infos;
    for (;;) {
        const dds_return_t count =
            dds_take(reader, samples.data(), infos.data(), samples.size(), atOnce);
        if (count <= 0) {
            return;
        }
        for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
            if (infos[i].instance_state != DDS_IST_ALIVE) {
                lose(infos[i].instance_handle);
            } else if (infos[i].valid_data) {
                see(*static_cast<dds_builtintopic_endpoint_t *>(samples[i]),
                    infos[i].instance_handle, ofWriters);
            }
        }
        (void)dds_return_loan(reader, samples.data(), count);
    }
}

void DDS_Discovery::run()
{
    for (bool stopped = false; !stopped;) {
        dds_duration_t pause = DDS_MSECS(500); // if memory is short
        try {
            takeFrom(writers.get(), true);
            takeFrom(readers.get(), false);
            pause = resolveTypes();
        } catch (...) {
            QELLog_printContextAndMsg("DDS_Discovery", &QEL_LOG_ANY_FAILURE_s,
                                      "no memory for what was discovered");
        }
        if (reported) {
            reported = false;
            if (onChange != nullptr) {
                onChange(argument);
            }
        }
        (void)dds_waitset_wait(waitset.get(), nullptr, 0, pause);
        (void)dds_read_guardcondition(stop.get(), &stopped);
    }
}

namespace {

DDS_Discovery *makeDiscovery(DDS_DomainParticipant &participant, DDS_DiscoveredTypes types,
                             int64_t typeTimeout, DDS_OnDiscoveryFn onChange, void *argument,
                             DDS_ErrorText *error)
{
    auto made = std::make_unique<DDS_Discovery>();
    made->participant = &participant;
    made->passesTypes = types == DDS_PASS_TYPES;
    made->typeTimeout = std::chrono::nanoseconds(std::max<int64_t>(typeTimeout, 0));
    made->onChange = onChange;
    made->argument = argument;
    const EngineComplaints complaints;
    const dds_entity_t parent = participant.entity.get();
    made->writers = engine::Entity(
        dds_create_reader(parent, DDS_BUILTIN_TOPIC_DCPSPUBLICATION, nullptr, nullptr));
    made->readers = engine::Entity(
        dds_create_reader(parent, DDS_BUILTIN_TOPIC_DCPSSUBSCRIPTION, nullptr, nullptr));
    made->stop = engine::Entity(dds_create_guardcondition(parent));
    made->waitset = engine::Entity(dds_create_waitset(parent));
    const dds_entity_t set = made->waitset.get();
    const dds_return_t worst =
        std::min({made->writers.get(), made->readers.get(), made->stop.get(), set,
                  dds_set_status_mask(made->writers.get(), DDS_DATA_AVAILABLE_STATUS),
                  dds_set_status_mask(made->readers.get(), DDS_DATA_AVAILABLE_STATUS),
                  dds_waitset_attach(set, made->writers.get(), 0),
                  dds_waitset_attach(set, made->readers.get(), 0),
                  dds_waitset_attach(set, made->stop.get(), 0)});
    if (worst < 0) {
        setError(error, "the engine does not let discovery be watched: %s",
                 complaints.text(worst).c_str());
        return nullptr;
    }
    made->thread = std::thread(&DDS_Discovery::run, made.get());
    return made.release();
}

} // namespace

DDS_Discovery *DDS_Discovery_new(DDS_DomainParticipant *participant, DDS_DiscoveredTypes types,
                                 int64_t typeTimeout, DDS_OnDiscoveryFn onChange, void *argument,
                                 DDS_ErrorText *error) noexcept
try {
    if (participant == nullptr) {
        setError(error, "no participant");
        return nullptr;
    }
    return makeDiscovery(*participant, types, typeTimeout, onChange, argument, error);
} catch (...) {
    setError(error, "no memory or no thread for a discovery");
    return nullptr;
}

void DDS_Discovery_delete(DDS_Discovery *self) noexcept
{
    delete self;
}

const DDS_DiscoveredEndpoint *DDS_Discovery_take(DDS_Discovery *self,
                                                 DDS_DiscoveryEventKind *kind) noexcept
try {
    ShownEndpoint &shown = self->shown;
    {
        const std::lock_guard<std::mutex> guard(self->mutex);
        if (self->events.empty()) {
            return nullptr;
        }
        *kind = self->events.front().kind;
        shown.endpoint = std::move(self->events.front().endpoint);
        self->events.pop_front();
    }
    RemoteEndpoint &from = shown.endpoint;
    shown.partitions.clear();
    for (const std::string &partition : from.partitions) {
        shown.partitions.push_back(const_cast<char *>(partition.c_str()));
    }
    DDS_DiscoveredEndpoint &record = shown.record;
    std::copy(from.guid.begin(), from.guid.end(), record.guid);
    record.isWriter = from.isWriter ? 1 : 0;
    record.topic = from.topic.c_str();
    record.typeName = from.typeName.c_str();
    record.type = from.type;
    record.opaque = from.opaque;
    record.typeProblem = from.type == nullptr ? from.typeProblem.c_str() : nullptr;
    const auto count = static_cast<int32_t>(shown.partitions.size());
    record.partitions = {shown.partitions.data(), count, count};
    record.isKeyed = from.keyed ? 1 : 0;
    record.qos = from.qos;
    return &record;
} catch (...) {
    return nullptr;
}
