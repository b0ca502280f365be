// Remote endpoints of one direction, put together to streams: one a topic. Holds no lock and knows
// no engine object.
#ifndef FERRYADAPTER_DDS_STREAM_TABLE_H
#define FERRYADAPTER_DDS_STREAM_TABLE_H

#include <array>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "qddsdomain/discovery.h"

namespace ferrydds {

/// What the host is to be told of one stream.
struct StreamNews {
    std::string topic;
    std::string typeName;
    const DDS_TypeCode *type = nullptr;
    /// Why there is no type; "" when there is one.
    std::string typeProblem;
    /// Sorted; empty when all endpoints are in the default partition and in no other.
    std::vector<std::string> partitions;
    bool disposed = false;
    /// The stream has not been told of before, or was told to have gone.
    bool isNew = false;
};

/// What all endpoints of a topic offer.
struct Offer {
    bool any = false;
    bool reliable = true;
    bool transientLocal = true;
};

class StreamTable {
public:
    /// One event of the engine. Returns whether there may be news now.
    void apply(DDS_DiscoveryEventKind kind, const DDS_DiscoveredEndpoint &endpoint);

    /// What has changed since the last call, by topic.
    std::vector<StreamNews> takeNews();

    Offer offerOf(const std::string &topic) const;

private:
    struct Endpoint {
        std::array<std::uint8_t, 16> guid;
        std::string typeName;
        const DDS_TypeCode *type;
        std::string typeProblem;
        std::vector<std::string> partitions;
        bool reliable;
        bool transientLocal;
    };
    /// Endpoints in the order of their appearance: the first one with a type speaks for the stream,
    /// so a later one that disagrees changes nothing.
    using Endpoints = std::vector<Endpoint>;

    static Endpoint copyOf(const DDS_DiscoveredEndpoint &endpoint);
    static StreamNews summaryOf(const std::string &topic, const Endpoints &endpoints);

    std::map<std::string, Endpoints> topics_;
    /// What the host was last told, of the streams that it believes to be there.
    std::map<std::string, StreamNews> told_;
    std::set<std::string> changed_;
};

} // namespace ferrydds

#endif
