#include "engine/discovery.h"

#include <algorithm>

#include "engine/log.h"

namespace ferry {
namespace {

/// How often discovery readers are read without a signal, and the pause after a failure.
constexpr std::chrono::milliseconds pollInterval{1000};

} // namespace

Discovery::Discovery(const Configuration &configuration, Assembly &assembly,
                     RouteRegistry &registry, std::vector<std::unique_ptr<Session>> &sessions,
                     DeadLetterKeeper *keeper)
    : configuration_(configuration), assembly_(assembly), registry_(registry), sessions_(sessions),
      keeper_(keeper)
{
}

void Discovery::open(bool all)
{
    for (const auto &source : assembly_.sources()) {
        if ((all || isOfUse(*source)) && assembly_.openSource(*source)) {
            nextPoll_ = Clock::now();
        }
    }
    for (const DiscoverySettings &rule : configuration_.discovery) {
        const DiscoverySource &source = assembly_.source(rule.connection, rule.inputs);
        const std::string what = fmt::format("discovery {}", rule.name);
        if (source.reader != nullptr) {
            watching_.store(true);
            assembly_.reporter().good(what, source.label);
        } else if (!assembly_.isReconnecting(rule.connection)) {
            assembly_.reject(what,
                             fmt::format("{} are not announced: out of service", source.label));
        }
    }
    markChange();
}

void Discovery::reopen(std::size_t connection)
{
    for (const auto &source : assembly_.sources()) {
        if (source->connection == connection && source->reader == nullptr && isOfUse(*source) &&
            assembly_.openSource(*source)) {
            nextPoll_ = Clock::now();
        }
    }
    for (const DiscoverySettings &rule : configuration_.discovery) {
        if (assembly_.source(rule.connection, rule.inputs).reader != nullptr) {
            watching_.store(true);
        }
    }
    markChange();
}

/// A poll costs the adapter something: what nobody uses is not polled.
bool Discovery::isOfUse(const DiscoverySource &source) const
{
    const auto &rules = configuration_.discovery;
    const auto &routes = configuration_.routes;
    const auto isHere = [&](const StreamSettings &end) {
        return end.connection == source.connection;
    };
    return std::any_of(rules.begin(), rules.end(),
                       [&](const DiscoverySettings &rule) {
                           return rule.connection == source.connection &&
                                  rule.inputs == source.inputs;
                       }) ||
           std::any_of(routes.begin(), routes.end(), [&](const RouteSettings &route) {
               return source.inputs
                          ? isHere(route.input)
                          : std::any_of(route.outputs.begin(), route.outputs.end(), isHere);
           });
}

void Discovery::poll(const std::function<bool()> &stop)
{
    const bool due = Clock::now() >= nextPoll_;
    removeMissed();
    removeReleased(stop);
    restartFailed();
    for (const auto &source : assembly_.sources()) {
        if (source->reader != nullptr && (due || source->isPending()) && !stop()) {
            read(*source, stop);
        }
    }
    if (due) {
        nextPoll_ = Clock::now() + pollInterval;
        polled_.store(true);
    }
}

bool Discovery::pending() const
{
    const auto &sources = assembly_.sources();
    return std::any_of(sources.begin(), sources.end(),
                       [](const auto &source) { return source->isPending(); }) ||
           std::any_of(made_.begin(), made_.end(),
                       [](const auto &entry) {
                           return entry.second.leaving && entry.second.route->released();
                       }) ||
           (configuration_.restart &&
            std::any_of(made_.begin(), made_.end(), [this](const auto &entry) {
                const auto timer = restarts_.find(entry.first);
                return entry.second.route->state() == Route::State::failed &&
                       (timer == restarts_.end() || !timer->second.armed());
            }));
}

Clock::time_point Discovery::nextPoll() const
{
    Clock::time_point next = nextPoll_;
    for (const auto &[key, made] : made_) {
        next = std::min(next, made.absentUntil.value_or(next));
    }
    for (const auto &[key, timer] : restarts_) {
        next = std::min(next, timer.due());
    }
    return next;
}

/// What has been announced before is no change: an adapter may say the same at each read.
void Discovery::read(DiscoverySource &source, const std::function<bool()> &stop)
{
    bool anyChange = false;
    const bool good = assembly_.read(
        source, [&](const QEL_FerrionStreamInfo &info, const QEL_FerrionProperties *properties) {
            const AnnouncedStream stream =
                announcedStream(info, properties, source.connection, source.inputs);
            if (stop()) {
                return;
            }
            const std::vector<AnnouncedStream> changed =
                info.disposed != 0 ? forget(stream) : remember(stream);
            for (const AnnouncedStream &each : changed) {
                anyChange = true;
                markChange();
                if (info.disposed != 0) {
                    gone(each);
                } else {
                    announce(each);
                }
                markChange();
            }
        });
    source.failed.store(!good);
    source.more.store(anyChange);
}

/// Remembers an announcement, and returns it unless it is known.
std::vector<AnnouncedStream> Discovery::remember(const AnnouncedStream &stream)
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

/// Forgets what has gone, and returns which streams those were.
std::vector<AnnouncedStream> Discovery::forget(const AnnouncedStream &stream)
{
    std::vector<AnnouncedStream> forgotten;
    const std::lock_guard<std::mutex> lock(mutex_);
    auto at = known_.lower_bound({stream.connection, !stream.input, {stream.name, {}}});
    while (at != known_.end() && at->second.connection == stream.connection &&
           at->second.input == stream.input && at->second.name == stream.name) {
        if (stream.partitions.empty() || stream.partitions == at->second.partitions) {
            forgotten.push_back(std::move(at->second));
            at = known_.erase(at);
        } else {
            ++at;
        }
    }
    return forgotten;
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
    const std::string type =
        stream.typeName.empty() ? "" : fmt::format(", type {}", stream.typeName);
    assembly_.reporter().good(
        fmt::format("{} stream {}", stream.input ? "input" : "output", nameOf(stream)),
        fmt::format("announced{}", type));
}

/// "connection/stream", for messages.
std::string Discovery::nameOf(const AnnouncedStream &stream) const
{
    return fmt::format("{}/{}", configuration_.connections[stream.connection].name,
                       labelOf({stream.name, stream.partitions}));
}

void Discovery::markChange()
{
    lastChange_.store(nanoseconds(Clock::now()));
}

bool Discovery::quietSince(Clock::time_point time) const
{
    const auto &sources = assembly_.sources();
    return polled_.load() && leaving_.load() == 0 && lastChange_.load() <= nanoseconds(time) &&
           std::none_of(sources.begin(), sources.end(),
                        [](const auto &source) { return source->isPending(); });
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
