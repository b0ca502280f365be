#include "control/metrics.h"

#include <chrono>

#include <fmt/format.h>

#include "config/printable.h"
#include "control/status_json.h"

namespace ferry {
namespace {

using Labels = std::vector<std::pair<const char *, std::string>>;

std::string escaped(const std::string &value)
{
    std::string text;
    for (const char c : printable(value)) {
        text += c == '\\' || c == '"' ? fmt::format("\\{}", c) : std::string(1, c);
    }
    return text;
}

/// One metric after the other, each with all its series.
class MetricsWriter {
public:
    void begin(const char *name, const char *type, const char *help)
    {
        name_ = name;
        text_ += fmt::format("# HELP {} {}\n# TYPE {} {}\n", name, help, name, type);
    }
    template<class Number> void add(const Labels &labels, Number value)
    {
        text_ += name_;
        const char *before = "{";
        for (const auto &[label, content] : labels) {
            text_ += fmt::format("{}{}=\"{}\"", before, label, escaped(content));
            before = ",";
        }
        text_ += fmt::format("{} {}\n", labels.empty() ? "" : "}", value);
    }
    std::string take()
    {
        return std::move(text_);
    }

private:
    const char *name_ = "";
    std::string text_;
};

class RelayMetrics {
public:
    RelayMetrics(const Configuration &configuration, const RelayStatus &status)
        : configuration_(configuration), status_(status)
    {
    }

    std::string text()
    {
        addRelay();
        addObjects();
        addRoutes();
        addOutputs();
        addBuffers();
        return metrics_.take();
    }

private:
    void addRelay();
    void addObjects();
    void addRoutes();
    void addOutputs();
    void addBuffers();

    /// A counter of routes, of those that are gone, too: it never goes backwards.
    void addCounter(const char *name, const char *help, std::uint64_t RouteTotals::*field)
    {
        metrics_.begin(name, "counter", help);
        for (const RouteStatus &route : status_.routes) {
            metrics_.add({{"route", route.totals.name}}, route.totals.*field);
        }
        for (const RouteTotals &route : status_.gone) {
            metrics_.add({{"route", route.name}}, route.*field);
        }
    }
    void addCounter(const char *name, const char *help, std::uint64_t RouteTotals::Output::*field)
    {
        metrics_.begin(name, "counter", help);
        const auto addAll = [&](const RouteTotals &route) {
            for (const RouteTotals::Output &output : route.outputs) {
                metrics_.add({{"route", route.name}, {"output", output.label}}, output.*field);
            }
        };
        for (const RouteStatus &route : status_.routes) {
            addAll(route.totals);
        }
        for (const RouteTotals &route : status_.gone) {
            addAll(route);
        }
    }
    template<class Value> void addBuffer(const char *name, const char *help, Value &&value)
    {
        metrics_.begin(name, "gauge", help);
        for (const RouteStatus &route : status_.routes) {
            if (route.input.buffered) {
                metrics_.add({{"route", route.totals.name},
                              {"kind", route.input.stored ? "store" : "memory"}},
                             value(route.input));
            }
        }
    }

    const Configuration &configuration_;
    const RelayStatus &status_;
    MetricsWriter metrics_;
};

void RelayMetrics::addRelay()
{
    metrics_.begin("ferry_build_info", "gauge", "The relay's version and name; always 1.");
    metrics_.add({{"version", FERRY_CONTROL_VERSION}, {"name", configuration_.name}}, 1);
    const std::chrono::duration<double> wall = std::chrono::system_clock::now().time_since_epoch();
    metrics_.begin("ferry_start_time_seconds", "gauge", "When the relay started, since 1970.");
    metrics_.add(
        {}, fmt::format("{:.3f}",
                        wall.count() - static_cast<double>(status_.now - status_.started) / 1e9));
    metrics_.begin("ferry_problems_total", "counter", "Failures beside those of routes.");
    metrics_.add({}, status_.problems);
    metrics_.begin("ferry_announced_streams", "gauge", "Streams that connections announce now.");
    metrics_.add({}, status_.streams);
}

void RelayMetrics::addObjects()
{
    const auto isUp = [](const ObjectStatus &object) {
        return object.state == ObjectStatus::State::running ? 1 : 0;
    };
    metrics_.begin("ferry_adapter_up", "gauge", "1 for an adapter that is in service.");
    for (const ObjectStatus &adapter : status_.adapters) {
        metrics_.add({{"adapter", adapter.name}}, isUp(adapter));
    }
    metrics_.begin("ferry_connection_up", "gauge", "1 for a connection that is in service.");
    for (const ObjectStatus &each : status_.connections) {
        metrics_.add({{"connection", each.name}, {"adapter", each.adapter}}, isUp(each));
    }
    metrics_.begin("ferry_connection_errors_total", "counter", "Failed attempts to connect.");
    for (const ObjectStatus &each : status_.connections) {
        metrics_.add({{"connection", each.name}, {"adapter", each.adapter}}, each.failure.count);
    }
    metrics_.begin("ferry_session_call_seconds", "gauge",
                   "For how long the call of a session's thread has not returned; 0 for one that "
                   "does.");
    for (const SessionStatus &session : status_.sessions) {
        const std::int64_t since = session.call.since;
        metrics_.add({{"session", session.name}},
                     since == 0 ? 0.0 : static_cast<double>(status_.now - since) / 1e9);
    }
}

void RelayMetrics::addRoutes()
{
    metrics_.begin("ferry_route_state", "gauge", "1 for the state that a route is in.");
    for (const RouteStatus &route : status_.routes) {
        for (const RouteStatus::State state :
             {RouteStatus::State::starting, RouteStatus::State::running, RouteStatus::State::paused,
              RouteStatus::State::waiting, RouteStatus::State::retrying,
              RouteStatus::State::failed}) {
            metrics_.add({{"route", route.totals.name}, {"state", nameOf(state)}},
                         route.state == state ? 1 : 0);
        }
    }
    metrics_.begin("ferry_route_restarts_total", "counter", "How often a route was made anew.");
    for (const RouteStatus &route : status_.routes) {
        metrics_.add({{"route", route.totals.name}}, route.restarted);
    }
    addCounter("ferry_samples_read_total", "Samples that inputs have lent.", &RouteTotals::read);
    addCounter("ferry_samples_unreadable_total", "Samples of reads that were null.",
               &RouteTotals::unreadable);
    addCounter("ferry_records_bad_total", "Records that reads had to pass over.",
               &RouteTotals::bad);
    addCounter("ferry_samples_unacknowledged_total",
               "Samples of reads that were given up, which their sources repeat.",
               &RouteTotals::held);
    addCounter("ferry_route_errors_total", "Failed calls that count as errors.",
               &RouteTotals::errors);
    metrics_.begin("ferry_stream_errors_total", "counter",
                   "Failed calls of a stream's adapter, those that are repeated, too.");
    for (const RouteStatus &route : status_.routes) {
        const auto add = [&](const EndStatus &end) {
            metrics_.add({{"route", route.totals.name},
                          {"stream", end.label},
                          {"adapter", end.adapter},
                          {"end", &end == &route.input ? "input" : "output"}},
                         end.failure.count);
        };
        add(route.input);
        for (const EndStatus &output : route.outputs) {
            add(output);
        }
    }
}

void RelayMetrics::addOutputs()
{
    addCounter("ferry_samples_written_total", "Samples that an output has taken.",
               &RouteTotals::Output::written);
    addCounter("ferry_samples_lost_total", "Samples that an output will never have.",
               &RouteTotals::Output::lost);
    addCounter("ferry_samples_dead_total", "Samples that were set aside as bad data.",
               &RouteTotals::Output::dead);
    addCounter("ferry_writes_retried_total", "Writes that failed and are repeated.",
               &RouteTotals::Output::retries);
    metrics_.begin("ferry_samples_pending", "gauge",
                   "Samples of the present read that an output does not have yet.");
    for (const RouteStatus &route : status_.routes) {
        for (const EndStatus &output : route.outputs) {
            metrics_.add({{"route", route.totals.name}, {"output", output.label}}, output.pending);
        }
    }
}

void RelayMetrics::addBuffers()
{
    addBuffer("ferry_buffer_samples", "Samples in the buffer that a route reads.",
              [](const EndStatus &end) { return end.level.samples; });
    addBuffer("ferry_buffer_bytes", "Their bytes.",
              [](const EndStatus &end) { return end.level.bytes; });
    addBuffer("ferry_buffer_max_bytes", "The most bytes that the buffer takes.",
              [](const EndStatus &end) { return end.maxBytes; });
    addBuffer("ferry_buffer_dropped_samples", "Samples that it gave up because it was full.",
              [](const EndStatus &end) { return end.level.dropped; });
    addBuffer("ferry_buffer_oldest_timestamp_seconds",
              "When the oldest of its samples was put there, since 1970; 0 if it is empty.",
              [](const EndStatus &end) {
                  return fmt::format("{:.3f}", static_cast<double>(end.level.oldest) / 1e3);
              });
}

} // namespace

std::string metricsText(const Configuration &configuration, const RelayStatus &status)
{
    return RelayMetrics(configuration, status).text();
}

} // namespace ferry
