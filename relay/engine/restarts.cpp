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
            routes_.push_back({&route, RestartTimer(*configuration.restart), false});
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
        if (!stop() && watched.route->state() == Route::State::failed && covers(*watched.route)) {
            poll(watched, stop);
        }
    }
}

void Restarts::poll(Watched &watched, const std::function<bool()> &stop)
{
    Route &route = *watched.route;
    watched.timer.failed(Clock::now());
    if (route.isAdopted() && !watched.leaving) {
        watched.leaving = true;
        sessions_[route.settings().session]->dismiss(route, false);
    }
    const Clock::time_point now = Clock::now();
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
    watched.leaving = false;
    assembly_.close(route);
    route.renew();
    for (const std::size_t connection : assembly_.renew(route.settings())) {
        discovery_.reopen(connection);
    }
    assembly_.open(route);
    const bool good = route.state() == Route::State::active;
    watched.timer.attempted(Clock::now(), good);
    if (good) {
        session.adopt(route);
        logAbout(FERRYLOG_BIT_STATUS, "FERRYRelay_restart", route.name(), "back in service");
    }
}

bool Restarts::pending() const
{
    return std::any_of(routes_.begin(), routes_.end(), [this](const Watched &watched) {
        return watched.route->state() == Route::State::failed && covers(*watched.route) &&
               (!watched.timer.armed() || (watched.leaving && watched.route->released() &&
                                           watched.timer.due() <= Clock::now()));
    });
}

Clock::time_point Restarts::nextPoll() const
{
    const Clock::time_point now = Clock::now();
    Clock::time_point next = assembly_.nextReconnect();
    for (const Watched &watched : routes_) {
        if (watched.route->state() == Route::State::failed && covers(*watched.route) &&
            !watched.timer.exhausted(now) &&
            (!watched.leaving || watched.route->released() || watched.timer.due() > now)) {
            next = std::min(next, watched.timer.due());
        }
    }
    return next;
}

} // namespace ferry
