#include "endpoint.h"

#include <fmt/format.h>

#include "error.h"
#include "ros_names.h"

namespace ferrydds {
namespace {

/// Samples of each instance that are kept for late readers because a peer keeps as many.
constexpr long mostDurable = 1000;

std::string ownerOf(std::uint32_t role, const QEL_FerrionStreamInfo &stream)
{
    return fmt::format("{} of stream \"{}\"", role == FERRY_SETTING_OF_READER ? "reader" : "writer",
                       stream.streamName == nullptr ? "" : stream.streamName);
}

const DDS_TypeCode *typeOf(const std::string &owner, const QEL_FerrionStreamInfo &stream)
{
    if (stream.typeRepresentationKind != QEL_FERRION_TYPE_REPRESENTATION_TYPECODE) {
        throw Failure(fmt::format(
            "{}: its type is given as representation {}; only 0, a type code, is carried", owner,
            stream.typeRepresentationKind));
    }
    if (stream.typeRepresentation == nullptr) {
        throw Failure(fmt::format("{}: it has no type", owner));
    }
    return static_cast<const DDS_TypeCode *>(stream.typeRepresentation);
}

/// The stream's own property, its session's, the announcement's, the connection's: the first that
/// says something. What was announced elsewhere comes after the connection's.
std::vector<std::string> partitionsOf(const Settings &settings, const Connection &connection,
                                      const QEL_FerrionStreamInfo &stream, bool elsewhere)
{
    if (settings.given(Setting::partitions)) {
        return settings.list(Setting::partitions);
    }
    const bool said = connection.settings().given(Setting::partitions);
    const QEL_FerrionStringSeq &announced = stream.partition;
    if (announced.buffer == nullptr || announced.length <= 0 || (elsewhere && said)) {
        return connection.settings().list(Setting::partitions);
    }
    std::vector<std::string> names;
    names.reserve(static_cast<std::size_t>(announced.length));
    for (std::int32_t i = 0; i < announced.length; ++i) {
        names.emplace_back(announced.buffer[i] == nullptr ? "" : announced.buffer[i]);
    }
    return names;
}

} // namespace

Endpoint::Endpoint(std::uint32_t role, Connection &connection, const Session &session,
                   const QEL_FerrionStreamInfo &stream, const QEL_FerrionProperties *properties)
    : settings(settingTable, role, ownerOf(role, stream), properties, &session.settings()),
      type_(typeOf(settings.owner(), stream)), opaque_(DDS_TypeCode_get_opaque(type_)),
      keyed_(opaque_ != nullptr ? opaque_->isKeyed != 0
                                : DDS_TypeCode_is_keyed(DDS_TypeCode_resolve(type_)) != 0),
      topic_(settings.text(Setting::topic)), typeName_(settings.text(Setting::typeName)),
      userData_(settings.text(Setting::userData)),
      partitions_(partitionsOf(settings, connection, stream,
                               Announced(properties).isElsewhere(role == FERRY_SETTING_OF_READER)))
{
    const bool isRos = settings.given(Setting::naming)
                           ? settings.is(Setting::naming, "ros2")
                           : connection.settings().is(Setting::naming, "ros2");
    if (topic_.empty()) {
        topic_ = stream.streamName == nullptr ? "" : stream.streamName;
        topic_ = isRos ? ros::topicOf(topic_) : topic_;
    }
    if (typeName_.empty()) {
        typeName_ =
            announcedName(stream, isRos && ros::isTopic(topic_), Announced(properties).any());
    }
    if (topic_.empty()) {
        throw Failure(fmt::format("{}: it has no name, and property \"topic\" says none", owner()));
    }
    const Announced announced(properties);
    settle(role, connection, announced);
    checkRules(announced);
}

/// The name that an announced stream's type has, be it another than that of the type itself; "" for
/// the type's own.
std::string Endpoint::announcedName(const QEL_FerrionStreamInfo &stream, bool isRos,
                                    bool isAnnounced) const
{
    std::string name = isAnnounced && stream.typeName != nullptr ? stream.typeName : "";
    if (name.find('/') != std::string::npos || (name.empty() && isRos)) {
        return ros::announcedTypeOf(
            name.empty() ? DDS_TypeCode_get_name(DDS_TypeCode_resolve(type_)) : name);
    }
    return name;
}

/// Combinations that would do nothing, or not what was meant. What is said for every stream that a
/// rule may find need not make sense for each.
void Endpoint::checkRules(const Announced &announced) const
{
    if (settings.given(Setting::depth) && !settings.is(Setting::history, "keep_last")) {
        throw Failure(
            fmt::format("{}: property \"depth\" needs \"history\" to be keep_last", owner()));
    }
    if (announced.any()) {
        return;
    }
    if (settings.given(Setting::ownershipStrength) &&
        !settings.is(Setting::ownership, "exclusive")) {
        throw Failure(fmt::format(
            "{}: property \"ownership_strength\" needs \"ownership\" to be exclusive", owner()));
    }
    if (settings.given(Setting::durableDepth) &&
        !(transientLocal() && settings.is(Setting::history, "keep_all"))) {
        throw Failure(fmt::format("{}: property \"durable_depth\" needs \"durability\" to be "
                                  "transient_local and \"history\" to be keep_all",
                                  owner()));
    }
}

/// Puts in place what is automatic: settings that say so, and, where the stream was announced,
/// those that say nothing.
void Endpoint::settle(std::uint32_t role, Connection &connection, const Announced &announced)
{
    const bool reader = role == FERRY_SETTING_OF_READER;
    const auto open = [&](Setting::Index setting) {
        return settings.is(setting, "auto") || (announced.any() && !settings.given(setting));
    };
    const auto settle = [&](Setting::Index setting) {
        if (open(setting)) {
            const char *const name = nameOf(setting);
            settings.put(setting, reader ? valueForReader(connection, announced, name)
                                         : announced.find(name));
        }
    };
    settle(Setting::reliability);
    settle(Setting::durability);
    settle(Setting::ownership);
    if (!reader) {
        for (const Setting::Index setting :
             {Setting::liveliness, Setting::livelinessLease, Setting::destinationOrder,
              Setting::presentation, Setting::coherentAccess, Setting::orderedAccess,
              Setting::latencyBudget}) {
            settle(setting);
        }
        settle(Setting::deadline);
        settle(Setting::lifespan);
        if (settings.is(Setting::ownership, "exclusive")) {
            settle(Setting::ownershipStrength);
        }
        if (transientLocal() && settings.is(Setting::history, "keep_all") &&
            !settings.given(Setting::durableDepth)) {
            settings.put(Setting::durableDepth, opaque_ != nullptr && keyed_
                                                    ? depthOfTopic()
                                                    : bounded(announced.find("durable_depth")));
        }
        if (opaque_ != nullptr) {
            settle(Setting::representation);
        }
    }
    const auto partitions = announced.find(nameOf(Setting::partitions));
    exactPartitions_ =
        !settings.given(Setting::partitions) && partitions && *partitions == joined(partitions_);
}

/// Without keys all samples of a topic are of one instance.
std::string Endpoint::depthOfTopic() const
{
    warn("FerryAdapter_dds_create",
         fmt::format("{}: its type is not known, so late readers get the last {} samples of the "
                     "topic, not of each instance (durable_depth)",
                     owner(), mostDurable));
    return std::to_string(mostDurable);
}

/// A peer may keep as much as it likes for late readers; what this process keeps, its user says.
std::optional<std::string> Endpoint::bounded(std::optional<std::string> depth) const
{
    if (!depth || (*depth != "all" && std::stol(*depth) <= mostDurable)) {
        return depth;
    }
    warn("FerryAdapter_dds_create",
         fmt::format("{}: the announced writers keep {} for late readers; this writer keeps {} of "
                     "each instance (durable_depth)",
                     owner(),
                     *depth == "all" ? "every sample"
                                     : fmt::format("{} samples of each instance", *depth),
                     mostDurable));
    return std::to_string(mostDurable);
}

/// What the announced writers offer; else what the topic's writers do that are known by now; else
/// what the announced readers, which are at the other end, ask for.
std::optional<std::string>
Endpoint::valueForReader(Connection &connection, const Announced &announced, const char *name) const
{
    std::optional<std::string> said = announced.find(name);
    if (said && announced.ofWriters()) {
        return said;
    }
    const std::optional<DDS_DiscoveredQos> offer = connection.watch().writersOffer(topic_);
    if (!offer) {
        return said;
    }
    for (const auto &[known, value] : propertiesOf(*offer, {}, Direction::input)) {
        if (known == name) {
            return value;
        }
    }
    return std::nullopt;
}

DDS_EndpointQos Endpoint::qos(const Strings &partitions) const
{
    const auto number = [&](Setting::Index s) {
        return static_cast<std::int32_t>(settings.number(s));
    };
    const auto flag = [&](Setting::Index s, const char *word) {
        return settings.is(s, word) ? 1 : 0;
    };
    DDS_EndpointQos qos{};
    qos.reliable = reliable() ? 1 : 0;
    qos.durability = transientLocal() ? DDS_TRANSIENT_LOCAL_DURABILITY : DDS_VOLATILE_DURABILITY;
    qos.historyDepth = settings.is(Setting::history, "keep_last") ? number(Setting::depth) : 0;
    qos.durableDepth = qos.historyDepth == 0 ? number(Setting::durableDepth) : 0;
    qos.maxSamples = number(Setting::maxSamples);
    qos.deadline = settings.number(Setting::deadline);
    qos.lifespan = settings.number(Setting::lifespan);
    qos.timeBasedFilter = settings.number(Setting::timeBasedFilter);
    qos.exclusiveOwnership = flag(Setting::ownership, "exclusive");
    qos.ownershipStrength = number(Setting::ownershipStrength);
    qos.autodispose = flag(Setting::autodispose, "true");
    qos.partitions = partitions.get();
    qos.exactPartitions = exactPartitions_ ? 1 : 0;
    // The engine's own code generator lets types that may evolve go in XCDR2 only.
    const bool second = settings.is(Setting::representation, "auto")
                            ? DDS_TypeCode_holds_appendable(type_) != 0
                            : settings.is(Setting::representation, "xcdr2");
    qos.representation = second ? DDS_XCDR2_REPRESENTATION : DDS_XCDR1_REPRESENTATION;
    qos.matchByNameOnly = flag(Setting::match, "name");
    qos.ignoreLocal = settings.is(Setting::ignoreLocal, "none") ? DDS_IGNORE_LOCAL_NONE
                      : settings.is(Setting::ignoreLocal, "participant")
                          ? DDS_IGNORE_LOCAL_PARTICIPANT
                          : DDS_IGNORE_LOCAL_PROCESS;
    qos.writeTimeout = settings.number(Setting::writeTimeout);
    // The words of these are in the order of the platform's numbers.
    qos.liveliness = static_cast<DDS_LivelinessKind>(number(Setting::liveliness));
    qos.livelinessLease = settings.number(Setting::livelinessLease);
    qos.destinationOrder = static_cast<DDS_DestinationOrderKind>(number(Setting::destinationOrder));
    qos.presentation = static_cast<DDS_PresentationScope>(number(Setting::presentation));
    qos.coherentAccess = flag(Setting::coherentAccess, "true");
    qos.orderedAccess = flag(Setting::orderedAccess, "true");
    qos.latencyBudget = settings.number(Setting::latencyBudget);
    qos.transportPriority = number(Setting::transportPriority);
    qos.userData = userData_.empty() ? nullptr : userData_.c_str();
    return qos;
}

} // namespace ferrydds
