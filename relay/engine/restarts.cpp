#include "engine/restarts.h"

#include <algorithm>

#include "engine/log.h"

namespace ferry {

Restarts::Restarts(const Configuration &configuration, Assembly &assembly, Discovery &discovery,
                   RouteRegistry &registry, std::vector<std::unique_ptr<Session>> &sessions)
    : configuration_(configuration), assembly_(assembly), discovery_(discovery), sessions_(sessions)
{
    if (configuration.restart) {
        registry.visit([&](Route &route) {
            routes_.push_back({&route, RestartTimer(*configuration.restart)});
        });
    }
}

bool Restarts::covers(const Route &route) const
{
    return configuration_.restart.has_value() && assembly_.isPossible(route);
}

void Restarts::poll(const std::function<bool()> &stop)
{
    if (!configuration_.restart) {
        return;
    }
    for (const std::size_t connection : assembly_.reconnect(stop)) {
        discovery_.reopen(connection);
        for (Watched &watched : routes_) {
            watched.timer.hurry(Clock::now());
        }
    }
    for (Watched &watched : routes_) {
        if (!stop() && isDue(watched)) {
            poll(watched, stop);
        }
    }
}

bool Restarts::request(const std::string &route)
{
    const auto found = std::find_if(routes_.begin(), routes_.end(), [&](const Watched &watched) {
        return watched.route->name() == route;
    });
    if (found == routes_.end()) {
        return false;
    }
    found->requested = true;
    found->timer = RestartTimer(*configuration_.restart);
    assembly_.hurry(found->route->settings());
    return true;
}

/// Whether it is out of service, or wanted anew, and can be made at all.
bool Restarts::isDue(const Watched &watched) const
{
    return (watched.requested || watched.route->state() == Route::State::failed) &&
           covers(*watched.route);
}

void Restarts::poll(Watched &watched, const std::function<bool()> &stop)
{
    Route &route = *watched.route;
    const Clock::time_point now = Clock::now();
    watched.timer.failed(now);
    if (watched.requested) {
        watched.timer.hurry(now);
    }
    route.setRestartAt(watched.timer.exhausted(now) ? 0 : nanoseconds(watched.timer.due()));
    if (route.isAdopted() && !watched.leaving) {
        watched.leaving = true;
        sessions_[route.settings().session]->dismiss(route, false);
    }
    const bool free = !watched.leaving || route.released();
    if (free && now >= watched.timer.due() && !watched.timer.exhausted(now) && !stop()) {
        restart(watched);
    }
}

/// The adapters see new readers and writers, and where nobody else uses them, new connections.
void Restarts::restart(Watched &watched)
{
    Route &route = *watched.route;
    Session &session = *sessions_[route.settings().session];
    watched.leaving = watched.requested = false;
    assembly_.close(route);
    route.renew();
    for (const std::size_t connection : assembly_.renew(route.settings())) {
        discovery_.reopen(connection);
    }
    assembly_.open(route);
    const bool good = route.state() == Route::State::active;
    watched.timer.attempted(Clock::now(), good);
    route.setRestartAt(good ? 0 : nanoseconds(watched.timer.due()));
    if (good) {
        session.adopt(route);
        logAbout(FERRYLOG_BIT_STATUS, "FERRYRelay_restart", route.name(), "back in service");
    }
}

bool Restarts::pending() const
{
    return std::any_of(routes_.begin(), routes_.end(), [this](const Watched &watched) {
        return isDue(watched) &&
               (!watched.timer.armed() || (watched.leaving && watched.route->released() &&
                                           watched.timer.due() <= Clock::now()));
    });
}

Clock::time_point Restarts::nextPoll() const
{
    const Clock::time_point now = Clock::now();
    Clock::time_point next = assembly_.nextReconnect();
    for (const Watched &watched : routes_) {
        if (isDue(watched) && !watched.timer.exhausted(now) &&
            (!watched.leaving || watched.route->released() || watched.timer.due() > now)) {
            next = std::min(next, watched.timer.due());
        }
    }
    return next;
}

} // namespace ferry
