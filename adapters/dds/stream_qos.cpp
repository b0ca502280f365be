#include "stream_qos.h"

#include <algorithm>
#include <cstring>

#include <fmt/format.h>

#include "settings/value.h"

namespace ferrydds {
namespace {

constexpr const char prefix[] = "qel.ferrion.announced.";

/// The longer of two times, or the larger of two numbers, of which 0 is without limit.
template<class Number> Number wider(Number a, Number b)
{
    return a == 0 || b == 0 ? 0 : std::max(a, b);
}

/// The shorter of two times of which 0 is without limit.
std::int64_t narrower(std::int64_t a, std::int64_t b)
{
    return a == 0 || b == 0 ? std::max(a, b) : std::min(a, b);
}

std::string textOf(std::int64_t nanoseconds)
{
    return ferry::numberText(FERRY_SETTING_DURATION, nanoseconds);
}

/// What most endpoints leave as it is.
void addRare(const DDS_DiscoveredQos &qos, QosProperties &all)
{
    static constexpr const char *kinds[] = {"automatic", "manual_by_participant",
                                            "manual_by_topic"};
    static constexpr const char *scopes[] = {"instance", "topic", "group"};
    const auto add = [&](bool isThere, const char *name, const std::string &value) {
        if (isThere) {
            all.emplace_back(name, value);
        }
    };
    add(qos.liveliness != 0, "liveliness", kinds[qos.liveliness]);
    add(qos.livelinessLease > 0, "liveliness_lease", textOf(qos.livelinessLease));
    add(qos.destinationOrder != 0, "destination_order", "by_source");
    add(qos.presentation != 0, "presentation", scopes[qos.presentation]);
    add(qos.coherentAccess != 0, "coherent_access", "true");
    add(qos.orderedAccess != 0, "ordered_access", "true");
    add(qos.latencyBudget > 0, "latency_budget", textOf(qos.latencyBudget));
}

} // namespace

void widen(DDS_DiscoveredQos &common, const DDS_DiscoveredQos &other, Direction direction)
{
    const bool writers = direction == Direction::input;
    const auto join = [&](std::int32_t a, std::int32_t b) {
        return writers ? std::min(a, b) : std::max(a, b);
    };
    common.reliable = join(common.reliable, other.reliable);
    common.durability = static_cast<DDS_DurabilityKind>(join(common.durability, other.durability));
    common.durableDepth = wider(common.durableDepth, other.durableDepth);
    common.deadline = writers ? wider(common.deadline, other.deadline)
                              : narrower(common.deadline, other.deadline);
    common.lifespan = wider(common.lifespan, other.lifespan);
    common.exclusiveOwnership = std::min(common.exclusiveOwnership, other.exclusiveOwnership);
    common.ownershipStrength = std::max(common.ownershipStrength, other.ownershipStrength);
    common.liveliness = static_cast<DDS_LivelinessKind>(join(common.liveliness, other.liveliness));
    common.livelinessLease = writers ? wider(common.livelinessLease, other.livelinessLease)
                                     : narrower(common.livelinessLease, other.livelinessLease);
    common.destinationOrder = static_cast<DDS_DestinationOrderKind>(
        join(common.destinationOrder, other.destinationOrder));
    common.presentation =
        static_cast<DDS_PresentationScope>(join(common.presentation, other.presentation));
    common.coherentAccess = join(common.coherentAccess, other.coherentAccess);
    common.orderedAccess = join(common.orderedAccess, other.orderedAccess);
    // Every reader knows the first one.
    common.representation = std::min(common.representation, other.representation);
    common.latencyBudget = writers ? std::max(common.latencyBudget, other.latencyBudget)
                                   : std::min(common.latencyBudget, other.latencyBudget);
}

std::string joined(const std::vector<std::string> &names)
{
    return fmt::format("{}", fmt::join(names, ","));
}

QosProperties propertiesOf(const DDS_DiscoveredQos &qos, const std::vector<std::string> &partitions,
                           Direction direction)
{
    const bool durable = qos.durability == DDS_TRANSIENT_LOCAL_DURABILITY;
    QosProperties all{{"reliability", qos.reliable != 0 ? "reliable" : "best_effort"},
                      {"durability", durable ? "transient_local" : "volatile"},
                      {"ownership", qos.exclusiveOwnership != 0 ? "exclusive" : "shared"}};
    if (qos.deadline > 0) {
        all.emplace_back("deadline", textOf(qos.deadline));
    }
    addRare(qos, all);
    if (qos.representation == DDS_XCDR2_REPRESENTATION) {
        all.emplace_back("representation", "xcdr2");
    }
    if (direction == Direction::output) {
        return all;
    }
    all.emplace_back("partitions", joined(partitions));
    if (durable) {
        all.emplace_back("durable_depth",
                         qos.durableDepth == 0 ? "all" : std::to_string(qos.durableDepth));
    }
    if (qos.lifespan > 0) {
        all.emplace_back("lifespan", textOf(qos.lifespan));
    }
    if (qos.exclusiveOwnership != 0) {
        // The adapter's own writers have none below 0.
        all.emplace_back("ownership_strength", std::to_string(std::max(qos.ownershipStrength, 0)));
    }
    return all;
}

Announced::Announced(const QEL_FerrionProperties *properties)
{
    constexpr std::size_t length = sizeof prefix - 1;
    for (std::int32_t i = 0; properties != nullptr && i < properties->count; ++i) {
        const char *const name = properties->properties[i].name;
        const char *const value = properties->properties[i].value;
        if (name != nullptr && value != nullptr && std::strncmp(name, prefix, length) == 0) {
            any_ = true;
            properties_.emplace_back(name + length, value);
        }
    }
}

std::optional<std::string> Announced::find(const std::string &name) const
{
    for (const auto &[known, value] : properties_) {
        if (known == name) {
            return value;
        }
    }
    return std::nullopt;
}

} // namespace ferrydds
