// What the settings make of the engine's quality of service, as the engine tells it: each setting
// reaches its policy, and no other.
#include "host.h"

#include <dds/dds.h>
#include <map>

namespace {

using Texts = std::map<std::string, std::string>;

std::string timeOf(dds_duration_t time)
{
    return time == DDS_INFINITY ? "none" : std::to_string(time / DDS_MSECS(1)) + "ms";
}

template<class... Words> std::string wordAt(int kind, Words... words)
{
    const std::vector<std::string> all = {words...};
    return all.at(static_cast<size_t>(kind));
}

Texts textsOf(const dds_builtintopic_endpoint_t &endpoint)
{
    const dds_qos_t *qos = endpoint.qos;
    Texts texts{{"topic", endpoint.topic_name}, {"type", endpoint.type_name}};
    dds_reliability_kind_t reliability{};
    dds_duration_t time = 0;
    dds_qget_reliability(qos, &reliability, &time);
    texts["reliability"] = wordAt(reliability, "best effort", "reliable");
    texts["blocking"] = timeOf(time);
    dds_durability_kind_t durability{};
    dds_qget_durability(qos, &durability);
    texts["durability"] = wordAt(durability, "volatile", "transient local");
    const auto kept = [](dds_history_kind_t kind, int32_t depth) {
        return kind == DDS_HISTORY_KEEP_ALL ? "all" : std::to_string(depth);
    };
    dds_history_kind_t history{};
    int32_t depth = 0;
    dds_qget_history(qos, &history, &depth);
    texts["history"] = kept(history, depth);
    if (dds_qget_durability_service(qos, nullptr, &history, &depth, nullptr, nullptr, nullptr)) {
        texts["kept"] = kept(history, depth);
    }
    if (dds_qget_deadline(qos, &time)) {
        texts["deadline"] = timeOf(time);
    }
    if (dds_qget_lifespan(qos, &time)) {
        texts["lifespan"] = timeOf(time);
    }
    dds_ownership_kind_t ownership{};
    dds_qget_ownership(qos, &ownership);
    texts["ownership"] = wordAt(ownership, "shared", "exclusive");
    int32_t number = 0;
    if (dds_qget_ownership_strength(qos, &number)) {
        texts["strength"] = std::to_string(number);
    }
    bool disposes = false;
    if (dds_qget_writer_data_lifecycle(qos, &disposes)) {
        texts["disposes"] = disposes ? "yes" : "no";
    }
    if (dds_qget_resource_limits(qos, &number, nullptr, nullptr)) {
        texts["samples"] = std::to_string(number);
    }
    dds_ignorelocal_kind_t local{};
    if (dds_qget_ignorelocal(qos, &local)) {
        texts["ignores"] = wordAt(local, "none", "participant", "process");
    }
    uint32_t count = 0;
    char **names = nullptr;
    if (dds_qget_partition(qos, &count, &names)) {
        for (uint32_t i = 0; i < count; ++i) {
            texts["partitions"] += std::string(names[i]) + ";";
            dds_free(names[i]);
        }
        dds_free(names);
    }
    dds_data_representation_id_t *forms = nullptr;
    if (dds_qget_data_representation(qos, &count, &forms)) {
        for (uint32_t i = 0; i < count; ++i) {
            texts["forms"] += std::to_string(forms[i]);
        }
        dds_free(forms);
    }
    return texts;
}

// What the engine says of the endpoint of a topic, be it of this process.
Texts told(dds_entity_t builtin, const std::string &topic)
{
    Texts texts;
    EXPECT_TRUE(within(std::chrono::seconds(10), [&] {
        void *sample = nullptr;
        dds_sample_info_t info;
        while (texts.empty() && dds_take(builtin, &sample, &info, 1, 1) == 1) {
            const auto &endpoint = *static_cast<const dds_builtintopic_endpoint_t *>(sample);
            if (info.valid_data && endpoint.topic_name == topic) {
                texts = textsOf(endpoint);
            }
            dds_return_loan(builtin, &sample, 1);
        }
        return !texts.empty();
    })) << topic;
    return texts;
}

} // namespace

TEST(DdsAdapter, EachSettingReachesItsPolicy)
{
    struct Case {
        char place; // 'b': both readers and writers
        List list;
        Texts changed;
    };
    const std::vector<Case> cases = {
        {'b', {{"topic", "other"}}, {{"topic", "other"}}},
        {'b', {{"type_name", "Named"}}, {{"type", "Named"}}},
        {'b', {{"reliability", "best_effort"}}, {{"reliability", "best effort"}}},
        {'b', {{"deadline", "3s"}}, {{"deadline", "3000ms"}}},
        {'b', {{"ownership", "exclusive"}}, {{"ownership", "exclusive"}}},
        {'b', {{"history", "keep_last"}}, {{"history", "1"}}},
        {'b', {{"history", "keep_last"}, {"depth", "7"}}, {{"history", "7"}}},
        {'b', {{"partitions", "north, , s*"}}, {{"partitions", "north;;s*;"}}},
        {'r', {{"ignore_local", "participant"}}, {{"ignores", "participant"}}},
        {'w',
         {{"ignore_local", "participant"}},
         {{"ignores", "participant"}, {"blocking", "15000ms"}}},
        {'r', {{"durability", "transient_local"}}, {{"durability", "transient local"}}},
        {'r', {{"max_samples", "9"}}, {{"samples", "9"}}},
        {'r', {{"reliability", "auto"}}, {}}, // of nobody
        {'r', {{"max_samples", "0"}}, {{"samples", "-1"}}},
        {'w', {{"durability", "transient_local"}}, {{"durability", "transient local"}}},
        {'w',
         {{"durability", "transient_local"}, {"durable_depth", "all"}},
         {{"durability", "transient local"}, {"kept", "all"}}},
        {'w',
         {{"durability", "transient_local"}, {"durable_depth", "5"}},
         {{"durability", "transient local"}, {"kept", "5"}}},
        {'w',
         {{"qel.ferrion.announced.direction", "input"},
          {"qel.ferrion.announced.durability", "transient_local"},
          {"qel.ferrion.announced.durable_depth", "900"}},
         {{"durability", "transient local"}, {"kept", "900"}, {"partitions", "connection's;"}}},
        {'w', {{"lifespan", "4s"}}, {{"lifespan", "4000ms"}}},
        {'w', {{"autodispose", "true"}}, {{"disposes", "yes"}}},
        {'w',
         {{"ownership", "exclusive"}, {"ownership_strength", "6"}},
         {{"ownership", "exclusive"}, {"strength", "6"}}},
        {'w', {{"representation", "xcdr2"}}, {{"forms", "2"}}},
        {'w', {{"write_timeout", "4ms"}}, {{"blocking", "4ms"}}},
        {'w',
         {{"write_timeout", "70s"}, {"ignore_local", "none"}},
         {{"blocking", "70000ms"}, {"ignores", "none"}}}};
    Host host("28", {{"type_timeout", "50ms"}, {"name", ""}, {"partitions", "connection's"}});
    char announced[] = "announced";
    char *partitions[] = {announced, nullptr};
    host.stream.partition = {partitions, 2, 2};
    const dds_entity_t watcher = dds_create_participant(28, nullptr, nullptr);
    int made = 0;
    for (const char place : {'r', 'w'}) {
        const dds_entity_t builtin = dds_create_reader(
            watcher,
            place == 'w' ? DDS_BUILTIN_TOPIC_DCPSPUBLICATION : DDS_BUILTIN_TOPIC_DCPSSUBSCRIPTION,
            nullptr, nullptr);
        const auto with = [&](const List &list, std::string topic) {
            const std::string stream = "q" + std::to_string(++made);
            topic = topic.empty() ? stream : topic;
            Texts texts;
            if (place == 'w') {
                QEL_FerrionStreamWriter *writer = host.writer(stream.c_str(), list);
                EXPECT_NE(writer, nullptr) << host.error();
                texts = told(builtin, topic);
                host.remove(writer);
            } else {
                QEL_FerrionStreamReader *reader = host.reader(stream.c_str(), list);
                EXPECT_NE(reader, nullptr) << host.error();
                texts = told(builtin, topic);
                host.remove(reader);
            }
            if (topic == stream) {
                texts["topic"] = "q";
            }
            return texts;
        };
        const Texts base = with({}, "");
        const Texts expectedBase =
            place == 'w' ? Texts{{"lifespan", "none"}, {"strength", "0"},    {"disposes", "no"},
                                 {"forms", "0"},       {"blocking", "10ms"}, {"kept", "1"}}
                         : Texts{{"samples", "8192"}, {"forms", "02"}};
        for (const auto &[name, value] : expectedBase) {
            EXPECT_EQ(base.count(name) != 0 ? base.at(name) : "missing", value) << name;
        }
        for (const Case &c : cases) {
            if (c.place != 'b' && c.place != place) {
                continue;
            }
            Texts expected = base;
            for (const auto &[name, value] : c.changed) {
                expected[name] = value;
            }
            EXPECT_EQ(with(c.list, c.list[0].first == "topic" ? "other" : ""), expected)
                << place << " " << c.list[0].first;
        }
    }
    dds_delete(watcher);
}
