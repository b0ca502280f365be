// Making and removing routes when something is announced.
#include <algorithm>

#include "engine/discovery.h"
#include "engine/log.h"

namespace ferry {
namespace {

/// How long a route outlives its stream if the configuration does not say.
constexpr std::chrono::milliseconds defaultGrace{2000};

template<class... Arguments>
void warn(const std::string &subject, fmt::format_string<Arguments...> text,
          Arguments &&...arguments)
{
    logAbout(FERRYLOG_BIT_WARNING, "FERRYRelay_discover", subject, text,
             std::forward<Arguments>(arguments)...);
}

} // namespace

/// Warnings only: a name may be the adapter's guess, and the types may still be fit for each other.
void Discovery::compareRoutes(const AnnouncedStream &stream)
{
    for (const RouteSettings &route : configuration_.routes) {
        if (!uses(route, stream)) {
            continue;
        }
        if (!stream.typeName.empty() && !isOfType(route, stream)) {
            logMessage(FERRYLOG_BIT_WARNING, "FERRYRelay_discover",
                       FERRY_LOG_ROUTETYPE_INCONSISTENCY_sss, stream.name.c_str(),
                       route.typeName.c_str(), stream.typeName.c_str());
        }
        warnOfType(route, stream);
    }
}

void Discovery::warnOfType(const RouteSettings &route, const AnnouncedStream &stream)
{
    const std::string difference = differenceOf(route.type, stream.type);
    if (!difference.empty()) {
        warn(route.name, "stream {} is announced with another type than the route's: {}",
             nameOf(stream), difference);
    }
}

/// Brings the route of a rule in line with what is announced now. If it could not be made, the next
/// announcement is the next attempt.
void Discovery::apply(const MadeKey &key)
{
    const auto found = made_.find(key);
    if (found != made_.end() && found->second.leaving) {
        return; // decided again when it has left
    }
    bool there = false;
    const std::optional<AnnouncedStream> stream = wanted(key, there);
    if (!there) {
        miss(key);
        return;
    }
    if (stream && found != made_.end() && keeps(key, *stream)) {
        return;
    }
    dismiss(key);
    if (stream && made_.count(key) == 0) {
        make(key, *stream);
    }
}

/// What the rule wants of the streams that are announced by that name, if anything. `there` is set
/// if there is any such stream at all.
std::optional<AnnouncedStream> Discovery::wanted(const MadeKey &key, bool &there) const
{
    const DiscoverySettings &rule = configuration_.discovery[key.first];
    std::optional<AnnouncedStream> all;
    for (auto at = known_.lower_bound({rule.connection, !rule.inputs, key.second});
         at != known_.end() && concerns(at->second, rule) && at->second.name == key.second.first;
         ++at) {
        const AnnouncedStream &stream = at->second;
        if (idFor(rule, stream) != key.second) {
            continue;
        }
        there = true;
        if (!wants(rule, stream) || isTaken(key.first, stream)) {
            continue;
        }
        if (all) {
            merge(*all, stream);
        } else {
            all = stream;
        }
    }
    return all;
}

/// A route stays while its stream is wanted, even if that is announced with another type or other
/// properties: nobody may stop what runs by an announcement. If it misses a partition of its stream
/// it is made anew. A stream that comes back has to be what it was.
bool Discovery::keeps(const MadeKey &key, const AnnouncedStream &stream)
{
    Made &made = made_.at(key);
    if (!made.adopted || !covers(made.stream, stream)) {
        return false;
    }
    if (made.absentUntil) {
        if (!differenceOf(made.route->settings().type, stream.type).empty() ||
            stream.typeName != made.stream.typeName ||
            stream.properties != made.stream.properties ||
            made.route->state() != Route::State::active) {
            return false;
        }
        made.absentUntil.reset();
        pause(*made.route, false);
    }
    warnOfType(made.route->settings(), stream);
    warnOfChange(made, stream);
    return true;
}

void Discovery::warnOfChange(Made &made, const AnnouncedStream &stream)
{
    const std::string difference = differenceOf(made.stream.properties, stream.properties);
    if (made.properties != stream.properties && !difference.empty() &&
        made.changes.admit(difference.c_str(), Clock::now())) {
        warn(made.route->name(),
             "stream {} is announced with other properties than its route was made with, which "
             "keeps its own: {}",
             nameOf(stream), difference);
    }
    made.properties = stream.properties;
}

/// A configured route has the stream already, or the rule would read what it writes itself.
bool Discovery::isTaken(std::size_t rule, const AnnouncedStream &stream) const
{
    const auto &routes = configuration_.routes;
    if (std::any_of(routes.begin(), routes.end(),
                    [&](const RouteSettings &route) { return uses(route, stream); })) {
        return true;
    }
    return stream.input && std::any_of(made_.begin(), made_.end(), [&](const auto &entry) {
               return entry.first.first == rule && writesTo(entry.second.route->settings(), stream);
           });
}

void Discovery::make(const MadeKey &key, const AnnouncedStream &stream)
{
    const DDS_TypeCode *type = stream.type;
    std::string typeName = stream.typeName;
    if (!isKnown(type)) {
        const auto known = std::find_if(
            configuration_.types.begin(), configuration_.types.end(), [&](const auto &each) {
                return DDS_TypeName_is_same(each.first.c_str(), typeName.c_str()) != 0;
            });
        type = known == configuration_.types.end() ? type : known->second;
    } else if (typeName.empty()) {
        const char *const name = DDS_TypeCode_get_name(type);
        typeName = name == nullptr ? "" : name;
    }
    const RouteSettings settings =
        routeFor(configuration_.discovery[key.first], stream, typeName, type);
    const std::string reason = obstacle(settings, stream);
    if (!reason.empty()) {
        if (configuration_.discovery[key.first].single) {
            assembly_.reject(fmt::format("route {}", settings.name),
                             fmt::format("its input {}", reason));
        } else {
            warn(settings.name, "no route is made: the stream {}", reason);
        }
        return;
    }
    Session &session = *sessions_[settings.session];
    // Open before anybody else may look at it.
    std::unique_ptr<Route> opened = makeRoute(configuration_, settings, session, keeper_, {});
    assembly_.open(*opened);
    Route &route = registry_.add(std::move(opened));
    Made &made = made_[key];
    made.route = &route;
    made.stream = stream;
    made.properties = stream.properties;
    const auto timer = restarts_.find(key);
    if (timer != restarts_.end()) {
        timer->second.attempted(Clock::now(), route.state() == Route::State::active);
    }
    if (route.state() == Route::State::active) {
        made.adopted = true;
        session.adopt(route);
        logAbout(FERRYLOG_BIT_STATUS, "FERRYRelay_discover", settings.name, "route made");
    }
}

/// Why there can be no such route; "" when there can.
std::string Discovery::obstacle(const RouteSettings &route, const AnnouncedStream &stream) const
{
    const StreamSettings *const looking =
        route.type == nullptr || isKnown(route.type) ? nullptr : assembly_.endWithoutOpaque(route);
    if (route.type == nullptr || looking != nullptr) {
        std::string reason = "is announced without a type";
        if (!stream.typeName.empty()) {
            const std::string problem = valueOf(stream.properties, "type_problem");
            reason =
                fmt::format("is announced without its type{}{}, and \"types\" has no struct \"{}\"",
                            problem.empty() ? "" : ": ", problem, stream.typeName);
        }
        return looking == nullptr
                   ? reason
                   : fmt::format("{}; {} needs one", reason,
                                 configuration_.connections[looking->connection].name);
    }
    if (DDS_TypeCode_get_kind(DDS_TypeCode_resolve(route.type)) != DDS_TK_STRUCT) {
        return fmt::format("is of type {}, which is not a struct", route.typeName);
    }
    if (isAt(route.input, stream) && writesTo(route, stream)) {
        return "would be written to where it is read from";
    }
    const std::string rejection = rejectionOf(route);
    return rejection.empty() ? "" : fmt::format("has a name or type that {}", rejection);
}

/// A stream that has gone may be back in a moment, and a new route would miss what comes first. So
/// the route stays for a while, with its reader. If nobody is left to write to, it is paused, and
/// what is to be read waits.
void Discovery::miss(const MadeKey &key)
{
    const auto found = made_.find(key);
    if (found == made_.end() || found->second.absentUntil) {
        return;
    }
    Made &made = found->second;
    const DiscoverySettings &rule = configuration_.discovery[key.first];
    const Clock::duration grace = graceOf(rule);
    if (grace == Clock::duration::zero() || !made.adopted ||
        made.route->state() != Route::State::active) {
        dismiss(key);
        return;
    }
    made.absentUntil = Clock::now() + grace;
    pause(*made.route, !rule.inputs);
}

/// Adapters that give properties of streams have readers and writers that go on with a stream that
/// comes back. With others it may need a new reader, as a file of the same name does.
Clock::duration Discovery::graceOf(const DiscoverySettings &rule) const
{
    const bool goesOn = assembly_.source(rule.connection, true).properties != nullptr ||
                        assembly_.source(rule.connection, false).properties != nullptr;
    return rule.grace.value_or(goesOn ? defaultGrace : std::chrono::milliseconds(0));
}

void Discovery::pause(Route &route, bool paused)
{
    route.pause(Route::byDiscovery, paused);
    sessions_[route.settings().session]->wake();
}

/// Removes the routes of streams that have not come back in time.
void Discovery::removeMissed()
{
    const Clock::time_point now = Clock::now();
    for (const auto &[key, made] : made_) {
        if (made.absentUntil && now >= *made.absentUntil && !made.leaving) {
            dismiss(MadeKey(key));
        }
    }
}

/// A route that is out of service is removed, and then made anew.
void Discovery::restartFailed()
{
    if (!configuration_.restart) {
        return;
    }
    const Clock::time_point now = Clock::now();
    std::vector<MadeKey> due;
    for (const auto &[key, made] : made_) {
        if (made.route->state() != Route::State::failed || made.leaving) {
            continue;
        }
        RestartTimer &timer = restarts_.emplace(key, *configuration_.restart).first->second;
        timer.failed(now);
        made.route->setRestartAt(timer.exhausted(now) ? 0 : nanoseconds(timer.due()));
        if (now >= timer.due() && !timer.exhausted(now)) {
            due.push_back(key);
        }
    }
    std::for_each(due.begin(), due.end(), [this](const MadeKey &key) { makeAnew(key); });
}

/// At once if no session has the route, else when its session has released it.
void Discovery::makeAnew(const MadeKey &key)
{
    dismiss(key);
    if (made_.count(key) == 0) {
        apply(key);
    }
}

bool Discovery::restart(const std::string &route)
{
    const auto found = std::find_if(made_.begin(), made_.end(), [&](const auto &entry) {
        return entry.second.route->name() == route;
    });
    if (found == made_.end()) {
        return false;
    }
    assembly_.hurry(found->second.route->settings());
    restarts_.erase(found->first);
    makeAnew(MadeKey(found->first));
    return true;
}

/// Has the session release a route. If no session has it, it is removed at once.
void Discovery::dismiss(const MadeKey &key)
{
    const auto found = made_.find(key);
    if (found == made_.end() || found->second.leaving) {
        return;
    }
    if (!found->second.adopted) {
        remove(key);
        return;
    }
    found->second.leaving = true;
    found->second.absentUntil.reset();
    ++leaving_;
    // An output stream that has gone takes nothing any more. An input stream may have left samples.
    Route &route = *found->second.route;
    sessions_[route.settings().session]->dismiss(route, configuration_.discovery[key.first].inputs);
}

void Discovery::remove(const MadeKey &key)
{
    Route &route = *made_.at(key).route;
    logAbout(FERRYLOG_BIT_STATUS, "FERRYRelay_discover", route.name(), "route removed");
    assembly_.close(route);
    const bool failed = route.state() == Route::State::failed;
    registry_.remove(route);
    made_.erase(key);
    if (!failed) {
        restarts_.erase(key);
    }
}

/// Removes the routes that sessions have released. A stream that has come back gets a new one.
void Discovery::removeReleased(const std::function<bool()> &stop)
{
    std::vector<MadeKey> released;
    for (const auto &[key, made] : made_) {
        if (made.leaving && made.route->released()) {
            released.push_back(key);
        }
    }
    for (const MadeKey &key : released) {
        if (stop()) {
            return;
        }
        remove(key);
        markChange();
        --leaving_;
        apply(key);
    }
}

} // namespace ferry
