// What a relay is doing at the moment, as plain values: taken on any thread, for whoever asks from
// outside. Times are nanoseconds of Clock; 0 stands for none.
#ifndef FERRY_ENGINE_STATUS_H
#define FERRY_ENGINE_STATUS_H

#include <string>
#include <vector>

#include "config/diagnostics.h"
#include "engine/last_failure.h"
#include "engine/rate_meter.h"
#include "engine/route_totals.h"
#include "state/sample_buffer.h"

namespace ferry {

/// A call of a plug-in that is under way and has been for long enough to be seen.
struct CallStatus {
    /// "write of connection/stream"; "" if there is none.
    std::string what;
    std::int64_t since = 0;
};

/// An adapter, or a connection.
struct ObjectStatus {
    enum class State { starting, running, failed, closed };

    std::string name;
    /// Of a connection: its adapter.
    std::string adapter;
    State state = State::starting;
    std::int64_t since = 0;
    /// What the adapter says of it: its version, what it is connected to.
    std::string details;
    Failure failure;
    /// When it is made anew at the earliest.
    std::int64_t retryAt = 0;
    Place place{};
};

struct SessionStatus {
    enum class State { running, finished, broken };

    std::string name;
    State state = State::running;
    CallStatus call;
    /// The routes that it has, of those that are in service.
    std::size_t routes = 0;
};

/// One end of a route.
struct EndStatus {
    /// "connection/stream".
    std::string label;
    /// What stands between two routes has none.
    std::string adapter;
    Place place{};
    Failure failure;
    /// When what failed is tried again; 0 if nothing waits for that.
    std::int64_t retryAt = 0;
    /// Outputs: samples of the present loan that it does not have yet.
    std::uint64_t pending = 0;
    /// Whether a buffer stands here in place of an adapter, and what it holds.
    bool buffered = false;
    bool stored = false;
    BufferLevel level;
    std::uint64_t maxBytes = 0;
};

struct RouteStatus {
    enum class State {
        /// It has not been made yet.
        starting,
        running,
        /// An operator has paused it.
        paused,
        /// Its stream has gone, and may come back.
        waiting,
        /// An output does not take its samples, which are offered again and again; or reads fail.
        retrying,
        /// Out of service.
        failed
    };

    State state = State::starting;
    std::int64_t since = 0;
    RouteTotals totals;
    Rates rates;
    std::string session;
    /// It is made anew at that time; with `restarts` false it never is.
    std::int64_t restartAt = 0;
    bool restarts = false;
    /// How often it was made anew.
    std::uint64_t restarted = 0;
    /// Since when outputs have had nothing of the present loan.
    std::int64_t stuckSince = 0;
    bool idle = false;
    /// A call for this route that does not return, or for another one of its session.
    CallStatus call;
    CallStatus callBefore;
    EndStatus input;
    std::vector<EndStatus> outputs;
};

struct RelayStatus {
    enum class Phase { starting, running, stopping };

    Phase phase = Phase::starting;
    std::int64_t now = 0;
    std::int64_t started = 0;
    /// What the control thread makes or deletes.
    CallStatus call;
    /// Failures beside those of the routes.
    std::size_t problems = 0;
    /// What connections announce now.
    std::size_t streams = 0;
    std::vector<ObjectStatus> adapters;
    std::vector<ObjectStatus> connections;
    std::vector<SessionStatus> sessions;
    std::vector<RouteStatus> routes;
    /// Routes that went with their streams.
    std::vector<RouteTotals> gone;
};

} // namespace ferry

#endif
