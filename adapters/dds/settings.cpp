#include "settings.h"

#include <iterator>

#include "adapter.h"

namespace ferrydds {
namespace {

constexpr std::uint32_t connection = FERRY_SETTING_OF_CONNECTION;
// What a session is given holds for its readers and writers.
constexpr std::uint32_t reader = FERRY_SETTING_OF_READER | FERRY_SETTING_OF_SESSION;
constexpr std::uint32_t writer = FERRY_SETTING_OF_WRITER | FERRY_SETTING_OF_SESSION;
constexpr std::uint32_t stream = reader | writer;

constexpr std::int64_t most = 2147483647;
// A year: far beyond any use, and far from what 64 bits of nanoseconds hold.
constexpr std::int64_t longest = 8760 * 3'600'000'000'000;

constexpr FERRY_Setting text(const char *name, std::uint32_t roles, const char *fallback,
                             const char *help)
{
    return {name, roles, FERRY_SETTING_TEXT, nullptr, 0, 0, nullptr, fallback, 0, help, nullptr};
}

/// Of a file that a secured participant needs, or its text.
constexpr FERRY_Setting path(const char *name, const char *help)
{
    return text(name, connection, "", help);
}

constexpr FERRY_Setting choice(const char *name, std::uint32_t roles, const char *words,
                               const char *fallback, const char *help)
{
    return {name, roles, FERRY_SETTING_CHOICE, words, 0, 0, nullptr, fallback, 0, help, nullptr};
}

constexpr FERRY_Setting whole(const char *name, std::uint32_t roles, std::int64_t low,
                              std::int64_t high, const char *fallback, const char *help,
                              const char *words = nullptr)
{
    return {name, roles,  FERRY_SETTING_WHOLE, words, low, high, nullptr, fallback, 0,
            help, nullptr};
}

constexpr FERRY_Setting duration(const char *name, std::uint32_t roles, const char *fallback,
                                 const char *help)
{
    return {name, roles,  FERRY_SETTING_DURATION, nullptr, 0, longest, nullptr, fallback, 0,
            help, nullptr};
}

constexpr FERRY_Setting flag(const char *name, std::uint32_t roles, const char *help)
{
    return {name, roles, FERRY_SETTING_FLAG, nullptr, 0, 0, nullptr, "false", 0, help, nullptr};
}

constexpr FERRY_Setting changeable(FERRY_Setting setting)
{
    setting.flags |= FERRY_SETTING_CHANGEABLE;
    return setting;
}

// clang-format off
constexpr FERRY_Setting rows[] = {
    whole("domain", connection, 0, 230, "0", "the domain's number"),
    text("interfaces", connection, "loopback", "loopback (nothing leaves the machine), auto, or names or addresses, separated by commas"),
    choice("multicast", connection, "none discovery all", "all", "none, only to find others, or for data too"),
    text("peers", connection, "", "hosts that are asked one by one, separated by commas"),
    choice("transport", connection, "udp tcp", "udp", "with tcp, others are found through peers only"),
    whole("port", connection, 0, 65535, "0", "where connections are accepted; 0 accepts none; only with transport tcp"),
    text("engine_xml", connection, "", "configuration of the engine that is merged behind the others"),
    path("security.identity_ca", "certificate of who issues the participants' certificates"),
    path("security.certificate", "the participant's certificate"),
    path("security.key", "its private key"),
    {"security.password", connection, FERRY_SETTING_SECRET, nullptr, 0, 0, nullptr, "", 0, "decrypts the key", nullptr},
    path("security.governance", "how the domain is protected, signed by the permissions CA"),
    path("security.permissions_ca", "certificate of who signs governance and permissions; empty for the identity CA"),
    path("security.permissions", "what the participant may publish and subscribe to, signed by the permissions CA"),
    text("name", connection, "ferry", "what others see the participant as"),
    duration("type_timeout", connection, "2s", "how long a peer gets to send a type before its endpoint is announced without"),
    choice("opaque", connection, "never unknown always", "unknown", "which announced streams have samples that nobody looks into: none, those of a type that is not known, all"),
    text("partitions", connection | stream, "", "names or patterns, separated by commas; of a stream that does not say: the announced stream's, else the connection's, else the default partition"),
    choice("naming", connection | stream, "dds ros2", "dds", "ros2: streams and types go by the names that ROS 2 shows, as /chatter and std_msgs/msg/String for rt/chatter and std_msgs::msg::dds_::String_; of a stream that does not say: the connection's"),
    text("topic", stream, "", "name of the topic; empty for the stream's name"),
    text("type_name", stream, "", "name that the type is announced under; empty for the type's own"),
    choice("reliability", stream, "reliable best_effort auto", "reliable", "whether samples are sent again; auto in discovered routes that do not say"),
    choice("durability", stream, "volatile transient_local auto", "volatile", "whether late readers get earlier samples; auto in discovered routes that do not say"),
    choice("history", stream, "keep_all keep_last", "keep_all", "what is kept of an instance until it is read or acknowledged"),
    whole("depth", stream, 1, most, "1", "samples of each instance that are kept; only with history keep_last. A writer also drops what readers have not acknowledged"),
    whole("durable_depth", writer, 1, most, "1", "samples of each instance that a transient_local writer keeps for late readers; only with history keep_all (with keep_last it is depth)", "all"),
    duration("deadline", stream, "0s", "longest time between two samples of an instance; 0s is no limit"),
    choice("ownership", stream, "shared exclusive auto", "shared", "whether the strongest writer alone counts; auto in discovered routes that do not say"),
    choice("liveliness", stream, "automatic manual_by_participant manual_by_topic", "automatic", "who says that a writer is alive; with a manual kind only its writes do"),
    duration("liveliness_lease", stream, "0s", "longest time without a sign of life; 0s is no limit"),
    choice("destination_order", stream, "by_reception by_source", "by_reception", "by which time the samples of several writers of an instance are in order"),
    choice("presentation", stream, "instance topic group", "instance", "what ordered and coherent access is about; the engine compares it and does no more"),
    flag("coherent_access", stream, "whether samples may come in coherent sets; compared only"),
    flag("ordered_access", stream, "whether samples are in order across the instances of presentation; compared only"),
    duration("latency_budget", stream, "0s", "how much later than at once samples may come; a writer offers it, a reader asks for it"),
    text("user_data", stream, "", "text that peers see of the endpoint"),
    choice("match", stream, "type name", "type", "name: no type information is announced, and endpoints match if topic and type name agree"),
    choice("ignore_local", stream, "process participant none", "process", "endpoints that are not talked to"),
    whole("max_samples", reader, 0, most, "8192", "samples kept until they are read; 0 is no limit"),
    changeable(whole("batch", reader, 1, 1'000'000, "1024", "most samples of one read")),
    changeable({"batch_bytes", reader, FERRY_SETTING_BYTES, nullptr, 1, 1LL << 40, nullptr, "8MiB", 0, "a read ends with the sample that brings it to so many bytes", nullptr}),
    duration("time_based_filter", reader, "0s", "shortest time between two samples of an instance"),
    choice("representation", writer, "auto xcdr1 xcdr2", "auto", "encoding; auto: xcdr2 for a type that is or holds an appendable struct, else xcdr1"),
    whole("ownership_strength", writer, 0, most, "0", "the strongest writer counts; only with ownership exclusive"),
    whole("transport_priority", writer, -most - 1, most, "0", "importance, for networks that know such"),
    duration("lifespan", writer, "0s", "how long a sample is worth delivering; 0s is no limit"),
    flag("autodispose", writer, "whether instances are disposed when the writer goes"),
    duration("write_timeout", writer, "15s", "how long a write waits for slow readers; 0s does not wait"),
    whole("wait_for_readers", writer, 0, most, "0", "how many readers each write is for"),
    duration("wait_timeout", writer, "30s", "how long a write waits for them before it fails"),
    changeable(duration("linger", writer, "5s", "how long the deletion waits for acknowledgements; 0s does not wait")),
    choice("timestamps", writer, "source now", "source", "source carries the source time on"),
};
// clang-format on
static_assert(std::size(rows) == Setting::count);

} // namespace

const FERRY_SettingTable settingTable = {FERRY_SETTINGS_VERSION, Setting::count, rows};

} // namespace ferrydds

const FERRY_SettingTable *FerryAdapter_dds_create_settings() noexcept
{
    return &ferrydds::settingTable;
}
