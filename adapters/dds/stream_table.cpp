#include "stream_table.h"

#include <algorithm>
#include <tuple>

namespace ferrydds {
namespace {

bool sameStream(const StreamChange &a, const StreamChange &b)
{
    return std::tie(a.typeName, a.type, a.properties) == std::tie(b.typeName, b.type, b.properties);
}

StreamKey keyOf(const DDS_DiscoveredEndpoint &endpoint)
{
    StreamKey key{endpoint.topic, {}};
    for (std::int32_t i = 0; i < endpoint.partitions.length; ++i) {
        key.second.emplace_back(endpoint.partitions.buffer[i]);
    }
    return key;
}

} // namespace

void StreamTable::put(const StreamKey &key, StreamEndpoint endpoint)
{
    Endpoints &endpoints = streams_[key];
    const auto known =
        std::find_if(endpoints.begin(), endpoints.end(),
                     [&](const StreamEndpoint &e) { return e.guid == endpoint.guid; });
    keys_[endpoint.guid] = key;
    if (known == endpoints.end()) {
        endpoints.push_back(std::move(endpoint));
    } else {
        *known = std::move(endpoint);
    }
    changed_.insert(key);
}

void StreamTable::drop(const StreamKey &key, const Guid &guid)
{
    Endpoints &endpoints = streams_[key];
    endpoints.erase(std::remove_if(endpoints.begin(), endpoints.end(),
                                   [&](const StreamEndpoint &e) { return e.guid == guid; }),
                    endpoints.end());
    if (endpoints.empty()) {
        streams_.erase(key);
    }
    keys_.erase(guid);
    changed_.insert(key);
}

/// An endpoint that changes its partitions goes from one stream to another.
void StreamTable::apply(DDS_DiscoveryEventKind kind, const DDS_DiscoveredEndpoint &endpoint)
{
    StreamEndpoint copy{{},
                        endpoint.typeName == nullptr ? "" : endpoint.typeName,
                        endpoint.type,
                        endpoint.typeProblem == nullptr ? "" : endpoint.typeProblem,
                        endpoint.qos};
    std::copy_n(endpoint.guid, copy.guid.size(), copy.guid.begin());
    const StreamKey key = keyOf(endpoint);
    const auto known = keys_.find(copy.guid);
    if (known != keys_.end() && (kind == DDS_ENDPOINT_GONE || known->second != key)) {
        drop(StreamKey(known->second), copy.guid);
    }
    if (kind != DDS_ENDPOINT_GONE) {
        put(key, std::move(copy));
    }
}

StreamChange StreamTable::summaryOf(const StreamKey &key, const Endpoints &endpoints) const
{
    const auto typed =
        std::find_if(endpoints.begin(), endpoints.end(), [](const StreamEndpoint &e) {
            return e.type != nullptr && DDS_TypeCode_get_opaque(e.type) == nullptr;
        });
    const StreamEndpoint &speaker = typed == endpoints.end() ? endpoints.front() : *typed;
    DDS_DiscoveredQos common = endpoints.front().qos;
    for (const StreamEndpoint &endpoint : endpoints) {
        widen(common, endpoint.qos, direction_);
    }
    StreamChange change;
    change.key = key;
    change.typeName = speaker.typeName;
    change.type = speaker.type;
    change.typeProblem = speaker.typeProblem;
    change.properties = propertiesOf(common, key.second, direction_);
    if (change.type != nullptr && !change.typeProblem.empty()) {
        change.properties.emplace_back("type_problem", change.typeProblem);
    }
    return change;
}

std::vector<StreamChange> StreamTable::takeChanges()
{
    std::vector<StreamChange> gone;
    std::vector<StreamChange> there;
    for (const StreamKey &key : changed_) {
        const auto present = streams_.find(key);
        const auto before = reported_.find(key);
        if (present != streams_.end()) {
            StreamChange change = summaryOf(key, present->second);
            change.isNew = before == reported_.end();
            if (change.isNew || !sameStream(change, before->second)) {
                reported_[key] = change;
                there.push_back(std::move(change));
            }
        } else if (before != reported_.end()) {
            gone.push_back(std::move(before->second));
            gone.back().disposed = true;
            gone.back().isNew = false;
            reported_.erase(before);
        }
    }
    changed_.clear();
    gone.insert(gone.end(), std::make_move_iterator(there.begin()),
                std::make_move_iterator(there.end()));
    return gone;
}

bool StreamTable::anyNew() const
{
    return std::any_of(changed_.begin(), changed_.end(), [&](const StreamKey &key) {
        return streams_.count(key) > 0 && reported_.count(key) == 0;
    });
}

std::optional<DDS_DiscoveredQos> StreamTable::qosOf(const std::string &topic) const
{
    std::optional<DDS_DiscoveredQos> common;
    for (auto at = streams_.lower_bound({topic, {}});
         at != streams_.end() && at->first.first == topic; ++at) {
        for (const StreamEndpoint &endpoint : at->second) {
            if (!common) {
                common = endpoint.qos;
            }
            widen(*common, endpoint.qos, direction_);
        }
    }
    return common;
}

} // namespace ferrydds
