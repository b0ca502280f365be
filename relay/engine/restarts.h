// Makes anew what is out of service, connections and the configuration's own routes, without
// touching other routes. Control thread, where nothing else is said.
#ifndef FERRY_ENGINE_RESTARTS_H
#define FERRY_ENGINE_RESTARTS_H

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

#include "engine/discovery.h"
#include "engine/restart_timer.h"

namespace ferry {

class Restarts {
public:
    Restarts(const Configuration &configuration, Assembly &assembly, Discovery &discovery,
             RouteRegistry &registry, std::vector<std::unique_ptr<Session>> &sessions);

    /// Takes out of their sessions the routes that are out of service, and makes what is due.
    /// `stop` is asked between any two calls of plug-ins.
    void poll(const std::function<bool()> &stop);
    /// Whether a route has gone out of service, or has left its session, since the last poll.
    bool pending() const;
    Clock::time_point nextPoll() const;

    /// An operator wants the route made anew, in service or not: at once, even if that had been
    /// given up. False if there is no such route here.
    bool request(const std::string &route);

    /// Whether the route is going to be made anew. Any thread.
    bool covers(const Route &route) const;

private:
    struct Watched {
        Route *route = nullptr;
        RestartTimer timer;
        /// Asked its session to release it.
        bool leaving = false;
        /// An operator wants it made anew.
        bool requested = false;
    };

    void poll(Watched &watched, const std::function<bool()> &stop);
    bool isDue(const Watched &watched) const;
    void restart(Watched &watched);

    const Configuration &configuration_;
    Assembly &assembly_;
    Discovery &discovery_;
    std::vector<std::unique_ptr<Session>> &sessions_;
    /// Empty if nothing is to be made anew.
    std::vector<Watched> routes_;
};

} // namespace ferry

#endif
