// See endpoint.h.
#include "endpoint.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <mutex>
#include <unordered_map>

#include "qddscdr/error_text.h"

namespace qddsdomain {

namespace {

using qddscdr::setError;

Qos newQos()
{
    return Qos(dds_create_qos());
}

Qos commonQos(const DDS_EndpointQos &qos)
{
    Qos made = newQos();
    dds_qset_durability(made.get(), qos.durability == DDS_TRANSIENT_LOCAL_DURABILITY
                                        ? DDS_DURABILITY_TRANSIENT_LOCAL
                                        : DDS_DURABILITY_VOLATILE);
    if (qos.historyDepth == 0) {
        dds_qset_history(made.get(), DDS_HISTORY_KEEP_ALL, 0);
    } else {
        dds_qset_history(made.get(), DDS_HISTORY_KEEP_LAST, qos.historyDepth);
    }
    dds_qset_deadline(made.get(), qos.deadline == 0 ? DDS_INFINITY : qos.deadline);
    dds_qset_ownership(made.get(), qos.exclusiveOwnership != 0 ? DDS_OWNERSHIP_EXCLUSIVE
                                                               : DDS_OWNERSHIP_SHARED);
    constexpr std::array<dds_ignorelocal_kind_t, 3> ignoreKinds = {
        DDS_IGNORELOCAL_NONE, DDS_IGNORELOCAL_PARTICIPANT, DDS_IGNORELOCAL_PROCESS};
    dds_qset_ignorelocal(made.get(), ignoreKinds[static_cast<size_t>(qos.ignoreLocal)]);
    // The numbers are those of the engine.
    dds_qset_liveliness(made.get(), static_cast<dds_liveliness_kind_t>(qos.liveliness),
                        qos.livelinessLease == 0 ? DDS_INFINITY : qos.livelinessLease);
    dds_qset_destination_order(made.get(),
                               static_cast<dds_destination_order_kind_t>(qos.destinationOrder));
    dds_qset_latency_budget(made.get(), qos.latencyBudget);
    if (qos.userData != nullptr) {
        dds_qset_userdata(made.get(), qos.userData, std::strlen(qos.userData));
    }
    return made;
}

static_assert(DDS_LIVELINESS_MANUAL_BY_TOPIC == static_cast<int>(DDS_MANUAL_BY_TOPIC_LIVELINESS) &&
              DDS_DESTINATIONORDER_BY_SOURCE_TIMESTAMP ==
                  static_cast<int>(DDS_BY_SOURCE_DESTINATION_ORDER) &&
              DDS_PRESENTATION_GROUP == static_cast<int>(DDS_GROUP_PRESENTATION));

dds_reliability_kind_t reliability(const DDS_EndpointQos &qos)
{
    return qos.reliable != 0 ? DDS_RELIABILITY_RELIABLE : DDS_RELIABILITY_BEST_EFFORT;
}

/// The figures that the engine would take for something else.
bool checkQos(const DDS_EndpointQos &qos, DDS_ErrorText *error)
{
    struct Figure {
        const char *name;
        int64_t value;
    };
    const std::array<Figure, 10> figures = {{{"history depth", qos.historyDepth},
                                             {"durable depth", qos.durableDepth},
                                             {"most samples", qos.maxSamples},
                                             {"deadline", qos.deadline},
                                             {"lifespan", qos.lifespan},
                                             {"time-based filter", qos.timeBasedFilter},
                                             {"write timeout", qos.writeTimeout},
                                             {"ownership strength", qos.ownershipStrength},
                                             {"liveliness lease", qos.livelinessLease},
                                             {"latency budget", qos.latencyBudget}}};
    for (const Figure &figure : figures) {
        if (figure.value < 0) {
            setError(error, "%s is negative", figure.name);
            return false;
        }
    }
    if (qos.maxSamples != 0 && qos.historyDepth > qos.maxSamples) {
        setError(error, "history depth %d is above the most samples kept, %d", qos.historyDepth,
                 qos.maxSamples);
        return false;
    }
    if (static_cast<unsigned>(qos.ignoreLocal) > DDS_IGNORE_LOCAL_PROCESS) {
        setError(error, "unknown kind %d of ignoring local endpoints", qos.ignoreLocal);
        return false;
    }
    if (static_cast<unsigned>(qos.liveliness) > DDS_MANUAL_BY_TOPIC_LIVELINESS ||
        static_cast<unsigned>(qos.destinationOrder) > DDS_BY_SOURCE_DESTINATION_ORDER ||
        static_cast<unsigned>(qos.presentation) > DDS_GROUP_PRESENTATION) {
        setError(error, "unknown kind of liveliness, destination order or presentation");
        return false;
    }
    if (qos.representation != DDS_XCDR1_REPRESENTATION &&
        qos.representation != DDS_XCDR2_REPRESENTATION) {
        setError(error, "unknown data representation %d", qos.representation);
        return false;
    }
    return true;
}

} // namespace

bool checkRequest(const EndpointRequest &request, DDS_ErrorText *error)
{
    if (request.participant == nullptr || request.topic == nullptr || request.topic[0] == '\0' ||
        request.type == nullptr || request.qos == nullptr) {
        setError(error,
                 "a participant, a topic name, a type and its quality of service are needed");
        return false;
    }
    if (DDS_TypeCode_get_kind(DDS_TypeCode_resolve(request.type)) != DDS_TK_STRUCT) {
        setError(error, "topic \"%s\": its type is no struct", request.topic);
        return false;
    }
    return checkQos(*request.qos, error);
}

namespace {

/// One for all endpoints of a type, which lives as long as the type. Null with the error filled
/// when there is none.
const TypeDescription *descriptionOf(const WireType &wire, DDS_ErrorText *error)
{
    static std::mutex mutex;
    static auto &made = *new std::unordered_map<const WireType *, TypeDescription>;
    const std::lock_guard<std::mutex> guard(mutex);
    const auto found = made.find(&wire);
    if (found != made.end()) {
        return &found->second;
    }
    TypeDescription description;
    if (!describeType(wire.type(), description, error)) {
        return nullptr;
    }
    return &made.emplace(&wire, std::move(description)).first->second;
}

/// A reader of an opaque type takes what any type of that name has; a writer announces the type
/// that the messages came with.
bool describe(const EndpointRequest &request, const WireType &wire, AnnouncedType &announced,
              DDS_ErrorText *error)
{
    const DDS_OpaqueType *const opaque = wire.opaque();
    if (opaque != nullptr) {
        if (request.isWriter) {
            announced = {opaque->information, opaque->informationSize, opaque->mapping,
                         opaque->mappingSize};
        }
        return true;
    }
    const TypeDescription *const description = descriptionOf(wire, error);
    if (description != nullptr) {
        announced = {description->typeInformation.data(), description->typeInformation.size(),
                     description->typeMapping.data(), description->typeMapping.size()};
    }
    return description != nullptr;
}

} // namespace

Topic makeEndpointTopic(const EndpointRequest &request, Representation representation,
                        const WireType *&wire, DDS_ErrorText *error)
{
    const DDS_TypeCode *type = DDS_TypeCode_resolve(request.type);
    wire = WireType::of(type, error);
    TopicRequest wanted{request.topic, request.typeName, wire, representation, {}};
    if (wanted.typeName == nullptr || wanted.typeName[0] == '\0') {
        wanted.typeName = DDS_TypeCode_get_name(type);
    }
    if (wire == nullptr ||
        (request.qos->matchByNameOnly == 0 && !describe(request, *wire, wanted.announced, error))) {
        return {};
    }
    const EngineComplaints complaints;
    Topic topic = makeTopic(request.participant->entity.get(), wanted);
    const dds_entity_t made = topic.entity.get();
    if (made == engine::badParameter) {
        setError(error, "the engine does not take the topic name \"%s\"", request.topic);
    } else if (made < 0) {
        setError(error, "the engine makes no topic \"%s\": %s", request.topic,
                 complaints.text(made).c_str());
    }
    return topic;
}

Entities makeEntities(const EndpointRequest &request, const Makers &makers, const Topic &topic,
                      const Qos &qos, const Listener &listener, DDS_ErrorText *error)
{
    const EngineComplaints complaints;
    Entities made;
    made.group = engine::Entity(
        makers.group(request.participant->entity.get(), groupQos(*request.qos).get(), nullptr));
    made.endpoint = engine::Entity(
        makers.endpoint(made.group.get(), topic.entity.get(), qos.get(), listener.get()));
    const dds_return_t code = std::min(made.group.get(), made.endpoint.get());
    if (code < 0) {
        setError(error, "the engine makes no %s of topic \"%s\": %s", makers.what, request.topic,
                 complaints.text(code).c_str());
    }
    return made;
}

Qos groupQos(const DDS_EndpointQos &qos)
{
    Qos made = newQos();
    const int32_t count = DDS_StringSeq_get_length(qos.partitions);
    std::vector<const char *> names;
    names.reserve(static_cast<size_t>(count));
    for (int32_t i = 0; i < count; ++i) {
        names.push_back(*DDS_StringSeq_get_reference(qos.partitions, i));
    }
    dds_qset_presentation(made.get(),
                          static_cast<dds_presentation_access_scope_kind_t>(qos.presentation),
                          qos.coherentAccess != 0, qos.orderedAccess != 0);
    if (!names.empty()) {
        dds_qset_partition(made.get(), static_cast<uint32_t>(names.size()), names.data());
    }
    return made;
}

std::set<std::string> partitionsOf(const dds_qos_t *qos)
{
    std::set<std::string> partitions;
    uint32_t count = 0;
    char **names = nullptr;
    (void)dds_qget_partition(qos, &count, &names);
    for (uint32_t i = 0; i < count; ++i) {
        partitions.emplace(names[i]);
        dds_free(names[i]);
    }
    dds_free(names);
    if (partitions.empty()) {
        partitions.emplace();
    }
    return partitions;
}

std::set<std::string> partitionsOf(const DDS_EndpointQos &qos)
{
    return partitionsOf(groupQos(qos).get());
}

Qos readerQos(const DDS_EndpointQos &qos)
{
    Qos made = commonQos(qos);
    dds_qset_reliability(made.get(), reliability(qos), 0);
    const int32_t most = qos.maxSamples == 0 ? DDS_LENGTH_UNLIMITED : qos.maxSamples;
    dds_qset_resource_limits(made.get(), most, DDS_LENGTH_UNLIMITED, DDS_LENGTH_UNLIMITED);
    const std::array<dds_data_representation_id_t, 2> both = {DDS_DATA_REPRESENTATION_XCDR1,
                                                              DDS_DATA_REPRESENTATION_XCDR2};
    dds_qset_data_representation(made.get(), both.size(), both.data());
    return made;
}

Qos writerQos(const DDS_EndpointQos &qos, int64_t blocking)
{
    Qos made = commonQos(qos);
    dds_qset_reliability(made.get(), reliability(qos), blocking);
    dds_qset_lifespan(made.get(), qos.lifespan == 0 ? DDS_INFINITY : qos.lifespan);
    dds_qset_ownership_strength(made.get(), qos.ownershipStrength);
    dds_qset_transport_priority(made.get(), qos.transportPriority);
    dds_qset_writer_data_lifecycle(made.get(), qos.autodispose != 0);
    if (qos.durability == DDS_TRANSIENT_LOCAL_DURABILITY) {
        const int32_t depth = qos.durableDepth != 0 ? qos.durableDepth : qos.historyDepth;
        dds_qset_durability_service(
            made.get(), 0, depth == 0 ? DDS_HISTORY_KEEP_ALL : DDS_HISTORY_KEEP_LAST,
            std::max(depth, 1), DDS_LENGTH_UNLIMITED, DDS_LENGTH_UNLIMITED, DDS_LENGTH_UNLIMITED);
    }
    const dds_data_representation_id_t one = qos.representation == DDS_XCDR2_REPRESENTATION
                                                 ? DDS_DATA_REPRESENTATION_XCDR2
                                                 : DDS_DATA_REPRESENTATION_XCDR1;
    dds_qset_data_representation(made.get(), 1, &one);
    return made;
}

const char *policyName(uint32_t policy)
{
    switch (policy) {
    case DDS_DURABILITY_QOS_POLICY_ID:
        return "durability";
    case DDS_PRESENTATION_QOS_POLICY_ID:
        return "presentation";
    case DDS_DEADLINE_QOS_POLICY_ID:
        return "deadline";
    case DDS_LATENCYBUDGET_QOS_POLICY_ID:
        return "latency budget";
    case DDS_OWNERSHIP_QOS_POLICY_ID:
        return "ownership";
    case DDS_LIVELINESS_QOS_POLICY_ID:
        return "liveliness";
    case DDS_RELIABILITY_QOS_POLICY_ID:
        return "reliability";
    case DDS_DESTINATIONORDER_QOS_POLICY_ID:
        return "destination order";
    case DDS_TYPE_CONSISTENCY_ENFORCEMENT_QOS_POLICY_ID:
        return "type consistency (its type differs)";
    case DDS_DATA_REPRESENTATION_QOS_POLICY_ID:
        return "data representation";
    default:
        return "an unnamed policy";
    }
}

} // namespace qddsdomain
