#include "engine/discovery.h"

#include <algorithm>

#include "engine/log.h"

namespace ferry {
namespace {

/// How often discovery readers are read that have not signalled, and the pause after a failure.
constexpr std::chrono::milliseconds lookInterval{1000};

} // namespace

Discovery::Discovery(const Configuration &configuration, Assembly &assembly, Roster &roster,
                     std::vector<std::unique_ptr<Session>> &sessions)
    : configuration_(configuration), assembly_(assembly), roster_(roster), sessions_(sessions)
{
}

void Discovery::open(bool all)
{
    for (const auto &announcer : assembly_.announcers()) {
        if ((all || isOfUse(*announcer)) && assembly_.openAnnouncer(*announcer)) {
            nextTurn_ = Clock::now();
        }
    }
    for (const DiscoverySettings &rule : configuration_.discovery) {
        const std::string label = (rule.inputs ? "input" : "output") +
                                  std::string(" streams of connection ") +
                                  configuration_.connections[rule.connection].name;
        if (isServed(rule)) {
            watching_.store(true);
            assembly_.reporter().good("discovery " + rule.name, label);
        } else {
            assembly_.refuse("discovery " + rule.name,
                             label + " are not announced: out of service");
        }
    }
    stir();
}

/// Looking costs the adapter something, and what nobody uses nobody has to know.
bool Discovery::isOfUse(const Announcer &announcer) const
{
    const auto &rules = configuration_.discovery;
    const auto &routes = configuration_.routes;
    const auto isHere = [&](const StreamSettings &end) {
        return end.connection == announcer.connection;
    };
    return std::any_of(rules.begin(), rules.end(),
                       [&](const DiscoverySettings &rule) {
                           return rule.connection == announcer.connection &&
                                  rule.inputs == announcer.inputs;
                       }) ||
           std::any_of(routes.begin(), routes.end(), [&](const RouteSettings &route) {
               return announcer.inputs
                          ? isHere(route.input)
                          : std::any_of(route.outputs.begin(), route.outputs.end(), isHere);
           });
}

bool Discovery::isServed(const DiscoverySettings &rule) const
{
    const auto &announcers = assembly_.announcers();
    return std::any_of(announcers.begin(), announcers.end(), [&](const auto &announcer) {
        return announcer->reader != nullptr && announcer->connection == rule.connection &&
               announcer->inputs == rule.inputs;
    });
}

void Discovery::turn(const std::function<bool()> &stop)
{
    const bool due = Clock::now() >= nextTurn_;
    removeMissed();
    removeReleased(stop);
    for (const auto &announcer : assembly_.announcers()) {
        if (announcer->reader != nullptr && (due || announcer->isPending()) && !stop()) {
            read(*announcer, stop);
        }
    }
    if (due) {
        nextTurn_ = Clock::now() + lookInterval;
        looked_.store(true);
    }
}

bool Discovery::pending() const
{
    const auto &announcers = assembly_.announcers();
    return std::any_of(announcers.begin(), announcers.end(),
                       [](const auto &announcer) { return announcer->isPending(); }) ||
           std::any_of(made_.begin(), made_.end(), [](const auto &entry) {
               return entry.second.leaving && entry.second.route->released();
           });
}

Clock::time_point Discovery::nextTurn() const
{
    Clock::time_point next = nextTurn_;
    for (const auto &[key, made] : made_) {
        next = std::min(next, made.absentUntil.value_or(next));
    }
    return next;
}

/// What has been told before is no news: an adapter may say the same at each read.
void Discovery::read(Announcer &announcer, const std::function<bool()> &stop)
{
    bool news = false;
    const bool good = assembly_.read(
        announcer, [&](const QEL_FerrionStreamInfo &info, const QEL_FerrionProperties *properties) {
            const AnnouncedStream stream =
                announcedStream(info, properties, announcer.connection, announcer.inputs);
            if (stop()) {
                return;
            }
            const std::vector<AnnouncedStream> changed =
                info.disposed != 0 ? lose(stream) : take(stream);
            for (const AnnouncedStream &each : changed) {
                news = true;
                stir();
                if (info.disposed != 0) {
                    gone(each);
                } else {
                    announce(each);
                }
                stir();
            }
        });
    announcer.failed.store(!good);
    announcer.more.store(news);
}

/// Remembers an announcement, and gives it back unless it is known.
std::vector<AnnouncedStream> Discovery::take(const AnnouncedStream &stream)
{
    const std::lock_guard<std::mutex> lock(mutex_);
    AnnouncedStream &known =
        known_[{stream.connection, !stream.input, {stream.name, stream.partitions}}];
    if (known == stream) {
        return {};
    }
    known = stream;
    return {stream};
}

/// Forgets what has gone, and tells which streams those were.
std::vector<AnnouncedStream> Discovery::lose(const AnnouncedStream &stream)
{
    std::vector<AnnouncedStream> lost;
    const std::lock_guard<std::mutex> lock(mutex_);
    auto at = known_.lower_bound({stream.connection, !stream.input, {stream.name, {}}});
    while (at != known_.end() && at->second.connection == stream.connection &&
           at->second.input == stream.input && at->second.name == stream.name) {
        if (stream.partitions.empty() || stream.partitions == at->second.partitions) {
            lost.push_back(std::move(at->second));
            at = known_.erase(at);
        } else {
            ++at;
        }
    }
    return lost;
}

void Discovery::announce(const AnnouncedStream &stream)
{
    describe(stream);
    compareRoutes(stream);
    for (std::size_t i = 0; i < configuration_.discovery.size(); ++i) {
        if (concerns(stream, configuration_.discovery[i])) {
            apply({i, idFor(configuration_.discovery[i], stream)});
        }
    }
}

void Discovery::gone(const AnnouncedStream &stream)
{
    for (std::size_t i = 0; i < configuration_.discovery.size(); ++i) {
        if (concerns(stream, configuration_.discovery[i])) {
            apply({i, idFor(configuration_.discovery[i], stream)});
        }
    }
}

void Discovery::describe(const AnnouncedStream &stream)
{
    const std::string type = stream.typeName.empty() ? "" : ", type " + stream.typeName;
    assembly_.reporter().good((stream.input ? "input stream " : "output stream ") + nameOf(stream),
                              "announced" + type);
}

/// "connection/stream", for messages.
std::string Discovery::nameOf(const AnnouncedStream &stream) const
{
    return configuration_.connections[stream.connection].name + "/" +
           labelOf({stream.name, stream.partitions});
}

void Discovery::stir()
{
    lastChange_.store(nanoseconds(Clock::now()));
}

bool Discovery::quietSince(Clock::time_point time) const
{
    const auto &announcers = assembly_.announcers();
    return looked_.load() && leaving_.load() == 0 && lastChange_.load() <= nanoseconds(time) &&
           std::none_of(announcers.begin(), announcers.end(),
                        [](const auto &announcer) { return announcer->isPending(); });
}

std::vector<AnnouncedStream> Discovery::streams() const
{
    std::vector<AnnouncedStream> all;
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const auto &[key, stream] : known_) {
        all.push_back(stream);
    }
    return all;
}

} // namespace ferry
