// The quality of service that the endpoints of a stream have in common, as properties of the
// announced stream.
#ifndef FERRYADAPTER_DDS_STREAM_QOS_H
#define FERRYADAPTER_DDS_STREAM_QOS_H

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ferryjni/properties.h"
#include "qddsdomain/discovery.h"

namespace ferrydds {

enum class Direction {
    /// Topics with remote writers.
    input,
    /// Topics with remote readers.
    output
};

/// Makes `common` fit one more endpoint. Of writers remains what all of them offer, so that one
/// reader gets on with all; of readers what the most demanding asks for, so that one writer does.
/// Of several strengths the greatest remains. Ownership is exclusive when all have it so.
void widen(DDS_DiscoveredQos &common, const DDS_DiscoveredQos &other, Direction direction);

using QosProperties = std::vector<std::pair<std::string, std::string>>;

/// Names and values as the adapter's own properties have them; what is not limited is left out. Of
/// streams to be read the partitions are among them, as joined() has them.
QosProperties propertiesOf(const DDS_DiscoveredQos &qos, const std::vector<std::string> &partitions,
                           Direction direction);

/// Names with commas between them.
std::string joined(const std::vector<std::string> &names);

/// What the host says of the announced stream that a reader or writer is made for; nothing where
/// the stream was not announced.
class Announced {
public:
    explicit Announced(const QEL_FerrionProperties *properties);

    /// Whether the reader or writer belongs to an announced stream at all.
    bool any() const
    {
        return any_;
    }
    /// Whether the announcement speaks of writers: the stream is one to be read.
    bool ofWriters() const
    {
        return find("direction") == std::string("input");
    }
    /// Whether the announced stream is at the other end of the route that a reader, or else a
    /// writer, is for.
    bool isElsewhere(bool reader) const
    {
        return any_ && ofWriters() != reader;
    }
    /// A value by the name that the adapter announced it under.
    std::optional<std::string> find(const std::string &name) const;

private:
    bool any_ = false;
    QosProperties properties_;
};

} // namespace ferrydds

#endif
