// The relay: its sessions, and the control thread that makes and deletes everything they use and
// watches for new streams. The supervisor steers it from another thread and never enters a plug-in
// itself.
#ifndef FERRY_ENGINE_RELAY_H
#define FERRY_ENGINE_RELAY_H

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "engine/restarts.h"
#include "engine/task.h"

namespace ferry {

/// What became of something that an operator wants.
struct SteerResult {
    /// Why it is not done; else "".
    std::string problem;
    /// There is no such route.
    bool unknown = false;
};

class Relay {
public:
    enum class Phase {
        starting,
        /// The plug-in host could not be started; nothing was made.
        failed,
        running,
        /// Everything has been deleted; the plug-in host is being stopped.
        closed,
        ended
    };

    /// `keeper` takes bad data; without one the dead letters of the state directory do. If there is
    /// no such directory, a route stops for bad data.
    Relay(const Configuration &configuration, PluginHost &host, Reporter &reporter,
          DeadLetterKeeper *keeper);
    ~Relay();

    /// Starts the control thread.
    bool start(Task task);
    /// Waits until `condition` holds or the time comes; returns whether it holds. The condition is
    /// asked again after every change of the relay's state.
    bool waitUntil(Clock::time_point time, const std::function<bool()> &condition);
    /// Makes waits ask their condition again. Any thread.
    void notify();

    Phase phase() const
    {
        return phase_.load();
    }
    /// Any thread: no more reads; a start under way ends early.
    void requestStop();
    bool sessionsFinished() const;
    /// Gives up the threads that are still inside a plug-in, logs where, and counts what they held.
    void giveUpSessions();
    /// Lets the control thread take everything apart: sessions have finished or were given up.
    void close();
    /// Gives up a control thread that is inside a plug-in, logs where, and has another one close
    /// what does not belong to that adapter. False when it is not inside.
    bool giveUpControl();
    /// The calls of plug-ins under way, as "route r: read of connection/stream". Any thread.
    std::vector<std::string> callsUnderWay();
    /// The same of those that have not returned for long, with the time. One thread.
    std::vector<std::string> stalls(Clock::duration limit);
    /// Joins the control thread, whose phase is `ended`.
    void join();

    /// What an operator asks of a route. Any thread.
    SteerResult pause(const std::string &route, bool paused);
    /// It is made anew soon, on the control thread.
    SteerResult restart(const std::string &route);
    /// Everything there is to know at the moment. Any thread; never waits for a plug-in.
    RelayStatus status() const;
    /// Once in a while, on the thread that asks for stalls: how fast the routes go.
    void measure(Clock::time_point now);

    /// Of all routes, also of those that are gone.
    std::vector<RouteTotals> totals() const
    {
        return registry_.totals();
    }
    std::vector<AnnouncedStream> streams() const
    {
        return discovery_.streams();
    }
    Assembly &assembly()
    {
        return assembly_;
    }
    /// Whether a session runs that has routes or may get some; from Phase::running on. Its routes
    /// may have gone out of service since.
    bool started() const
    {
        return started_;
    }
    /// Whether a route moves samples, or may still be made.
    bool anyActive() const;
    /// Failures beside those of the routes.
    std::size_t problems() const;
    bool leftSomething() const
    {
        return assembly_.leftSomething();
    }
    /// Every active route has been idle since then or longer, and nothing was announced. What is
    /// tried again and again without success counts as idle if that has lasted since `stuck`.
    bool idleSince(Clock::time_point time, Clock::time_point stuck) const;
    /// What is tried again and again, as "route r: 3 samples are not acknowledged". Any thread.
    std::vector<std::string> unfinished() const;
    /// Whether any route has read a sample, be it gone by now.
    bool anyRead() const;

private:
    void run(Task task);
    void setPhase(Phase phase);
    void startSessions();
    void serve();
    void finish();
    void hasRoom(const OutputBuffer &buffer);
    bool isInService(const Route &route) const;
    void restartRequested();
    bool isRestartRequested() const;
    std::string callOf(const Session &session) const;
    CallStatus callStatus(std::size_t session) const;
    void addRoutes(RelayStatus &status) const;
    std::string waitingFor(const Session &session);

    const Configuration &configuration_;
    PluginHost &host_;
    StateDirectory state_;
    std::unique_ptr<DeadLetterKeeper> letters_;
    BufferedOutputs buffers_;
    RouteRegistry registry_;
    std::vector<std::unique_ptr<Session>> sessions_;
    Assembly assembly_;
    Discovery discovery_;
    std::unique_ptr<Restarts> restarts_;
    Thread control_;
    /// Of control threads that were given up, each the next one.
    std::vector<std::unique_ptr<Thread>> rescuers_;
    StallWatch controlWatch_;
    std::vector<StallWatch> sessionWatches_;
    /// Written before the phase that says so.
    bool started_ = false;
    std::atomic<Phase> phase_{Phase::starting};
    std::atomic<bool> stop_{false};
    std::atomic<bool> close_{false};
    Clock::time_point begin_ = Clock::now();
    mutable std::mutex requestMutex_;
    /// Routes that an operator wants made anew.
    std::vector<std::string> requested_;
    std::mutex mutex_;
    std::condition_variable condition_;
};

} // namespace ferry

#endif
