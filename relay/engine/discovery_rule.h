// What a discovery rule says about one stream. Pure: no plug-in is called.
#ifndef FERRY_ENGINE_DISCOVERY_RULE_H
#define FERRY_ENGINE_DISCOVERY_RULE_H

#include <string>
#include <utility>
#include <vector>

#include "config/configuration.h"
#include "ferryjni/properties.h"
#include "ferryjni/stream_info.h"

namespace ferry {

/// A stream as a connection announces it.
struct AnnouncedStream {
    /// Index in the configuration.
    std::size_t connection = 0;
    /// An input stream: one that can be read.
    bool input = true;
    std::string name;
    /// Empty when the adapter does not say.
    std::string typeName;
    /// Null when the adapter does not know it.
    const DDS_TypeCode *type = nullptr;
    /// In order, at least one; the default partition is "". Of one that has gone there may be none:
    /// then all streams of the name have.
    std::vector<std::string> partitions;
    /// What its endpoints run with, as far as the adapter says.
    Properties properties;

    bool operator==(const AnnouncedStream &other) const;
};

/// Takes over what a discovery reader lent. `properties` may be null.
AnnouncedStream announcedStream(const QEL_FerrionStreamInfo &info,
                                const QEL_FerrionProperties *properties, std::size_t connection,
                                bool input);

/// A stream among those of its connection and direction: its name and partitions. Without any it
/// stands for all streams of that name, together.
using StreamId = std::pair<std::string, std::vector<std::string>>;

/// The stream as messages and routes name it: "name", or "name [a,b]" for one that is not just in
/// the default partition. No two are named alike.
std::string labelOf(const StreamId &stream);

/// What a rule takes the stream for.
StreamId idFor(const DiscoverySettings &rule, const AnnouncedStream &stream);

/// Adds a stream of the same name: its partitions, and its type where none was known. Properties in
/// which the two differ say nothing of both.
void merge(AnnouncedStream &stream, const AnnouncedStream &other);

/// Whether the rule is about streams of this connection and direction: names are unique
/// only among these.
bool concerns(const AnnouncedStream &stream, const DiscoverySettings &rule);

/// Whether the rule wants the stream: of its connection and direction, allowed and not denied. A
/// stream of several partitions is allowed, or denied, for any of them.
bool wants(const DiscoverySettings &rule, const AnnouncedStream &stream);

/// The route that the rule makes of a stream: named "rule/label", with `${stream}`, `${type}` and
/// `${partitions}` replaced at its other end, and with what was announced among the properties of
/// both. `typeName` and `type` are what the route will have.
RouteSettings routeFor(const DiscoverySettings &rule, const AnnouncedStream &stream,
                       const std::string &typeName, const DDS_TypeCode *type);

/// Whether this end of a route is the stream.
bool isAt(const StreamSettings &end, const AnnouncedStream &stream);
/// Whether an output of the route is the stream.
bool writesTo(const RouteSettings &route, const AnnouncedStream &stream);
/// Whether the route reads the input stream, or writes to the output stream.
bool uses(const RouteSettings &route, const AnnouncedStream &stream);

/// Whether the stream's type has the name that the route has for it: that of its own type, or the
/// one that the end asks its adapter for.
bool isOfType(const RouteSettings &route, const AnnouncedStream &stream);

/// Whether a route that was made for a stream as it was has every partition that it is in now.
bool covers(const AnnouncedStream &made, const AnnouncedStream &now);

/// What is announced now, with what was before: "reliability best_effort (was reliable)"; "" when
/// the properties are the same.
std::string differenceOf(const Properties &before, const Properties &now);

/// Why such a route cannot be made ("" when it can): its names and values may have to go to Java.
std::string rejectionOf(const RouteSettings &route);

/// Whether samples of the type can be looked into.
inline bool isKnown(const DDS_TypeCode *type)
{
    return type != nullptr && DDS_TypeCode_get_opaque(type) == nullptr;
}

/// The value of a property, or "".
std::string valueOf(const Properties &properties, const std::string &name);

/// In what two types differ, with the path to it; "" when they do not, or one is not known.
std::string differenceOf(const DDS_TypeCode *mine, const DDS_TypeCode *theirs);

} // namespace ferry

#endif
