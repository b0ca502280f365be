// What readers and writers have in common before they are made: a topic, a type, settings, QoS.
#ifndef FERRYADAPTER_DDS_ENDPOINT_H
#define FERRYADAPTER_DDS_ENDPOINT_H

#include <optional>
#include <string>
#include <vector>

#include "connection.h"
#include "dds_objects.h"
#include "session.h"
#include "settings.h"
#include "stream_qos.h"

namespace ferrydds {

class Endpoint {
public:
    /**
     * Settles everything but the engine's object.
     *
     * @param role       FERRY_SETTING_OF_READER or FERRY_SETTING_OF_WRITER.
     * @param stream     read during the call only, except for the type code, which lives on.
     * @param properties may be null.
     * @throws Failure when the stream has no type that is carried, or a property is wrong
     */
    Endpoint(std::uint32_t role, Connection &connection, const Session &session,
             const QEL_FerrionStreamInfo &stream, const QEL_FerrionProperties *properties);

    const DDS_TypeCode *type() const
    {
        return type_;
    }
    const std::string &topic() const
    {
        return topic_;
    }
    /// Null when the type's own name counts.
    const char *typeName() const
    {
        return typeName_.empty() ? nullptr : typeName_.c_str();
    }
    const std::string &owner() const
    {
        return settings.owner();
    }
    bool reliable() const
    {
        return settings.is(Setting::reliability, "reliable");
    }
    bool transientLocal() const
    {
        return settings.is(Setting::durability, "transient_local");
    }
    bool keyed() const
    {
        return keyed_;
    }
    /// Its partitions are `partitions`, which must outlive the use of the result, as the endpoint
    /// must.
    DDS_EndpointQos qos(const Strings &partitions) const;
    const std::vector<std::string> &partitions() const
    {
        return partitions_;
    }

    Settings settings;

private:
    void settle(std::uint32_t role, Connection &connection, const Announced &announced);
    std::optional<std::string> valueForReader(Connection &connection, const Announced &announced,
                                              const char *name) const;
    std::string announcedName(const QEL_FerrionStreamInfo &stream, bool isRos,
                              bool isAnnounced) const;
    std::string depthOfTopic() const;
    std::optional<std::string> bounded(std::optional<std::string> depth) const;
    void checkRules(const Announced &announced) const;

    const DDS_TypeCode *type_;
    const DDS_OpaqueType *opaque_; // null for a type whose samples are looked into
    bool keyed_;
    std::string topic_;
    std::string typeName_;
    std::string userData_;
    std::vector<std::string> partitions_;
    bool exactPartitions_ = false;
};

} // namespace ferrydds

#endif
