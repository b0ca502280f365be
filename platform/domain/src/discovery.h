// What a discovery knows. All but the queue of events belongs to its thread.
#ifndef QDDSDOMAIN_SRC_DISCOVERY_H
#define QDDSDOMAIN_SRC_DISCOVERY_H

#include "engine.h"

#include <array>
#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "participant.h"
#include "qddsdomain/discovery.h"
#include "type_object.h"

namespace qddsdomain {

using Guid = std::array<uint8_t, 16>;
using Clock = std::chrono::steady_clock;

/// A type that an endpoint announces by its hash, on its way here. Endpoints of the same type share
/// it.
struct ArrivingType {
    EquivalenceHash hash;
    TypeAssembler assembler;
    TypeAssembler::State state = TypeAssembler::State::incomplete;
    /// For endpoints whose samples nobody looks into, which are announced by then.
    TypePassage passage;
    Clock::time_point patience;

    ArrivingType(const EquivalenceHash &root, TypePassage announced)
        : hash(root), assembler(root), passage(std::move(announced))
    {
    }
};

/// One remote endpoint, as it is or as it was when an event was made.
struct RemoteEndpoint {
    Guid guid{};
    bool isWriter = false;
    std::string topic, typeName;
    std::set<std::string> partitions; // at least one; the default one is ""
    bool keyed = false;
    DDS_DiscoveredQos qos{};
    const DDS_TypeCode *type = nullptr;
    const DDS_TypeCode *opaque = nullptr;
    std::string typeProblem;

    std::shared_ptr<ArrivingType> arriving; // null: it announces no type
    Clock::time_point patience;             // until then it is not announced without its type
    bool announced = false;
};

struct DiscoveryEvent {
    DDS_DiscoveryEventKind kind;
    RemoteEndpoint endpoint;
};

/// What a user is looking at.
struct ShownEndpoint {
    RemoteEndpoint endpoint;
    std::vector<char *> partitions;
    DDS_DiscoveredEndpoint record{};
};

} // namespace qddsdomain

struct DDS_Discovery {
    DDS_DomainParticipant *participant = nullptr;
    std::chrono::nanoseconds typeTimeout{0};
    bool passesTypes = false; // and never looks into them
    DDS_OnDiscoveryFn onChange = nullptr;
    void *argument = nullptr;

    std::map<dds_instance_handle_t, qddsdomain::RemoteEndpoint> endpoints;
    std::map<qddsdomain::EquivalenceHash, std::weak_ptr<qddsdomain::ArrivingType>> types;
    std::set<qddsdomain::Guid> ownParticipants;
    bool reported = false; // events since onChange last ran

    std::mutex mutex;
    std::deque<qddsdomain::DiscoveryEvent> events; // under the mutex
    qddsdomain::ShownEndpoint shown;               // of the owner's thread

    qddsdomain::engine::Entity writers, readers, stop, waitset;
    std::thread thread;

    DDS_Discovery() = default;
    DDS_Discovery(const DDS_Discovery &) = delete;
    DDS_Discovery &operator=(const DDS_Discovery &) = delete;
    ~DDS_Discovery();

    void run();
    bool isOwn(const dds_guid_t &key);
    void takeFrom(dds_entity_t reader, bool ofWriters);
    void see(dds_builtintopic_endpoint_t &sample, dds_instance_handle_t handle, bool isWriter);
    void lose(dds_instance_handle_t handle);
    bool advance(qddsdomain::ArrivingType &type);
    bool isThere(qddsdomain::ArrivingType &type);
    void makeOpaque(qddsdomain::RemoteEndpoint &endpoint);
    dds_duration_t resolveTypes();
    void report(DDS_DiscoveryEventKind kind, const qddsdomain::RemoteEndpoint &endpoint);
};

#endif
