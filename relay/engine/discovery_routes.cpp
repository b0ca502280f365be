// What becomes of the routes when something is announced.
#include <algorithm>

#include "engine/discovery.h"
#include "engine/log.h"

namespace ferry {
namespace {

void warn(const std::string &subject, const std::string &text)
{
    logMessage(FERRYLOG_BIT_WARNING, "FERRYRelay_discover", FERRY_LOG_ENTITY_ANY_ss,
               subject.c_str(), text.c_str());
}

} // namespace

/// Warnings only: a name may be the adapter's guess, and the types may still be fit for each other.
void Discovery::compareRoutes(const AnnouncedStream &stream)
{
    for (const RouteSettings &route : configuration_.routes) {
        if (!uses(route, stream)) {
            continue;
        }
        if (!stream.typeName.empty() && route.typeName != stream.typeName) {
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
        warn(route.name, "stream " + configuration_.connections[stream.connection].name + "/" +
                             stream.name +
                             " is announced with another type than the route's: " + difference);
    }
}

/// A route stays while its stream is wanted, whatever becomes of its type: what runs is not stopped
/// by what somebody says. Only one that misses a partition of its stream is made anew. What could
/// not be made is tried again with each announcement.
void Discovery::apply(std::size_t rule, const AnnouncedStream &stream)
{
    const MadeKey key{rule, stream.name};
    const bool wanted = wants(configuration_.discovery[rule], stream) && !isTaken(rule, stream);
    const auto found = made_.find(key);
    if (found != made_.end() && found->second.leaving) {
        return; // decided again when it has left
    }
    if (wanted && found != made_.end() && found->second.adopted) {
        warnOfType(found->second.route->settings(), stream);
        if (coversPartitions(found->second.route->settings(), stream)) {
            return;
        }
    }
    dismiss(key);
    if (wanted && made_.count(key) == 0) {
        make(rule, stream);
    }
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

void Discovery::make(std::size_t rule, const AnnouncedStream &stream)
{
    const DDS_TypeCode *type = stream.type;
    std::string typeName = stream.typeName;
    if (type == nullptr) {
        const auto known = configuration_.types.find(typeName);
        type = known == configuration_.types.end() ? nullptr : known->second;
    } else if (typeName.empty()) {
        const char *const name = DDS_TypeCode_get_name(type);
        typeName = name == nullptr ? "" : name;
    }
    const RouteSettings settings = routeFor(configuration_.discovery[rule], stream, typeName, type);
    const std::string reason = obstacle(settings, stream);
    if (!reason.empty()) {
        warn(settings.name, "no route is made: the stream " + reason);
        return;
    }
    Session &session = *sessions_[settings.session];
    // Open before anybody else may look at it.
    std::unique_ptr<Route> opened = makeRoute(configuration_, settings, session);
    assembly_.open(*opened);
    Route &route = roster_.add(std::move(opened));
    Made &made = made_[{rule, stream.name}];
    made.route = &route;
    if (route.state() == Route::State::active) {
        made.adopted = true;
        session.adopt(route);
        logMessage(FERRYLOG_BIT_STATUS, "FERRYRelay_discover", FERRY_LOG_ENTITY_ANY_ss,
                   settings.name.c_str(), "route made");
    }
}

/// Why there can be no such route; "" when there can.
std::string Discovery::obstacle(const RouteSettings &route, const AnnouncedStream &stream) const
{
    if (route.type == nullptr) {
        return stream.typeName.empty()
                   ? "is announced without a type"
                   : "is announced without its type, and \"types\" has no struct \"" +
                         stream.typeName + "\"";
    }
    if (DDS_TypeCode_get_kind(DDS_TypeCode_resolve(route.type)) != DDS_TK_STRUCT) {
        return "is of type " + route.typeName + ", which is not a struct";
    }
    if (isAt(route.input, stream) && writesTo(route, stream)) {
        return "would be written to where it is read from";
    }
    const std::string refusal = refusalOf(route);
    return refusal.empty() ? "" : "has a name or type that " + refusal;
}

/// Gives a route back; what no session has goes at once.
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
    ++leaving_;
    // An output stream that has gone takes nothing any more; an input stream may have left samples.
    Route &route = *found->second.route;
    sessions_[route.settings().session]->dismiss(route, configuration_.discovery[key.first].inputs);
}

void Discovery::remove(const MadeKey &key)
{
    Route &route = *made_.at(key).route;
    logMessage(FERRYLOG_BIT_STATUS, "FERRYRelay_discover", FERRY_LOG_ENTITY_ANY_ss,
               route.name().c_str(), "route removed");
    assembly_.close(route);
    roster_.remove(route);
    made_.erase(key);
}

/// A stream that has come back meanwhile gets its route now.
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
        stir();
        --leaving_;
        const DiscoverySettings &rule = configuration_.discovery[key.first];
        const auto known = known_.find({rule.connection, !rule.inputs, key.second});
        if (known != known_.end()) {
            apply(key.first, AnnouncedStream(known->second));
        }
    }
}

} // namespace ferry
