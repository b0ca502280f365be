// What the settings make of the engine's quality of service, as the engine reports it, and of what
// the adapter declares of its deliveries: each setting reaches its policy, and no other.
#include "../platform/records.h"
#include "host.h"

#include <array>
#include <dds/dds.h>
#include <dds/ddsi/ddsi_xqos.h>
#include <map>

namespace {

using Texts = std::map<std::string, std::string>;

// The policies of "{name=value,name={a,b},name=2(0,1),...}".
Texts policiesOf(const std::string &text)
{
    Texts policies;
    int depth = 0;
    for (size_t i = 0, start = 1; i < text.size(); ++i) {
        depth += text[i] == '{' || text[i] == '(' ? 1 : text[i] == '}' || text[i] == ')' ? -1 : 0;
        if (depth == 0 || (depth == 1 && text[i] == ',')) {
            const size_t equals = text.find('=', start);
            policies[text.substr(start, equals - start)] = text.substr(equals + 1, i - equals - 1);
            start = i + 1;
        }
    }
    return policies;
}

// What the engine says of the endpoint that has just been made, be it of this process.
Texts newest(dds_entity_t builtin)
{
    Texts policies;
    EXPECT_TRUE(within(std::chrono::seconds(10), [&] {
        void *sample = nullptr;
        dds_sample_info_t info;
        while (policies.empty() && dds_take(builtin, &sample, &info, 1, 1) == 1) {
            const auto &endpoint = *static_cast<const dds_builtintopic_endpoint_t *>(sample);
            const std::string topic = info.valid_data ? endpoint.topic_name : "";
            if (topic == "q" || topic == "other") {
                std::array<char, 4096> text{};
                ddsi_xqos_print(text.data(), text.size(), endpoint.qos);
                policies = policiesOf(text.data());
                dds_ignorelocal_kind_t ignored{};
                dds_qget_ignorelocal(endpoint.qos, &ignored);
                policies.insert({{"topic", topic},
                                 {"type", endpoint.type_name},
                                 {"ignores", std::to_string(ignored)}});
            }
            dds_return_loan(builtin, &sample, 1);
        }
        return !policies.empty();
    }));
    return policies;
}

} // namespace

TEST(DdsAdapter, EachSettingReachesItsPolicy)
{
    // Without settings first: what others change shows in the difference.
    Host host(28, "", "type_timeout=50ms; name=; partitions=connection's");
    char announced[] = "announced";
    char *partitions[] = {announced, nullptr};
    host.stream.partition = {partitions, 2, 2};
    const dds_entity_t watcher = dds_create_participant(28, nullptr, nullptr);
    const dds_entity_t readers =
        dds_create_reader(watcher, DDS_BUILTIN_TOPIC_DCPSSUBSCRIPTION, nullptr, nullptr);
    const dds_entity_t writers =
        dds_create_reader(watcher, DDS_BUILTIN_TOPIC_DCPSPUBLICATION, nullptr, nullptr);
    std::map<char, Texts> base;
    for (const std::string &line : linesOf("dds-adapter/data/qos.txt")) {
        const char place = line[0];
        const size_t arrow = line.find(" -> ");
        const std::string settings = line.substr(2, arrow - 2);
        Texts found;
        if (place == 'w') {
            QEL_FerrionStreamWriter *writer = host.writer("q", settings);
            host.expectError("");
            found = newest(writers);
            host.remove(writer);
        } else {
            QEL_FerrionStreamReader *reader = host.reader("q", settings);
            host.expectError("");
            found = newest(readers);
            host.remove(reader);
        }
        const uint32_t role = place == 'w' ? FERRY_SETTING_OF_WRITER : FERRY_SETTING_OF_READER;
        const Properties properties(settings);
        found["delivery"] = std::to_string(FerryAdapter_dds_create_delivery(role, &properties.raw));
        if (settings.empty()) {
            base[place] = found;
        }
        Texts expected = base[place];
        for (const auto &[name, value] : pairsOf(line.substr(arrow + 4))) {
            expected[name] = value;
        }
        EXPECT_EQ(found, expected) << line;
    }
    dds_delete(watcher);
}
