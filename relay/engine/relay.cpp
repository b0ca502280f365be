#include "engine/relay.h"

#include <algorithm>

#include "engine/log.h"
#include "engine/retried_letters.h"

namespace ferry {
namespace {

std::vector<std::unique_ptr<Session>> makeSessions(const Configuration &configuration,
                                                   PluginHost &host,
                                                   const std::function<void()> &changed)
{
    std::vector<std::unique_ptr<Session>> sessions;
    for (const SessionSettings &settings : configuration.sessions) {
        sessions.push_back(std::make_unique<Session>(settings, host, changed));
    }
    return sessions;
}

} // namespace

Relay::Relay(const Configuration &configuration, PluginHost &host, Reporter &reporter,
             DeadLetterKeeper *keeper)
    : configuration_(configuration), host_(host), state_(configuration.state),
      letters_(keeper == nullptr ? makeKeeper(configuration, state_) : nullptr),
      sessions_(makeSessions(configuration, host, [this] { notify(); })),
      assembly_(configuration, host, reporter, registry_, sessions_, buffers_,
                [this] { notify(); }),
      discovery_(configuration, assembly_, registry_, sessions_,
                 letters_ ? letters_.get() : keeper),
      sessionWatches_(sessions_.size())
{
    for (const OutputBuffer &settings : configuration.buffers) {
        buffers_.push_back(std::make_unique<BufferedOutput>(
            settings, state_, [this, &settings] { hasRoom(settings); }));
    }
    for (const RouteSettings &settings : configuration.routes) {
        registry_.add(makeRoute(configuration, settings, *sessions_[settings.session],
                                letters_ ? letters_.get() : keeper, buffers_));
    }
    restarts_ =
        std::make_unique<Restarts>(configuration, assembly_, discovery_, registry_, sessions_);
}

/// The route that fills the buffer need not wait any longer.
void Relay::hasRoom(const OutputBuffer &buffer)
{
    registry_.forEach([&](Route &route) {
        if (route.name() == buffer.route) {
            route.hurry();
            sessions_[route.settings().session]->wake();
        }
    });
}

Relay::~Relay()
{
    join();
}

bool Relay::start(Task task)
{
    return control_.start("ferry:control", [this, task] { run(task); });
}

void Relay::run(Task task)
{
    if (!host_.start()) {
        setPhase(Phase::failed);
        return;
    }
    const auto stop = [this] { return stop_.load(); };
    assembly_.build(stop);
    if (!stop()) {
        discovery_.open(task != Task::run);
    }
    if (task == Task::check) {
        do {
            discovery_.poll(stop);
        } while (discovery_.pending() && !stop());
    } else if (!stop()) {
        startSessions();
    }
    setPhase(Phase::running);
    if (task == Task::check) {
        waitUntil(Clock::time_point::max(), [this] { return close_.load(); });
    } else {
        serve();
    }
    finish();
}

void Relay::finish()
{
    for (const auto &session : sessions_) {
        session->join();
    }
    assembly_.tearDown();
    setPhase(Phase::closed);
    if (!assembly_.leftSomething()) {
        host_.stop();
    }
    setPhase(Phase::ended);
}

/// Starts the sessions that have routes or may get some.
void Relay::startSessions()
{
    std::vector<bool> used(sessions_.size());
    for (const DiscoverySettings &rule : configuration_.discovery) {
        used[rule.route.session] =
            discovery_.watching() || assembly_.isReconnecting(rule.connection);
    }
    registry_.visit([&](Route &route) {
        if (route.state() == Route::State::active) {
            sessions_[route.settings().session]->adopt(route);
        }
        if (isInService(route)) {
            used[route.settings().session] = true;
        }
    });
    for (std::size_t i = 0; i < sessions_.size(); ++i) {
        if (used[i] && sessions_[i]->start()) {
            started_ = true;
        }
    }
}

/// Watches what is announced until everything is to be closed. After a request to stop nothing is
/// made or removed any more.
void Relay::serve()
{
    const auto stop = [this] { return stop_.load(); };
    while (!close_.load()) {
        if (!stop()) {
            restartRequested();
            discovery_.poll(stop);
            restarts_->poll(stop);
        }
        const auto pending = [&] {
            return discovery_.pending() || restarts_->pending() || isRestartRequested();
        };
        waitUntil(stop() ? Clock::time_point::max()
                         : std::min(discovery_.nextPoll(), restarts_->nextPoll()),
                  [&] { return close_.load() || (!stop() && pending()); });
    }
}

void Relay::setPhase(Phase phase)
{
    phase_.store(phase);
    notify();
}

void Relay::notify()
{
    {
        const std::lock_guard<std::mutex> lock(mutex_);
    }
    condition_.notify_all();
}

bool Relay::waitUntil(Clock::time_point time, const std::function<bool()> &condition)
{
    std::unique_lock<std::mutex> lock(mutex_);
    if (time == Clock::time_point::max()) {
        condition_.wait(lock, condition);
        return true;
    }
    return condition_.wait_until(lock, time, condition);
}

void Relay::requestStop()
{
    stop_.store(true);
    for (const auto &session : sessions_) {
        session->requestStop();
    }
    notify();
}

bool Relay::sessionsFinished() const
{
    for (const auto &session : sessions_) {
        if (!session->finished() && !session->guard().givenUp()) {
            return false;
        }
    }
    return true;
}

void Relay::giveUpSessions()
{
    for (const auto &session : sessions_) {
        if (session->finished() || !session->guard().giveUp()) {
            continue;
        }
        logError("FERRYRelay_stop", FERRY_LOG_SESSION_STOPPING_TIMEOUT_s,
                 session->settings().name.c_str());
        registry_.forEach([&](Route &route) {
            if (&route == session->guard().owner()) {
                logAbout(FERRYLOG_BIT_ERROR, "FERRYRelay_stop", route.name(),
                         "hangs in {} and is left behind", route.describe(session->guard()));
                route.setState(Route::State::failed);
                route.abandonLoan();
            }
        });
    }
}

void Relay::close()
{
    close_.store(true);
    notify();
}

bool Relay::giveUpControl()
{
    const std::string what = assembly_.where();
    if (!assembly_.giveUp()) {
        return false;
    }
    logAbout(FERRYLOG_BIT_ERROR, "FERRYRelay_stop", configuration_.name,
             "{} does not return and is left behind", what);
    (rescuers_.empty() ? control_ : *rescuers_.back()).forget();
    rescuers_.push_back(std::make_unique<Thread>());
    return rescuers_.back()->start("ferry:rescue", [this] {
        if (host_.attachThread()) {
            finish();
        }
    });
}

std::string Relay::callOf(const Session &session) const
{
    std::string text = fmt::format("session {}", session.settings().name);
    registry_.forEach([&](const Route &route) {
        if (&route == session.guard().owner()) {
            text = fmt::format("route {}: {}", route.name(), route.describe(session.guard()));
        }
    });
    return text;
}

/// Which routes wait for a call of their session's thread, for the end of a line about the call.
std::string Relay::waitingFor(const Session &session)
{
    constexpr std::size_t most = 5;
    std::vector<std::string> names;
    registry_.forEach([&](const Route &route) {
        if (sessions_[route.settings().session].get() == &session &&
            &route != session.guard().owner() && route.state() == Route::State::active) {
            names.push_back(route.name());
        }
    });
    if (names.empty()) {
        return "";
    }
    std::string others;
    if (names.size() > most) {
        others = fmt::format(" and {} more", names.size() - most);
        names.resize(most);
    }
    return fmt::format("; behind it in session {} wait {}{}", session.settings().name,
                       fmt::join(names, ", "), others);
}

std::vector<std::string> Relay::callsUnderWay()
{
    std::vector<std::string> calls;
    for (const auto &session : sessions_) {
        if (session->guard().inside()) {
            calls.push_back(callOf(*session));
        }
    }
    if (assembly_.guard().inside()) {
        calls.push_back(assembly_.where());
    }
    return calls;
}

std::vector<std::string> Relay::stalls(Clock::duration limit)
{
    std::vector<std::string> lines;
    const Clock::time_point now = Clock::now();
    const auto add = [&](const std::string &what, Clock::duration time) {
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time).count();
        lines.push_back(fmt::format("{} has not returned for {} s", what, seconds));
    };
    for (std::size_t i = 0; i < sessions_.size(); ++i) {
        const auto time = sessionWatches_[i].look(sessions_[i]->guard(), now, limit);
        if (time > Clock::duration::zero()) {
            add(callOf(*sessions_[i]), time);
            lines.back() += waitingFor(*sessions_[i]);
        }
    }
    const auto time = controlWatch_.look(assembly_.guard(), now, limit);
    if (time > Clock::duration::zero()) {
        add(assembly_.where(), time);
    }
    return lines;
}

void Relay::join()
{
    control_.join();
    for (const auto &rescuer : rescuers_) {
        rescuer->join();
    }
}

bool Relay::anyActive() const
{
    bool active = (discovery_.watching() || assembly_.reconnectingSince() != 0) &&
                  std::any_of(configuration_.discovery.begin(), configuration_.discovery.end(),
                              [this](const DiscoverySettings &rule) {
                                  return !sessions_[rule.route.session]->broken();
                              });
    registry_.forEach([&](const Route &route) { active = active || isInService(route); });
    return active;
}

/// Whether a route moves samples, or is going to.
bool Relay::isInService(const Route &route) const
{
    return route.state() == Route::State::active ||
           (route.state() == Route::State::failed && restarts_->covers(route));
}

std::size_t Relay::problems() const
{
    const auto broken = std::count_if(sessions_.begin(), sessions_.end(),
                                      [](const auto &session) { return session->broken(); });
    return assembly_.problems() + static_cast<std::size_t>(broken);
}

bool Relay::anyRead() const
{
    const std::vector<RouteTotals> totals = registry_.totals();
    return std::any_of(totals.begin(), totals.end(),
                       [](const RouteTotals &route) { return route.read > 0; });
}

bool Relay::idleSince(Clock::time_point time, Clock::time_point stuck) const
{
    const std::int64_t limit = nanoseconds(time);
    const auto isStuck = [stuck](std::int64_t since) {
        return since != 0 && since <= nanoseconds(stuck);
    };
    const std::int64_t reconnecting = assembly_.reconnectingSince();
    bool idle = (!discovery_.watching() || discovery_.quietSince(time)) &&
                (reconnecting == 0 || isStuck(reconnecting));
    registry_.forEach([&](const Route &route) {
        if (route.state() == Route::State::active) {
            idle = idle &&
                   ((route.idle() && route.lastActivity() <= limit) || isStuck(route.stuckSince()));
        } else if (isInService(route)) {
            idle = idle && isStuck(route.failedSince());
        }
    });
    return idle;
}

std::vector<std::string> Relay::unfinished() const
{
    std::vector<std::string> all;
    if (assembly_.reconnectingSince() != 0) {
        all.emplace_back("some connection is out of service");
    }
    registry_.forEach([&](const Route &route) {
        if (route.state() == Route::State::failed && isInService(route)) {
            all.push_back(fmt::format("route {} is out of service", route.name()));
        } else if (route.stuckSince() != 0) {
            all.push_back(
                fmt::format("route {} has samples that an output does not take", route.name()));
        }
    });
    return all;
}

} // namespace ferry
