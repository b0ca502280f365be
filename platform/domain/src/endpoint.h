// What readers and writers have in common: quality of service, and notices for people.
#ifndef QDDSDOMAIN_SRC_ENDPOINT_H
#define QDDSDOMAIN_SRC_ENDPOINT_H

#include "engine.h"

#include <atomic>
#include <memory>
#include <set>
#include <string>

#include "participant.h"
#include "qddsc/sample_info.h"
#include "qddsdomain/qos.h"
#include "sertype.h"

namespace qddsdomain {

struct QosDelete {
    void operator()(dds_qos_t *qos) const
    {
        dds_delete_qos(qos);
    }
};
using Qos = std::unique_ptr<dds_qos_t, QosDelete>;

struct ListenerDelete {
    void operator()(dds_listener_t *listener) const
    {
        dds_delete_listener(listener);
    }
};
using Listener = std::unique_ptr<dds_listener_t, ListenerDelete>;

/// What a reader or writer is made from.
struct EndpointRequest {
    DDS_DomainParticipant *participant;
    const char *topic;
    const char *typeName;
    const DDS_TypeCode *type;
    const DDS_EndpointQos *qos;
    bool isWriter;
};

/// False, with the error filled, when something is missing or out of range.
bool checkRequest(const EndpointRequest &request, DDS_ErrorText *error);

/// The topic for one endpoint, and what its samples are on the wire; null entity with the error
/// filled on failure.
Topic makeEndpointTopic(const EndpointRequest &request, Representation representation,
                        const WireType *&wire, DDS_ErrorText *error);

/// An endpoint, below a publisher or subscriber of its own.
struct Entities {
    engine::Entity group, endpoint;
};
/// The engine's functions for them, and what people call the endpoint.
struct Makers {
    const char *what;
    decltype(&dds_create_publisher) group;
    decltype(&dds_create_writer) endpoint;
};
/// No positive endpoint, with the error filled, when the engine rejects.
Entities makeEntities(const EndpointRequest &request, const Makers &makers, const Topic &topic,
                      const Qos &qos, const Listener &listener, DDS_ErrorText *error);

/// Publishers and subscribers: partitions.
Qos groupQos(const DDS_EndpointQos &qos);
/// At least one; the default one is "".
std::set<std::string> partitionsOf(const dds_qos_t *qos);
std::set<std::string> partitionsOf(const DDS_EndpointQos &qos);
Qos readerQos(const DDS_EndpointQos &qos);
/// `blocking`: nanoseconds that the engine lets one write wait.
Qos writerQos(const DDS_EndpointQos &qos, int64_t blocking);

/// Events that the engine's threads count and that the endpoint's user gets a notice of, once, in
/// words.
struct Event {
    std::atomic<uint32_t> count{0};
    std::atomic<uint32_t> detail{0};

    void add(int32_t change, uint32_t what = 0)
    {
        detail.store(what, std::memory_order_relaxed);
        count.fetch_add(static_cast<uint32_t>(change), std::memory_order_release);
    }
    /// How many since it was last asked.
    uint32_t take(uint32_t &what)
    {
        const uint32_t taken = count.exchange(0, std::memory_order_acquire);
        what = detail.load(std::memory_order_relaxed);
        return taken;
    }
};

/// "durability", "reliability", ...
const char *policyName(uint32_t policy);

} // namespace qddsdomain

#endif
