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
        logError("FERRYSession_start", FERRY_LOG_SESSION_START_FAILURE_s, settings_.name.c_str());
        end(true);
        finished_.store(true);
        return false;
    }
    std::unique_lock<std::mutex> lock(mutex_);
    beginning_.wait(lock, [this] { return begun_; });
    return !broken();
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

void Session::adopt(Route &route)
{
    route.setAdopted();
    send(route, Request::adopt);
}

void Session::dismiss(Route &route, bool drain)
{
    send(route, drain ? Request::drain : Request::drop);
}

void Session::send(Route &route, Request request)
{
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (!ended_) {
            mail_.push_back({&route, request});
            anyMail_.store(true);
            woken_ = true;
        } else if (request != Request::adopt) {
            route.release();
        } else if (broken()) {
            route.fail();
        }
    }
    condition_.notify_one();
}

void Session::takeMail()
{
    const std::lock_guard<std::mutex> lock(mutex_);
    anyMail_.store(false);
    for (const Mail &mail : mail_) {
        if (mail.request == Request::adopt) {
            routes_.push_back(mail.route);
        } else {
            mail.route->leave(mail.request == Request::drain);
            ++leaving_;
        }
    }
    mail_.clear();
}

/// Releases the routes that have left.
void Session::releaseLeft()
{
    bool any = false;
    for (std::size_t i = 0; i < routes_.size();) {
        Route *const route = routes_[i];
        if (!route->hasLeft()) {
            ++i;
            continue;
        }
        routes_.erase(routes_.begin() + static_cast<std::ptrdiff_t>(i));
        --leaving_;
        any = true;
        route->release();
    }
    if (any) {
        changed_();
    }
}

void Session::run()
{
    const bool attached = host_.attachThread();
    if (attached) {
        begin();
        loop();
        for (Route *route : routes_) {
            route->drop();
        }
        host_.detachThread();
    } else {
        logError("FERRYSession_run", FERRY_LOG_SESSION_START_FAILURE_s, settings_.name.c_str());
    }
    end(!attached);
    finished_.store(true);
    changed_();
}

/// Has start() return. By then its result is set.
void Session::begin()
{
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        begun_ = true;
    }
    beginning_.notify_one();
}

/// Answers what came too late for the thread as if it had come after the end.
void Session::end(bool broken)
{
    std::vector<Mail> rest;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        ended_ = true;
        broken_.store(broken);
        rest.swap(mail_);
    }
    for (const Mail &mail : rest) {
        send(*mail.route, mail.request);
    }
    // Not earlier: a failed start would be seen while its routes still count as active.
    begin();
}

void Session::loop()
{
    while (!stop_.load()) {
        if (anyMail_.load()) {
            takeMail();
        }
        if (leaving_ > 0) {
            releaseLeft();
        }
        pass();
    }
}

/// One read of every route that has something to do, so that a busy stream does not starve its
/// neighbours; sleeps when there is none.
void Session::pass()
{
    bool worked = false;
    for (Route *route : routes_) {
        if (!stop_.load() && route->ready(Clock::now())) {
            const LogScope scope(route->name());
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

void Session::wait()
{
    Clock::time_point due = Clock::time_point::max();
    for (const Route *route : routes_) {
        if (route->state() == Route::State::active && !route->paused()) {
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

std::unique_ptr<Route> makeRoute(const Configuration &configuration, const RouteSettings &settings,
                                 Session &session, DeadLetterKeeper *keeper,
                                 const BufferedOutputs &buffers)
{
    auto route = std::make_unique<Route>(settings, session.settings().period, session.host(),
                                         [&session] { session.wake(); });
    const auto name = [&](RouteEnd &end, const StreamSettings &stream) {
        end.buffer = stream.buffer ? buffers[*stream.buffer].get() : nullptr;
        end.label = stream.connection == noConnection
                        ? end.buffer->label()
                        : fmt::format("{}/{}", configuration.connections[stream.connection].name,
                                      stream.stream);
    };
    name(route->input(), settings.input);
    for (std::size_t i = 0; i < settings.outputs.size(); ++i) {
        name(route->deliveries()[i]->end(), settings.outputs[i]);
    }
    route->setKeeper(settings.deadLetters ? keeper : nullptr);
    return route;
}

} // namespace ferry
