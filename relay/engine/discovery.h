// Streams that connections announce, and the routes that come and go with them. Control thread,
// unless a function says otherwise.
#ifndef FERRY_ENGINE_DISCOVERY_H
#define FERRY_ENGINE_DISCOVERY_H

#include <map>
#include <mutex>
#include <optional>
#include <tuple>

#include "engine/assembly.h"
#include "engine/discovery_rule.h"
#include "engine/restart_timer.h"

namespace ferry {

class Discovery {
public:
    Discovery(const Configuration &configuration, Assembly &assembly, RouteRegistry &registry,
              std::vector<std::unique_ptr<Session>> &sessions, DeadLetterKeeper *keeper);

    /// Gets the discovery readers that rules and routes need, or all. A rule is out of service if
    /// its connection has none.
    void open(bool all);
    /// Gets those of a connection that has been made anew.
    void reopen(std::size_t connection);
    /// Deletes routes that their sessions have released, reads what is announced, and makes and
    /// dismisses routes accordingly. `stop` is asked between any two calls of plug-ins.
    void poll(const std::function<bool()> &stop);
    /// Whether a poll has something to do before `nextPoll`.
    bool pending() const;
    Clock::time_point nextPoll() const;

    /// Has the session release a route that was made for a stream, after which it is made anew.
    /// False if there is no such route.
    bool restart(const std::string &route);

    /// Any thread: whether a rule may still make routes.
    bool watching() const
    {
        return watching_.load();
    }
    /// Any thread: whether there was a poll and nothing has changed since `time`. An announcement,
    /// a route that comes and one that is still leaving are changes.
    bool quietSince(Clock::time_point time) const;
    /// Any thread: how many streams are announced now, and which.
    std::size_t count() const
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        return known_.size();
    }
    std::vector<AnnouncedStream> streams() const;

private:
    /// What a rule has made of a stream.
    struct Made {
        Route *route = nullptr;
        /// As it was when the route was made.
        AnnouncedStream stream;
        /// As they were last announced.
        Properties properties;
        RepeatFilter changes;
        /// The session has it, or had it.
        bool adopted = false;
        bool leaving = false;
        /// The stream has gone. The route follows at that time unless the stream comes back.
        std::optional<Clock::time_point> absentUntil;
    };
    /// Connection, whether it is an output stream, which one.
    using StreamKey = std::tuple<std::size_t, bool, StreamId>;
    /// Rule and stream.
    using MadeKey = std::pair<std::size_t, StreamId>;

    bool isOfUse(const DiscoverySource &source) const;
    void read(DiscoverySource &source, const std::function<bool()> &stop);
    std::vector<AnnouncedStream> remember(const AnnouncedStream &stream);
    std::vector<AnnouncedStream> forget(const AnnouncedStream &stream);
    void announce(const AnnouncedStream &stream);
    void gone(const AnnouncedStream &stream);
    void describe(const AnnouncedStream &stream);
    std::string nameOf(const AnnouncedStream &stream) const;
    void compareRoutes(const AnnouncedStream &stream);
    void apply(const MadeKey &key);
    std::optional<AnnouncedStream> wanted(const MadeKey &key, bool &there) const;
    bool isTaken(std::size_t rule, const AnnouncedStream &stream) const;
    bool keeps(const MadeKey &key, const AnnouncedStream &stream);
    void warnOfChange(Made &made, const AnnouncedStream &stream);
    void make(const MadeKey &key, const AnnouncedStream &stream);
    std::string obstacle(const RouteSettings &route, const AnnouncedStream &stream) const;
    void warnOfType(const RouteSettings &route, const AnnouncedStream &stream);
    void miss(const MadeKey &key);
    Clock::duration graceOf(const DiscoverySettings &rule) const;
    void pause(Route &route, bool paused);
    void removeMissed();
    void restartFailed();
    void makeAnew(const MadeKey &key);
    void dismiss(const MadeKey &key);
    void remove(const MadeKey &key);
    void removeReleased(const std::function<bool()> &stop);
    void markChange();

    const Configuration &configuration_;
    Assembly &assembly_;
    RouteRegistry &registry_;
    std::vector<std::unique_ptr<Session>> &sessions_;
    DeadLetterKeeper *const keeper_;
    std::map<MadeKey, Made> made_;
    /// Of routes that went out of service, or could not be made.
    std::map<MadeKey, RestartTimer> restarts_;
    Clock::time_point nextPoll_ = Clock::time_point::max();
    std::atomic<bool> watching_{false};
    std::atomic<bool> polled_{false};
    std::atomic<std::size_t> leaving_{0};
    std::atomic<std::int64_t> lastChange_{0};
    mutable std::mutex mutex_;
    std::map<StreamKey, AnnouncedStream> known_;
};

} // namespace ferry

#endif
