#include "control/status_json.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>

#include <unistd.h>

#include "config/printable.h"
#include "control/reasons.h"

namespace ferry {
namespace {

/// Makes JSON of values whose times are the engine's.
class StatusWriter {
public:
    StatusWriter(const Configuration &configuration, const RelayStatus &status)
        : configuration_(configuration), status_(status),
          wall_(std::chrono::system_clock::now().time_since_epoch())
    {
    }

    Json relay() const;
    Json object(const ObjectStatus &object) const;
    Json session(const SessionStatus &session) const;
    Json route(const RouteStatus &route) const;
    Json gone(const RouteTotals &totals) const;
    Json reason(const Reason &reason) const;

private:
    /// "2026-03-01T12:00:00.123Z".
    static std::string text(std::chrono::milliseconds time)
    {
        const std::time_t seconds = static_cast<std::time_t>(time.count() / 1000);
        std::tm parts{};
        gmtime_r(&seconds, &parts);
        char buffer[32];
        std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%S", &parts);
        return fmt::format("{}.{:03}Z", buffer, time.count() % 1000);
    }
    std::string timeOf(std::int64_t time) const
    {
        const auto since = std::chrono::nanoseconds(time - status_.now);
        return text(std::chrono::duration_cast<std::chrono::milliseconds>(wall_ + since));
    }
    double secondsSince(std::int64_t time) const
    {
        const std::int64_t milliseconds = (status_.now - time) / 1'000'000;
        return static_cast<double>(milliseconds) / 1000;
    }
    /// A time, and how long ago that is.
    void addSince(Json &json, std::int64_t time) const
    {
        if (time != 0) {
            json["since"] = timeOf(time);
            json["seconds"] = secondsSince(time);
        }
    }
    void addPlace(Json &json, Place place) const
    {
        if (place.line != 0) {
            json["place"] = fmt::format("{}:{}:{}", configuration_.file, place.line, place.column);
        }
    }
    void addCall(Json &json, const char *key, const CallStatus &call) const
    {
        if (call.since != 0) {
            json[key] = {{"what", call.what}};
            addSince(json[key], call.since);
        }
    }
    void addFailure(Json &json, const Failure &failure, const EndStatus *end) const;
    Json end(const EndStatus &end) const;
    static void addTotals(Json &json, const RouteTotals &totals);

    const Configuration &configuration_;
    const RelayStatus &status_;
    const std::chrono::nanoseconds wall_;
};

const char *nameOf(RelayStatus::Phase phase)
{
    switch (phase) {
    case RelayStatus::Phase::starting:
        return "starting";
    case RelayStatus::Phase::running:
        return "running";
    case RelayStatus::Phase::stopping:
        break;
    }
    return "stopping";
}

const char *nameOf(SessionStatus::State state)
{
    switch (state) {
    case SessionStatus::State::running:
        return "running";
    case SessionStatus::State::finished:
        return "finished";
    case SessionStatus::State::broken:
        break;
    }
    return "failed";
}

/// Of all ends of a route; null if none has failed.
const EndStatus *lastFailed(const RouteStatus &route)
{
    const EndStatus *last = &route.input;
    for (const EndStatus &output : route.outputs) {
        last = output.failure.time > last->failure.time ? &output : last;
    }
    return last->failure.time == 0 ? nullptr : last;
}

Json StatusWriter::relay() const
{
    Json relay = {{"name", configuration_.name},
                  {"pid", getpid()},
                  {"version", FERRY_CONTROL_VERSION},
                  {"configuration", configuration_.file},
                  {"directory", configuration_.directory.string()},
                  {"state_directory", configuration_.state.string()},
                  {"phase", nameOf(status_.phase)}};
    addSince(relay, status_.started);
    relay["problems"] = status_.problems;
    relay["streams"] = status_.streams;
    addCall(relay, "call", status_.call);
    return relay;
}

void StatusWriter::addFailure(Json &json, const Failure &failure, const EndStatus *end) const
{
    if (failure.time == 0) {
        return;
    }
    Json error = {{"time", timeOf(failure.time)},
                  {"seconds", secondsSince(failure.time)},
                  {"count", failure.count},
                  {"operation", failure.operation},
                  {"text", withoutSecrets(failure.text)}};
    if (end != nullptr) {
        error["at"] = end->label;
        if (!end->adapter.empty()) {
            error["adapter"] = end->adapter;
        }
        addPlace(error, end->place);
    }
    json["error"] = std::move(error);
}

Json StatusWriter::object(const ObjectStatus &object) const
{
    Json json = {{"name", object.name}};
    if (!object.adapter.empty()) {
        json["adapter"] = object.adapter;
    }
    json["state"] = ferry::nameOf(object.state);
    addSince(json, object.since);
    if (!object.details.empty()) {
        json["details"] = withoutSecrets(object.details);
    }
    if (object.retryAt != 0) {
        json["retry_at"] = timeOf(object.retryAt);
    }
    addPlace(json, object.place);
    addFailure(json, object.failure, nullptr);
    return json;
}

Json StatusWriter::session(const SessionStatus &session) const
{
    Json json = {
        {"name", session.name}, {"state", nameOf(session.state)}, {"routes", session.routes}};
    addCall(json, "call", session.call);
    return json;
}

void StatusWriter::addTotals(Json &json, const RouteTotals &totals)
{
    json["read"] = totals.read;
    json["written"] = totals.written;
    json["errors"] = totals.errors;
    json["retries"] = totals.retries;
    json["lost"] = totals.lost;
    json["dead"] = totals.dead;
    json["not_acknowledged"] = totals.held;
    json["unreadable"] = totals.unreadable;
    json["bad"] = totals.bad;
    json["ends"] = totals.ends;
}

Json StatusWriter::end(const EndStatus &end) const
{
    Json json = {{"stream", end.label}};
    if (!end.adapter.empty()) {
        json["adapter"] = end.adapter;
    }
    if (end.retryAt > status_.now) {
        json["retry_at"] = timeOf(end.retryAt);
    }
    if (end.buffered) {
        Json buffer = {{"kind", end.stored ? "store" : "memory"},
                       {"samples", end.level.samples},
                       {"bytes", end.level.bytes},
                       {"max_bytes", end.maxBytes},
                       {"dropped", end.level.dropped},
                       {"damaged", end.level.damaged}};
        if (end.level.oldest != 0) {
            const std::chrono::milliseconds oldest(end.level.oldest);
            buffer["oldest"] = text(oldest);
            buffer["oldest_seconds"] =
                std::max(std::chrono::duration<double>(wall_ - oldest).count(), 0.0);
        }
        json["buffer"] = std::move(buffer);
    }
    addFailure(json, end.failure, &end);
    return json;
}

double rounded(double rate)
{
    return std::round(rate * 10) / 10;
}

Json StatusWriter::route(const RouteStatus &route) const
{
    Json json = {{"name", route.totals.name},
                 {"state", ferry::nameOf(route.state)},
                 {"session", route.session}};
    addSince(json, route.since);
    json["restarted"] = route.restarted;
    if (route.restartAt != 0) {
        json["restart_at"] = timeOf(route.restartAt);
    }
    const std::vector<Reason> reasons = reasonsOf(route, status_);
    if (!reasons.empty()) {
        json["reason"] = {{"code", reasons[0].code}, {"text", withoutSecrets(reasons[0].text)}};
    }
    addTotals(json, route.totals);
    json["read_per_second"] = rounded(route.rates.read);
    json["written_per_second"] = rounded(route.rates.written);
    if (route.totals.lastActivity != 0) {
        json["last_activity"] = timeOf(route.totals.lastActivity);
    }
    addCall(json, "call", route.call);
    addCall(json, "call_before", route.callBefore);
    json["input"] = end(route.input);
    Json outputs = Json::array();
    std::uint64_t lag = route.input.level.samples;
    for (std::size_t i = 0; i < route.outputs.size(); ++i) {
        Json output = end(route.outputs[i]);
        const RouteTotals::Output &totals = route.totals.outputs[i];
        output["written"] = totals.written;
        output["retries"] = totals.retries;
        output["lost"] = totals.lost;
        output["dead"] = totals.dead;
        output["pending"] = route.outputs[i].pending;
        lag = std::max(lag, route.outputs[i].pending);
        outputs.push_back(std::move(output));
    }
    json["lag"] = lag;
    json["outputs"] = std::move(outputs);
    if (const EndStatus *const last = lastFailed(route)) {
        addFailure(json, last->failure, last);
    }
    return json;
}

Json StatusWriter::gone(const RouteTotals &totals) const
{
    Json json = {{"name", totals.name}};
    addTotals(json, totals);
    return json;
}

Json StatusWriter::reason(const Reason &reason) const
{
    Json json = {{"code", reason.code}, {"text", withoutSecrets(reason.text)}};
    if (!reason.advice.empty()) {
        json["advice"] = reason.advice;
    }
    addSince(json, reason.since);
    addPlace(json, reason.place);
    return json;
}

template<class Values, class Make> Json listOf(const Values &values, Make &&make)
{
    Json list = Json::array();
    for (const auto &value : values) {
        list.push_back(make(value));
    }
    return list;
}

} // namespace

const char *nameOf(RouteStatus::State state)
{
    switch (state) {
    case RouteStatus::State::starting:
        return "starting";
    case RouteStatus::State::running:
        return "running";
    case RouteStatus::State::paused:
        return "paused";
    case RouteStatus::State::waiting:
        return "waiting";
    case RouteStatus::State::retrying:
        return "retrying";
    case RouteStatus::State::failed:
        break;
    }
    return "failed";
}

const char *nameOf(ObjectStatus::State state)
{
    switch (state) {
    case ObjectStatus::State::starting:
        return "starting";
    case ObjectStatus::State::running:
        return "running";
    case ObjectStatus::State::closed:
        return "closed";
    case ObjectStatus::State::failed:
        break;
    }
    return "failed";
}

std::string lineOf(const Json &json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json statusJson(const Configuration &configuration, const RelayStatus &status)
{
    const StatusWriter writer(configuration, status);
    const auto object = [&](const ObjectStatus &each) { return writer.object(each); };
    return {{"relay", writer.relay()},
            {"adapters", listOf(status.adapters, object)},
            {"connections", listOf(status.connections, object)},
            {"sessions",
             listOf(status.sessions, [&](const auto &each) { return writer.session(each); })},
            {"routes", listOf(status.routes, [&](const auto &each) { return writer.route(each); })},
            {"gone", listOf(status.gone, [&](const auto &each) { return writer.gone(each); })}};
}

Json whyJson(const Configuration &configuration, const RelayStatus &status,
             const RouteStatus &route)
{
    const StatusWriter writer(configuration, status);
    return {{"route", writer.route(route)},
            {"reasons", listOf(reasonsOf(route, status),
                               [&](const Reason &each) { return writer.reason(each); })}};
}

} // namespace ferry
