#include "stream_table.h"

#include <algorithm>

namespace ferrydds {
namespace {

bool sameStream(const StreamNews &a, const StreamNews &b)
{
    return a.typeName == b.typeName && a.type == b.type && a.partitions == b.partitions;
}

} // namespace

StreamTable::Endpoint StreamTable::copyOf(const DDS_DiscoveredEndpoint &endpoint)
{
    Endpoint copy{};
    std::copy_n(endpoint.guid, copy.guid.size(), copy.guid.begin());
    copy.typeName = endpoint.typeName == nullptr ? "" : endpoint.typeName;
    copy.type = endpoint.type;
    copy.typeProblem = endpoint.typeProblem == nullptr ? "" : endpoint.typeProblem;
    for (std::int32_t i = 0; i < endpoint.partitions.length; ++i) {
        const char *name = endpoint.partitions.buffer[i];
        copy.partitions.emplace_back(name == nullptr ? "" : name);
    }
    copy.reliable = endpoint.reliable != 0;
    copy.transientLocal = endpoint.durability == DDS_TRANSIENT_LOCAL_DURABILITY;
    return copy;
}

void StreamTable::apply(DDS_DiscoveryEventKind kind, const DDS_DiscoveredEndpoint &endpoint)
{
    Endpoint copy = copyOf(endpoint);
    Endpoints &endpoints = topics_[endpoint.topic];
    const auto known = std::find_if(endpoints.begin(), endpoints.end(),
                                    [&](const Endpoint &e) { return e.guid == copy.guid; });
    if (kind != DDS_ENDPOINT_GONE) {
        if (known == endpoints.end()) {
            endpoints.push_back(std::move(copy));
        } else {
            *known = std::move(copy);
        }
    } else if (known != endpoints.end()) {
        endpoints.erase(known);
    }
    if (endpoints.empty()) {
        topics_.erase(endpoint.topic);
    }
    changed_.insert(endpoint.topic);
}

StreamNews StreamTable::summaryOf(const std::string &topic, const Endpoints &endpoints)
{
    const auto typed = std::find_if(endpoints.begin(), endpoints.end(),
                                    [](const Endpoint &e) { return e.type != nullptr; });
    const Endpoint &speaker = typed == endpoints.end() ? endpoints.front() : *typed;
    StreamNews news;
    news.topic = topic;
    news.typeName = speaker.typeName;
    news.type = speaker.type;
    news.typeProblem = speaker.typeProblem;
    std::set<std::string> partitions;
    for (const Endpoint &endpoint : endpoints) {
        if (endpoint.partitions.empty()) {
            partitions.insert("");
        }
        partitions.insert(endpoint.partitions.begin(), endpoint.partitions.end());
    }
    if (partitions != std::set<std::string>{""}) {
        news.partitions.assign(partitions.begin(), partitions.end());
    }
    return news;
}

std::vector<StreamNews> StreamTable::takeNews()
{
    std::vector<StreamNews> all;
    for (const std::string &topic : changed_) {
        const auto present = topics_.find(topic);
        const auto before = told_.find(topic);
        if (present != topics_.end()) {
            StreamNews news = summaryOf(topic, present->second);
            news.isNew = before == told_.end();
            if (news.isNew || !sameStream(news, before->second)) {
                told_[topic] = news;
                all.push_back(std::move(news));
            }
        } else if (before != told_.end()) {
            all.push_back(before->second);
            all.back().disposed = true;
            all.back().isNew = false;
            told_.erase(before);
        }
    }
    changed_.clear();
    return all;
}

Offer StreamTable::offerOf(const std::string &topic) const
{
    Offer offer;
    const auto found = topics_.find(topic);
    if (found != topics_.end()) {
        offer.any = true;
        for (const Endpoint &endpoint : found->second) {
            offer.reliable = offer.reliable && endpoint.reliable;
            offer.transientLocal = offer.transientLocal && endpoint.transientLocal;
        }
    }
    return offer;
}

} // namespace ferrydds
