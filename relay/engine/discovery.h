// Streams that connections announce, and the routes that come and go with them. All of it is the
// control thread's but for what says otherwise.
#ifndef FERRY_ENGINE_DISCOVERY_H
#define FERRY_ENGINE_DISCOVERY_H

#include <map>
#include <mutex>
#include <optional>
#include <tuple>

#include "engine/assembly.h"
#include "engine/discovery_rule.h"

namespace ferry {

class Discovery {
public:
    Discovery(const Configuration &configuration, Assembly &assembly, Roster &roster,
              std::vector<std::unique_ptr<Session>> &sessions);

    /// Gets the discovery readers that rules and routes have to do with, or all. A rule whose
    /// connection has none is out of service.
    void open(bool all);
    /// Deletes routes that their sessions have let go, reads what is announced, and makes and
    /// dismisses routes accordingly. `stop` is asked between any two calls of plug-ins.
    void turn(const std::function<bool()> &stop);
    /// Whether a turn has something to do before `nextTurn`.
    bool pending() const;
    Clock::time_point nextTurn() const;

    /// Any thread: whether a rule may still make routes.
    bool watching() const
    {
        return watching_.load();
    }
    /// Any thread: whether there was a look, and since then or `time` nothing was announced, and no
    /// route has come or is still going.
    bool quietSince(Clock::time_point time) const;
    /// Any thread: what is announced now.
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
        /// The stream has gone, and the route goes at that time unless it comes back.
        std::optional<Clock::time_point> absentUntil;
    };
    /// Connection, whether it is an output stream, which one.
    using StreamKey = std::tuple<std::size_t, bool, StreamId>;
    /// Rule and stream.
    using MadeKey = std::pair<std::size_t, StreamId>;

    bool isOfUse(const Announcer &announcer) const;
    bool isServed(const DiscoverySettings &rule) const;
    void read(Announcer &announcer, const std::function<bool()> &stop);
    std::vector<AnnouncedStream> take(const AnnouncedStream &stream);
    std::vector<AnnouncedStream> lose(const AnnouncedStream &stream);
    void announce(const AnnouncedStream &stream);
    void gone(const AnnouncedStream &stream);
    void describe(const AnnouncedStream &stream);
    std::string nameOf(const AnnouncedStream &stream) const;
    void compareRoutes(const AnnouncedStream &stream);
    void apply(const MadeKey &key);
    std::optional<AnnouncedStream> wanted(const MadeKey &key, bool &there) const;
    bool isTaken(std::size_t rule, const AnnouncedStream &stream) const;
    bool stays(const MadeKey &key, const AnnouncedStream &stream);
    void warnOfChange(Made &made, const AnnouncedStream &stream);
    void make(const MadeKey &key, const AnnouncedStream &stream);
    std::string obstacle(const RouteSettings &route, const AnnouncedStream &stream) const;
    void warnOfType(const RouteSettings &route, const AnnouncedStream &stream);
    void miss(const MadeKey &key);
    Clock::duration graceOf(const DiscoverySettings &rule) const;
    void rest(Route &route, bool resting);
    void removeMissed();
    void dismiss(const MadeKey &key);
    void remove(const MadeKey &key);
    void removeReleased(const std::function<bool()> &stop);
    void stir();

    const Configuration &configuration_;
    Assembly &assembly_;
    Roster &roster_;
    std::vector<std::unique_ptr<Session>> &sessions_;
    std::map<MadeKey, Made> made_;
    Clock::time_point nextTurn_ = Clock::time_point::max();
    std::atomic<bool> watching_{false};
    std::atomic<bool> looked_{false};
    std::atomic<std::size_t> leaving_{0};
    std::atomic<std::int64_t> lastChange_{0};
    mutable std::mutex mutex_;
    std::map<StreamKey, AnnouncedStream> known_;
};

} // namespace ferry

#endif
