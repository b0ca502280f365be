#include "engine/session.h"

#include <algorithm>

#include "engine/log.h"

namespace ferry {

Session::Session(const SessionSettings &settings, PluginHost &host, std::function<void()> changed)
    : settings_(settings), host_(host), changed_(std::move(changed))
{
}

void Session::wake()
{
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        woken_ = true;
    }
    condition_.notify_one();
}

bool Session::start()
{
    finished_.store(false);
    if (!thread_.start("ferry:" + settings_.name, [this] { run(); })) {
        finished_.store(true);
        return false;
    }
    return true;
}

void Session::requestStop()
{
    stop_.store(true);
    wake();
}

void Session::join()
{
    if (guard_.givenUp()) {
        thread_.forget();
    } else {
        thread_.join();
    }
}

void Session::run()
{
    if (host_.attachThread()) {
        loop();
        host_.detachThread();
    } else {
        logError("FERRYSession_run", FERRY_LOG_SESSION_START_FAILURE_s, settings_.name.c_str());
        for (const auto &route : routes_) {
            route->errors.add(1);
            route->setState(Route::State::failed);
        }
    }
    finished_.store(true);
    changed_();
}

/// One read of every route that has something to do, round after round, so that a busy stream does
/// not starve its neighbours.
void Session::loop()
{
    while (!stop_.load()) {
        bool worked = false;
        for (const auto &route : routes_) {
            if (!stop_.load() && route->ready(Clock::now())) {
                route->step(guard_);
                worked = true;
                if (route->state() == Route::State::failed) {
                    changed_();
                }
            }
        }
        if (!worked) {
            wait();
        }
    }
}

void Session::wait()
{
    Clock::time_point due = Clock::time_point::max();
    for (const auto &route : routes_) {
        if (route->state() == Route::State::active) {
            due = std::min(due, route->nextDue());
        }
    }
    std::unique_lock<std::mutex> lock(mutex_);
    const auto awake = [this] { return woken_ || stop_.load(); };
    if (due == Clock::time_point::max()) {
        condition_.wait(lock, awake);
    } else {
        condition_.wait_until(lock, due, awake);
    }
    woken_ = false;
}

} // namespace ferry
