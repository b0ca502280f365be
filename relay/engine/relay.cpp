#include "engine/relay.h"

#include "engine/log.h"

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
    for (const RouteSettings &settings : configuration.routes) {
        Session *session = sessions[settings.session].get();
        session->routes().push_back(std::make_unique<Route>(settings, session->settings().period,
                                                            [session] { session->wake(); }));
    }
    return sessions;
}

} // namespace

Relay::Relay(const Configuration &configuration, PluginHost &host, Reporter &reporter)
    : host_(host), sessions_(makeSessions(configuration, host, [this] { notify(); })),
      assembly_(configuration, host, reporter, sessions_)
{
}

Relay::~Relay()
{
    control_.join();
}

bool Relay::start(bool checkOnly)
{
    return control_.start("ferry:control", [this, checkOnly] { run(checkOnly); });
}

void Relay::run(bool checkOnly)
{
    if (!host_.start()) {
        setPhase(Phase::failed);
        return;
    }
    assembly_.build([this] { return stop_.load(); });
    if (checkOnly && !stop_.load()) {
        assembly_.reportStreams();
    } else if (!stop_.load()) {
        startSessions();
    }
    setPhase(Phase::running);
    waitUntil(Clock::time_point::max(), [this] { return close_.load(); });
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

void Relay::startSessions()
{
    for (const auto &session : sessions_) {
        if (session->routes().empty()) {
            continue;
        }
        if (!session->start()) {
            logError("FERRYRelay_start", FERRY_LOG_SESSION_START_FAILURE_s,
                     session->settings().name.c_str());
            for (const auto &route : session->routes()) {
                route->setState(Route::State::failed);
            }
        }
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
        for (const auto &route : session->routes()) {
            if (route.get() == session->guard().owner()) {
                const std::string text =
                    std::string("hangs in ") + session->guard().operation() + " and is left behind";
                logError("FERRYRelay_stop", FERRY_LOG_ENTITY_ANY_ss, route->name().c_str(),
                         text.c_str());
                route->setState(Route::State::failed);
                route->loseLoan();
            }
        }
    }
}

void Relay::close()
{
    close_.store(true);
    notify();
}

void Relay::join()
{
    control_.join();
}

bool Relay::anyActive() const
{
    bool active = false;
    forEachRoute(sessions_, [&](const Route &route) {
        active = active || route.state() == Route::State::active;
    });
    return active;
}

bool Relay::anyFailed() const
{
    bool failed = false;
    forEachRoute(sessions_, [&](const Route &route) {
        failed = failed || route.state() == Route::State::failed;
    });
    return failed;
}

bool Relay::idleSince(Clock::time_point time) const
{
    const std::int64_t limit =
        std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count();
    bool idle = true;
    forEachRoute(sessions_, [&](const Route &route) {
        if (route.state() == Route::State::active) {
            idle = idle && route.idle() && route.lastActivity.load() <= limit;
        }
    });
    return idle;
}

} // namespace ferry
