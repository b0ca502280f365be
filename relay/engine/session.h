// A session: the thread that runs a set of routes, turn by turn.
#ifndef FERRY_ENGINE_SESSION_H
#define FERRY_ENGINE_SESSION_H

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "engine/route.h"
#include "engine/thread.h"

namespace ferry {

class Session {
public:
    /// `changed` is called on the session's thread when it ends or a route goes out of service.
    Session(const SessionSettings &settings, PluginHost &host, std::function<void()> changed);

    const SessionSettings &settings() const
    {
        return settings_;
    }
    std::vector<std::unique_ptr<Route>> &routes()
    {
        return routes_;
    }
    const std::vector<std::unique_ptr<Route>> &routes() const
    {
        return routes_;
    }
    CallGuard &guard()
    {
        return guard_;
    }

    /// Any thread, also before start.
    void wake();

    /// Control thread. False when the system gives no thread.
    bool start();
    /// Any thread: ends after the present loan.
    void requestStop();
    /// Not running any more, or never started.
    bool finished() const
    {
        return finished_.load();
    }
    /// Control thread: waits for the end, or lets a thread go that has been given up.
    void join();

private:
    void run();
    void loop();
    void wait();

    const SessionSettings &settings_;
    PluginHost &host_;
    const std::function<void()> changed_;
    std::vector<std::unique_ptr<Route>> routes_;
    CallGuard guard_;
    Thread thread_;
    std::atomic<bool> finished_{true};
    std::atomic<bool> stop_{false};

    std::mutex mutex_;
    std::condition_variable condition_;
    bool woken_ = false;
};

} // namespace ferry

#endif
