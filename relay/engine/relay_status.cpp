// What a relay tells operators, and what it lets them do.
#include <algorithm>

#include "engine/relay.h"

namespace ferry {
namespace {

SessionStatus::State stateOf(const Session &session)
{
    if (session.broken()) {
        return SessionStatus::State::broken;
    }
    return session.finished() ? SessionStatus::State::finished : SessionStatus::State::running;
}

RelayStatus::Phase phaseOf(Relay::Phase phase, bool stop)
{
    if (phase == Relay::Phase::starting && !stop) {
        return RelayStatus::Phase::starting;
    }
    return phase == Relay::Phase::running && !stop ? RelayStatus::Phase::running
                                                   : RelayStatus::Phase::stopping;
}

SteerResult noSuchRoute(const std::string &route)
{
    return {fmt::format("there is no route \"{}\"", route), true};
}

} // namespace

SteerResult Relay::pause(const std::string &route, bool paused)
{
    if (!registry_.pause(route, paused)) {
        return noSuchRoute(route);
    }
    for (const auto &session : sessions_) {
        session->wake();
    }
    return {};
}

SteerResult Relay::restart(const std::string &route)
{
    bool found = false;
    bool possible = false;
    registry_.forEach([&](const Route &each) {
        if (each.name() == route) {
            found = true;
            possible = possible || restarts_->covers(each);
        }
    });
    if (!found) {
        return noSuchRoute(route);
    }
    if (!possible) {
        return {fmt::format(
            "route {} cannot be made anew: what keeps it out of service is a mistake in the "
            "configuration, or an adapter that was not made",
            route)};
    }
    if (phase_.load() != Phase::running || stop_.load()) {
        return {"the relay starts or stops: it makes no route anew"};
    }
    {
        const std::lock_guard<std::mutex> lock(requestMutex_);
        if (std::find(requested_.begin(), requested_.end(), route) == requested_.end()) {
            requested_.push_back(route);
        }
    }
    notify();
    return {};
}

/// A route that has gone meanwhile needs no answer.
void Relay::restartRequested()
{
    std::vector<std::string> routes;
    {
        const std::lock_guard<std::mutex> lock(requestMutex_);
        routes.swap(requested_);
    }
    for (const std::string &route : routes) {
        if (!restarts_->request(route)) {
            discovery_.restart(route);
        }
    }
}

bool Relay::isRestartRequested() const
{
    const std::lock_guard<std::mutex> lock(requestMutex_);
    return !requested_.empty();
}

void Relay::measure(Clock::time_point now)
{
    registry_.forEach([now](Route &route) { route.measure(now); });
}

CallStatus Relay::callStatus(std::size_t session) const
{
    const std::int64_t since = sessionWatches_[session].since(sessions_[session]->guard());
    return since == 0 ? CallStatus() : CallStatus{callOf(*sessions_[session]), since};
}

RelayStatus Relay::status() const
{
    RelayStatus status;
    const Clock::time_point now = Clock::now();
    status.phase = phaseOf(phase_.load(), stop_.load());
    status.now = nanoseconds(now);
    status.started = nanoseconds(begin_);
    const std::int64_t since = controlWatch_.since(assembly_.guard());
    if (since != 0) {
        status.call = {assembly_.where(), since};
    }
    status.problems = problems();
    status.streams = discovery_.count();
    status.adapters = assembly_.board().adapters();
    status.connections = assembly_.board().connections();
    addRoutes(status);
    status.gone = registry_.gone();
    return status;
}

void Relay::addRoutes(RelayStatus &status) const
{
    for (std::size_t i = 0; i < sessions_.size(); ++i) {
        status.sessions.push_back(
            {sessions_[i]->settings().name, stateOf(*sessions_[i]), callStatus(i), 0});
    }
    const auto adapterOf = [this](const StreamSettings &end) {
        return end.buffer
                   ? std::string()
                   : configuration_.adapters[configuration_.connections[end.connection].adapter]
                         .name;
    };
    registry_.forEach([&](const Route &route) {
        const RouteSettings &settings = route.settings();
        SessionStatus &session = status.sessions[settings.session];
        status.routes.push_back(route.status());
        RouteStatus &made = status.routes.back();
        made.session = session.name;
        made.restarts = restarts_->covers(route);
        made.input.adapter = adapterOf(settings.input);
        for (std::size_t i = 0; i < settings.outputs.size(); ++i) {
            made.outputs[i].adapter = adapterOf(settings.outputs[i]);
        }
        const CallGuard &guard = sessions_[settings.session]->guard();
        if (session.call.since != 0 && guard.owner() == &route) {
            made.call = {route.describe(guard), session.call.since};
        } else {
            made.callBefore = session.call;
        }
        session.routes += route.state() == Route::State::active ? 1 : 0;
    });
}

} // namespace ferry
