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

/// Routes come and go while the thread runs: they are handed over through a mailbox that it looks
/// at between two rounds, and belong to it until it has released them.
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

    /// Control thread, also before start: a route that is open. It fails when the thread cannot
    /// run.
    void adopt(Route &route);
    /// Control thread: a route is to be let go, with what its reader still has (`drain`) or as it
    /// is. It is released later, or at once when the thread has ended.
    void dismiss(Route &route, bool drain);
    /// Any thread, also before start.
    void wake();

    /// Control thread: comes back when the thread has begun. False when the system gives no thread,
    /// or the plug-in host does not let it in.
    bool start();
    /// Any thread: there was to be a thread, and there is none. No route of the session ever runs.
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
    /// Control thread: waits for the end, or lets a thread go that has been given up.
    void join();

private:
    enum class Wish { adopt, drain, drop };
    struct Mail {
        Route *route = nullptr;
        Wish wish = Wish::adopt;
    };

    void run();
    void loop();
    void round();
    void wait();
    void send(Route &route, Wish wish);
    void takeMail();
    void letGo();
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
    /// Nobody looks at the mail any more; if the session is broken nobody ever did.
    bool ended_ = false;
    /// Whether there is mail: all that a round without any costs.
    std::atomic<bool> anyMail_{false};

    // The session's thread only.
    std::vector<Route *> routes_;
    std::size_t leaving_ = 0;
};

/// A route for its session, not yet open.
std::unique_ptr<Route> makeRoute(const Configuration &configuration, const RouteSettings &settings,
                                 Session &session);

} // namespace ferry

#endif
