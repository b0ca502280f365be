// What a discovery rule says about one stream. Pure: no plug-in is called.
#ifndef FERRY_ENGINE_DISCOVERY_RULE_H
#define FERRY_ENGINE_DISCOVERY_RULE_H

#include <string>
#include <vector>

#include "config/configuration.h"
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
    /// At least one; the default partition is "".
    std::vector<std::string> partitions;

    bool operator==(const AnnouncedStream &other) const;
};

/// Takes over what a discovery reader lent; a stream that has gone has only its name.
AnnouncedStream announcedStream(const QEL_FerrionStreamInfo &info, std::size_t connection,
                                bool input);

/// Whether the rule is about streams of this connection and direction: names are told apart by
/// them.
bool concerns(const AnnouncedStream &stream, const DiscoverySettings &rule);

/// Whether the rule wants the stream: of its connection and direction, allowed and not denied. A
/// stream of several partitions is allowed, or denied, for any of them.
bool wants(const DiscoverySettings &rule, const AnnouncedStream &stream);

/// The route that the rule makes of a stream: named "rule/stream", with `${stream}` and `${type}`
/// replaced at its other end. `typeName` and `type` are what the route will have.
RouteSettings routeFor(const DiscoverySettings &rule, const AnnouncedStream &stream,
                       const std::string &typeName, const DDS_TypeCode *type);

/// Whether this end of a route is the stream.
bool isAt(const StreamSettings &end, const AnnouncedStream &stream);
/// Whether an output of the route is the stream.
bool writesTo(const RouteSettings &route, const AnnouncedStream &stream);
/// Whether the route reads the input stream, or writes to the output stream.
bool uses(const RouteSettings &route, const AnnouncedStream &stream);

/// Whether the announced end of such a route was made with every partition that the stream is in
/// now.
bool coversPartitions(const RouteSettings &route, const AnnouncedStream &stream);

/// Why such a route cannot be made ("" when it can): its names and values may have to go to Java.
std::string refusalOf(const RouteSettings &route);

/// In what two types differ, with the path to it; "" when they do not, or one is not known.
std::string differenceOf(const DDS_TypeCode *mine, const DDS_TypeCode *theirs);

} // namespace ferry

#endif
