// See mismatch.h. Stateless; any thread.
#include "mismatch.h"

#include <fnmatch.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <vector>

#include <fmt/format.h>

#include "endpoint.h"

namespace qddsdomain {

namespace {

using Sample = dds_builtintopic_endpoint_t;
using Names = std::set<std::string>;

/// Whatever an endpoint does not announce keeps its default.
template<typename Value, auto get> Value valueOf(const dds_qos_t *qos, Value value)
{
    (void)get(qos, &value);
    return value;
}

dds_reliability_kind_t reliabilityOf(const dds_qos_t *qos)
{
    dds_reliability_kind_t kind = DDS_RELIABILITY_BEST_EFFORT;
    (void)dds_qget_reliability(qos, &kind, nullptr);
    return kind;
}

/// "north" or "south"; "" is the default partition.
std::string listOf(const Names &names)
{
    std::string list;
    for (const std::string &name : names) {
        list += fmt::format("{}\"{}\"", list.empty() ? "" : " or ", name);
    }
    return list;
}

bool isPattern(const std::string &name)
{
    return name.find_first_of("*?[") != std::string::npos;
}

/// A pattern matches names, not other patterns.
bool matches(const std::string &pattern, const std::string &name)
{
    return isPattern(pattern) && !isPattern(name) && fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
}

bool haveCommon(const Names &left, const Names &right)
{
    for (const std::string &a : left) {
        for (const std::string &b : right) {
            if (a == b || matches(a, b) || matches(b, a)) {
                return true;
            }
        }
    }
    return false;
}

bool sharesRepresentation(const dds_qos_t *offered, const dds_qos_t *asked)
{
    const auto all = [](const dds_qos_t *qos) {
        uint32_t count = 0;
        dds_data_representation_id_t *values = nullptr;
        (void)dds_qget_data_representation(qos, &count, &values);
        std::vector<dds_data_representation_id_t> made(values, values + count);
        dds_free(values);
        if (made.empty()) {
            made.push_back(DDS_DATA_REPRESENTATION_XCDR1);
        }
        return made;
    };
    const auto accepted = all(asked);
    return std::find(accepted.begin(), accepted.end(), all(offered).front()) != accepted.end();
}

bool livelinessFits(const dds_qos_t *offered, const dds_qos_t *asked)
{
    struct Liveliness {
        dds_liveliness_kind_t kind = DDS_LIVELINESS_AUTOMATIC;
        dds_duration_t lease = DDS_INFINITY;
    };
    Liveliness there;
    Liveliness wanted;
    (void)dds_qget_liveliness(offered, &there.kind, &there.lease);
    (void)dds_qget_liveliness(asked, &wanted.kind, &wanted.lease);
    return there.kind >= wanted.kind && there.lease <= wanted.lease;
}

bool presentationFits(const dds_qos_t *offered, const dds_qos_t *asked)
{
    struct Presentation {
        dds_presentation_access_scope_kind_t scope = DDS_PRESENTATION_INSTANCE;
        bool coherent = false;
        bool ordered = false;
    };
    Presentation there;
    Presentation wanted;
    (void)dds_qget_presentation(offered, &there.scope, &there.coherent, &there.ordered);
    (void)dds_qget_presentation(asked, &wanted.scope, &wanted.coherent, &wanted.ordered);
    return there.scope >= wanted.scope && there.coherent >= wanted.coherent &&
           there.ordered >= wanted.ordered;
}

/// The policies of a writer and a reader that do not go together.
std::vector<uint32_t> differences(const dds_qos_t *offered, const dds_qos_t *asked)
{
    constexpr auto durabilityOf = valueOf<dds_durability_kind_t, dds_qget_durability>;
    constexpr auto deadlineOf = valueOf<dds_duration_t, dds_qget_deadline>;
    constexpr auto ownershipOf = valueOf<dds_ownership_kind_t, dds_qget_ownership>;
    constexpr auto latencyOf = valueOf<dds_duration_t, dds_qget_latency_budget>;
    constexpr auto orderOf = valueOf<dds_destination_order_kind_t, dds_qget_destination_order>;
    struct Check {
        uint32_t policy;
        bool fits;
    };
    const std::array<Check, 9> checks = {
        {{DDS_RELIABILITY_QOS_POLICY_ID, reliabilityOf(offered) >= reliabilityOf(asked)},
         {DDS_DURABILITY_QOS_POLICY_ID, durabilityOf(offered, DDS_DURABILITY_VOLATILE) >=
                                            durabilityOf(asked, DDS_DURABILITY_VOLATILE)},
         {DDS_DEADLINE_QOS_POLICY_ID,
          deadlineOf(offered, DDS_INFINITY) <= deadlineOf(asked, DDS_INFINITY)},
         {DDS_OWNERSHIP_QOS_POLICY_ID,
          ownershipOf(offered, DDS_OWNERSHIP_SHARED) == ownershipOf(asked, DDS_OWNERSHIP_SHARED)},
         {DDS_LATENCYBUDGET_QOS_POLICY_ID, latencyOf(offered, 0) <= latencyOf(asked, 0)},
         {DDS_DESTINATIONORDER_QOS_POLICY_ID,
          orderOf(offered, DDS_DESTINATIONORDER_BY_RECEPTION_TIMESTAMP) >=
              orderOf(asked, DDS_DESTINATIONORDER_BY_RECEPTION_TIMESTAMP)},
         {DDS_LIVELINESS_QOS_POLICY_ID, livelinessFits(offered, asked)},
         {DDS_PRESENTATION_QOS_POLICY_ID, presentationFits(offered, asked)},
         {DDS_DATA_REPRESENTATION_QOS_POLICY_ID, sharesRepresentation(offered, asked)}}};
    std::vector<uint32_t> found;
    for (const Check &check : checks) {
        if (!check.fits) {
            found.push_back(check.policy);
        }
    }
    return found;
}

/// One endpoint and what it would be matched by.
struct Described {
    std::string topic, typeName;
    dds_guid_t participant{};
    Qos qos;
    Names partitions;
};

bool describe(const OwnEndpoint &own, Described &made)
{
    std::array<char, 1024> topic{};
    std::array<char, 1024> type{};
    const Qos group(dds_create_qos());
    const dds_entity_t of = dds_get_topic(own.entity);
    made.qos = Qos(dds_create_qos());
    const dds_return_t worst =
        std::min({dds_get_name(of, topic.data(), topic.size()),
                  dds_get_type_name(of, type.data(), type.size()),
                  dds_get_qos(own.entity, made.qos.get()), dds_get_qos(own.group, group.get())});
    made.topic = topic.data();
    made.typeName = type.data();
    made.participant = engine::guidOf(own.participant);
    made.partitions = partitionsOf(group.get());
    return worst >= 0;
}

std::string reasonOf(const OwnEndpoint &own, const Described &mine, const Sample &other)
{
    if (mine.typeName != other.type_name) {
        return std::string("type name ") + other.type_name;
    }
    std::string reason;
    const auto add = [&reason](const char *name) {
        reason += (reason.empty() ? "" : " and ") + std::string(name);
    };
    const dds_qos_t *offered = own.isWriter ? mine.qos.get() : other.qos;
    const dds_qos_t *asked = own.isWriter ? other.qos : mine.qos.get();
    for (const uint32_t policy : differences(offered, asked)) {
        add(policyName(policy));
    }
    const Names theirs = partitionsOf(other.qos);
    if (!haveCommon(mine.partitions, theirs)) {
        add(fmt::format("partition {}", listOf(theirs)).c_str());
    }
    if (!reason.empty()) {
        return reason;
    }
    dds_domainid_t domain = 0;
    (void)dds_get_domainid(own.participant, &domain);
    const std::string type = policyName(DDS_TYPE_CONSISTENCY_ENFORCEMENT_QOS_POLICY_ID);
    return isSecured(static_cast<int32_t>(domain)) ? "security (it is not permitted), or " + type
                                                   : type;
}

std::vector<dds_instance_handle_t> matchedWith(const OwnEndpoint &own)
{
    const auto ask = own.isWriter ? dds_get_matched_subscriptions : dds_get_matched_publications;
    return engine::allOf<dds_instance_handle_t>(
        [&](auto *to, size_t room) { return ask(own.entity, to, room); });
}

bool isOwnParticipant(const OwnEndpoint &own, const dds_guid_t &key)
{
    dds_domainid_t domain = 0;
    (void)dds_get_domainid(own.participant, &domain);
    const auto here = engine::ownParticipants(domain);
    return std::any_of(here.begin(), here.end(), [&key](const dds_guid_t &guid) {
        return std::memcmp(guid.v, key.v, sizeof guid.v) == 0;
    });
}

/// Whether the endpoint is not talked to whatever its quality of service.
bool isIgnored(const OwnEndpoint &own, const Described &mine, const Sample &other)
{
    dds_ignorelocal_kind_t kind = DDS_IGNORELOCAL_NONE;
    (void)dds_qget_ignorelocal(mine.qos.get(), &kind);
    switch (kind) {
    case DDS_IGNORELOCAL_PARTICIPANT:
        return std::memcmp(mine.participant.v, other.participant_key.v,
                           sizeof mine.participant.v) == 0;
    case DDS_IGNORELOCAL_PROCESS:
        return isOwnParticipant(own, other.participant_key);
    default:
        return false;
    }
}

struct Tally {
    size_t endpoints = 0;
    std::map<std::string, size_t> reasons;
};

void count(const OwnEndpoint &own, const Described &mine, const Sample &other, Tally &tally)
{
    if (mine.topic == other.topic_name && !isIgnored(own, mine, other)) {
        ++tally.endpoints;
        ++tally.reasons[reasonOf(own, mine, other)];
    }
}

/// Of all endpoints that the participant knows.
void countAll(const OwnEndpoint &own, const Described &mine, Tally &tally)
{
    constexpr uint32_t atOnce = 64;
    const std::vector<dds_instance_handle_t> matched = matchedWith(own);
    const engine::Entity known(dds_create_reader(own.participant,
                                                 own.isWriter ? DDS_BUILTIN_TOPIC_DCPSSUBSCRIPTION
                                                              : DDS_BUILTIN_TOPIC_DCPSPUBLICATION,
                                                 nullptr, nullptr));
    std::array<void *, atOnce> samples{};
    std::array<dds_sample_info_t, atOnce> infos;
    for (;;) {
        const dds_return_t taken =
            dds_take(known.get(), samples.data(), infos.data(), atOnce, atOnce);
        if (taken <= 0) {
            return;
        }
        for (size_t i = 0; i < static_cast<size_t>(taken); ++i) {
            if (infos[i].valid_data && infos[i].instance_state == DDS_IST_ALIVE &&
                std::find(matched.begin(), matched.end(), infos[i].instance_handle) ==
                    matched.end()) {
                count(own, mine, *static_cast<const Sample *>(samples[i]), tally);
            }
        }
        (void)dds_return_loan(known.get(), samples.data(), taken);
    }
}

} // namespace

std::string mismatchesOf(const OwnEndpoint &own)
{
    Described mine;
    Tally tally;
    if (describe(own, mine)) {
        countAll(own, mine, tally);
    }
    if (tally.endpoints == 0) {
        return {};
    }
    std::string text =
        fmt::format("{} {}{} not match: ", tally.endpoints, own.isWriter ? "reader" : "writer",
                    tally.endpoints == 1 ? " does" : "s do");
    const char *separator = "";
    for (const auto &[reason, times] : tally.reasons) {
        text += separator + reason;
        if (tally.reasons.size() > 1) {
            text += fmt::format(" ({})", times);
        }
        separator = ", ";
    }
    return text;
}

} // namespace qddsdomain
