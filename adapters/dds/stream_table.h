// Remote endpoints of one direction, put together to streams: one for a topic and a set of
// partitions. Holds no lock and knows no engine object.
#ifndef FERRYADAPTER_DDS_STREAM_TABLE_H
#define FERRYADAPTER_DDS_STREAM_TABLE_H

#include <array>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "qddsdomain/discovery.h"
#include "stream_qos.h"

namespace ferrydds {

/// A topic, and the partitions that endpoints are in: in order, at least one, the default one is
/// "".
using StreamKey = std::pair<std::string, std::vector<std::string>>;

/// What has changed in one stream, for the host.
struct StreamChange {
    StreamKey key;
    std::string typeName;
    const DDS_TypeCode *type = nullptr;
    /// Why there is no type, or an opaque one only; "" when there is one.
    std::string typeProblem;
    QosProperties properties;
    bool disposed = false;
    /// The host does not know the stream, or knows that it has gone.
    bool isNew = false;
};

class StreamTable {
public:
    explicit StreamTable(Direction direction) : direction_(direction) {}

    /// One event of the engine.
    void apply(DDS_DiscoveryEventKind kind, const DDS_DiscoveredEndpoint &endpoint);

    /// What has changed since the last call: what has gone before what is there.
    std::vector<StreamChange> takeChanges();
    /// Whether that would have a stream that the host does not know yet.
    bool anyNew() const;

    /// What the topic's endpoints have in common, whatever their partitions; nothing when there are
    /// none.
    std::optional<DDS_DiscoveredQos> qosOf(const std::string &topic) const;

private:
    using Guid = std::array<std::uint8_t, 16>;
    struct StreamEndpoint {
        Guid guid;
        std::string typeName;
        const DDS_TypeCode *type;
        std::string typeProblem;
        DDS_DiscoveredQos qos;
    };
    /// Endpoints in the order of their appearance: the first one with a type speaks for the stream,
    /// so a later one that disagrees changes nothing.
    using Endpoints = std::vector<StreamEndpoint>;

    void put(const StreamKey &key, StreamEndpoint endpoint);
    void drop(const StreamKey &key, const Guid &guid);
    StreamChange summaryOf(const StreamKey &key, const Endpoints &endpoints) const;

    const Direction direction_;
    std::map<StreamKey, Endpoints> streams_;
    std::map<Guid, StreamKey> keys_;
    /// The last change that was reported of each stream that the host believes to be there.
    std::map<StreamKey, StreamChange> reported_;
    std::set<StreamKey> changed_;
};

} // namespace ferrydds

#endif
