// A session: the thread that runs a set of routes, one read of each in a pass.
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

/// Routes come and go while the thread runs. They are handed over through a mailbox, which the
/// thread empties between two passes. A route belongs to the thread until it has released it.
class Session {
public:
    /// `changed` is called on the session's thread when it ends, a route goes out of service or one
    /// is released.
    Session(const SessionSettings &settings, PluginHost &host, std::function<void()> changed);

    const SessionSettings &settings() const
    {
        return settings_;
    }
    CallGuard &guard()
    {
        return guard_;
    }
    const CallGuard &guard() const
    {
        return guard_;
    }
    PluginHost &host()
    {
        return host_;
    }

    /// Control thread, also before start: takes an open route. It fails if the thread cannot run.
    void adopt(Route &route);
    /// Control thread: asks the thread to release a route; with `drain` it writes first what the
    /// reader still has. If the thread has ended the route is released at once.
    void dismiss(Route &route, bool drain);
    /// Any thread, also before start.
    void wake();

    /// Control thread: returns when the thread has begun. False if the system gives no thread or
    /// the plug-in host does not attach it.
    bool start();
    /// Any thread: whether the start failed. No route of the session ever runs.
    bool broken() const
    {
        return broken_.load();
    }
    /// Any thread: ends after the present loan.
    void requestStop();
    /// Not running any more, or never started.
    bool finished() const
    {
        return finished_.load();
    }
    /// Control thread: waits for the end, or leaves a thread behind that has been given up.
    void join();

private:
    enum class Request { adopt, drain, drop };
    struct Mail {
        Route *route = nullptr;
        Request request = Request::adopt;
    };

    void run();
    void loop();
    void pass();
    void wait();
    void send(Route &route, Request request);
    void takeMail();
    void releaseLeft();
    void begin();
    void end(bool broken);

    const SessionSettings &settings_;
    PluginHost &host_;
    const std::function<void()> changed_;
    CallGuard guard_;
    Thread thread_;
    std::atomic<bool> finished_{true};
    std::atomic<bool> stop_{false};
    std::atomic<bool> broken_{false};

    std::mutex mutex_;
    std::condition_variable condition_;
    bool woken_ = false;
    std::vector<Mail> mail_;
    /// The control thread waits here for the thread's beginning.
    std::condition_variable beginning_;
    bool begun_ = false;
    /// Nobody reads the mail any more. If the session is broken nobody ever did.
    bool ended_ = false;
    /// Whether there is mail. A pass without any costs this look only.
    std::atomic<bool> anyMail_{false};

    // The session's thread only.
    std::vector<Route *> routes_;
    std::size_t leaving_ = 0;
};

/// By their index in the configuration.
using BufferedOutputs = std::vector<std::unique_ptr<BufferedOutput>>;

/// A route for its session, not yet open. `keeper` takes its bad data, unless it wants none kept.
std::unique_ptr<Route> makeRoute(const Configuration &configuration, const RouteSettings &settings,
                                 Session &session, DeadLetterKeeper *keeper,
                                 const BufferedOutputs &buffers);

} // namespace ferry

#endif
