#include "endpoint.h"

#include "error.h"

namespace ferrydds {
namespace {

std::string ownerOf(Place place, const QEL_FerrionStreamInfo &stream)
{
    const std::string name = stream.streamName == nullptr ? "" : stream.streamName;
    return (place == onReader ? "reader of stream '" : "writer of stream '") + name + "'";
}

const DDS_TypeCode *typeOf(const std::string &owner, const QEL_FerrionStreamInfo &stream)
{
    if (stream.typeRepresentationKind != QEL_FERRION_TYPE_REPRESENTATION_TYPECODE) {
        throw Failure(owner + ": its type is given as representation " +
                      std::to_string(stream.typeRepresentationKind) +
                      "; only 0, a type code, is carried");
    }
    if (stream.typeRepresentation == nullptr) {
        throw Failure(owner + ": it has no type");
    }
    return static_cast<const DDS_TypeCode *>(stream.typeRepresentation);
}

/// The stream's own property, its session's, the announcement's, the connection's: the first that
/// says something.
std::vector<std::string> partitionsOf(const Settings &settings, const Connection &connection,
                                      const QEL_FerrionStreamInfo &stream)
{
    if (settings.given(Setting::partitions)) {
        return settings.list(Setting::partitions);
    }
    const QEL_FerrionStringSeq &announced = stream.partition;
    if (announced.buffer == nullptr || announced.length <= 0) {
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

Endpoint::Endpoint(Place place, Connection &connection, const Session &session,
                   const QEL_FerrionStreamInfo &stream, const QEL_FerrionProperties *properties)
    : settings(place, ownerOf(place, stream), properties, &session.settings()),
      type_(typeOf(settings.owner(), stream)),
      keyed_(DDS_TypeCode_is_keyed(DDS_TypeCode_resolve(type_)) != 0),
      topic_(settings.text(Setting::topic)), typeName_(settings.text(Setting::typeName)),
      partitions_(partitionsOf(settings, connection, stream))
{
    if (topic_.empty()) {
        topic_ = stream.streamName == nullptr ? "" : stream.streamName;
    }
    if (topic_.empty()) {
        throw Failure(settings.owner() + ": it has no name, and property 'topic' says none");
    }
    settle(connection);
    checkRules();
}

/// Combinations that would do nothing, or not what was meant.
void Endpoint::checkRules() const
{
    if (settings.given(Setting::depth) && !settings.is(Setting::history, "keep_last")) {
        throw Failure(owner() + ": property 'depth' needs 'history' to be keep_last");
    }
    if (settings.given(Setting::ownershipStrength) &&
        !settings.is(Setting::ownership, "exclusive")) {
        throw Failure(owner() +
                      ": property 'ownership_strength' needs 'ownership' to be exclusive");
    }
    if (settings.given(Setting::durableDepth) &&
        !(transientLocal_ && settings.is(Setting::history, "keep_all"))) {
        throw Failure(owner() + ": property 'durable_depth' needs 'durability' to be "
                                "transient_local and 'history' to be keep_all");
    }
}

void Endpoint::settle(Connection &connection)
{
    const bool anyReliability = settings.is(Setting::reliability, "auto");
    const bool anyDurability = settings.is(Setting::durability, "auto");
    reliable_ = settings.is(Setting::reliability, "reliable");
    transientLocal_ = settings.is(Setting::durability, "transient_local");
    if (anyReliability || anyDurability) {
        const Offer offer = connection.watch().writersOffer(topic_);
        reliable_ = anyReliability ? !offer.any || offer.reliable : reliable_;
        transientLocal_ = anyDurability ? offer.any && offer.transientLocal : transientLocal_;
    }
}

DDS_EndpointQos Endpoint::qos(const Strings &partitions) const
{
    const auto number = [&](Setting s) { return static_cast<std::int32_t>(settings.number(s)); };
    const auto flag = [&](Setting s, const char *word) { return settings.is(s, word) ? 1 : 0; };
    DDS_EndpointQos qos{};
    qos.reliable = reliable_ ? 1 : 0;
    qos.durability = transientLocal_ ? DDS_TRANSIENT_LOCAL_DURABILITY : DDS_VOLATILE_DURABILITY;
    qos.historyDepth = settings.is(Setting::history, "keep_last") ? number(Setting::depth) : 0;
    qos.durableDepth = qos.historyDepth == 0 ? number(Setting::durableDepth) : 0;
    qos.maxSamples = number(Setting::maxSamples);
    qos.deadline = settings.nanoseconds(Setting::deadline);
    qos.lifespan = settings.nanoseconds(Setting::lifespan);
    qos.timeBasedFilter = settings.nanoseconds(Setting::timeBasedFilter);
    qos.exclusiveOwnership = flag(Setting::ownership, "exclusive");
    qos.ownershipStrength = number(Setting::ownershipStrength);
    qos.autodispose = flag(Setting::autodispose, "true");
    qos.partitions = partitions.get();
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
    qos.writeTimeout = settings.nanoseconds(Setting::writeTimeout);
    return qos;
}

} // namespace ferrydds
