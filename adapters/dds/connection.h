// A connection: a participant in a domain, and the watch over that domain.
#ifndef FERRYADAPTER_DDS_CONNECTION_H
#define FERRYADAPTER_DDS_CONNECTION_H

#include <memory>
#include <string>

#include "dds_objects.h"
#include "discovery_reader.h"
#include "discovery_watch.h"
#include "ferryjni/plugin.h"
#include "settings.h"
#include "stop.h"

namespace ferrydds {

class Connection : public QEL_FerrionConnection {
public:
    /// Joins the domain. `stop` outlives it; either listener may be null. Throws Failure.
    Connection(Stop &stop, const QEL_FerrionStreamReaderListener *subscriptionListener,
               const QEL_FerrionStreamReaderListener *publicationListener,
               const QEL_FerrionProperties *properties);
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    const Participant &participant() const
    {
        return participant_;
    }
    const Settings &settings() const
    {
        return settings_;
    }
    Stop &stop() const
    {
        return stop_;
    }
    DiscoveryWatch &watch()
    {
        return watch_;
    }
    const char *text() const
    {
        return text_.c_str();
    }
    /// Starts the watch; the reader lives as long as the connection. Throws Failure.
    Reader *discoveryReader(Direction direction);
    /// Throws Failure unless the list says what holds anyway.
    void update(const QEL_FerrionProperties *properties)
    {
        settings_.update(properties);
    }

private:
    Stop &stop_;
    Settings settings_;
    std::string text_;
    Participant participant_;
    // The watch's thread signals the readers, so it goes before them.
    DiscoveryReader outputs_;
    DiscoveryReader inputs_;
    DiscoveryWatch watch_;
};

} // namespace ferrydds

#endif
