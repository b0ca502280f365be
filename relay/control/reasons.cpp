#include "control/reasons.h"

#include <algorithm>

#include <fmt/format.h>

#include "control/duration_text.h"

namespace ferry {
namespace {

constexpr std::int64_t second = 1'000'000'000;
/// An input without samples for that long is worth a word.
constexpr std::int64_t quiet = 10 * second;

class Explanation {
public:
    Explanation(const RouteStatus &route, const RelayStatus &relay) : route_(route), relay_(relay)
    {
    }

    std::vector<Reason> reasons()
    {
        if (relay_.phase == RelayStatus::Phase::stopping) {
            add({"stopping", "the relay stops", ""});
        }
        lookAtRoute();
        lookAtCalls();
        if (route_.state != RouteStatus::State::paused &&
            route_.state != RouteStatus::State::waiting) {
            lookAtEnds();
        }
        if (reasons_.empty()) {
            lookAtInput();
        }
        return std::move(reasons_);
    }

private:
    void add(Reason reason)
    {
        reasons_.push_back(std::move(reason));
    }

    std::string in(std::int64_t time) const
    {
        return time <= relay_.now ? "now" : "in " + durationText(time - relay_.now);
    }
    std::string ago(std::int64_t time) const
    {
        return durationText(relay_.now - time);
    }

    void lookAtRoute()
    {
        const std::string &name = route_.totals.name;
        switch (route_.state) {
        case RouteStatus::State::paused:
            add({"paused", fmt::format("an operator has paused it, {} ago", ago(route_.since)),
                 fmt::format("ferry resume \"{}\"", name), route_.since});
            return;
        case RouteStatus::State::waiting:
            add({"waiting_for_stream",
                 "nobody is there to write to: its stream has gone, and may come back", "",
                 route_.since});
            return;
        case RouteStatus::State::starting:
            add({"starting", "the relay has not come to making it yet", ""});
            return;
        case RouteStatus::State::failed:
            lookAtFailed();
            return;
        case RouteStatus::State::running:
        case RouteStatus::State::retrying:
            break;
        }
        const auto session =
            std::find_if(relay_.sessions.begin(), relay_.sessions.end(),
                         [&](const SessionStatus &each) { return each.name == route_.session; });
        if (session != relay_.sessions.end() && session->state == SessionStatus::State::broken) {
            add({"session_broken",
                 fmt::format("its session {} has no thread: the system gave none", session->name),
                 "restart ferry, with a higher limit for threads"});
        }
    }

    void lookAtFailed()
    {
        std::string text = fmt::format("out of service for {}", ago(route_.since));
        std::string advice = fmt::format("ferry restart \"{}\"", route_.totals.name);
        if (!route_.restarts) {
            text += "; it will not be made anew";
            advice = "mend the configuration and restart ferry";
        } else if (route_.restartAt != 0) {
            text += fmt::format("; it is made anew {}", in(route_.restartAt));
        } else if (relay_.phase == RelayStatus::Phase::running) {
            text += "; further attempts were given up";
        }
        add({"out_of_service", text, advice, route_.since});
        for (const ObjectStatus &connection : relay_.connections) {
            if (connection.state == ObjectStatus::State::failed && uses(connection.name)) {
                lookAtConnection(connection);
            }
        }
    }

    void lookAtConnection(const ObjectStatus &connection)
    {
        std::string text = fmt::format("connection {} is out of service: {}", connection.name,
                                       connection.failure.text);
        if (connection.retryAt != 0) {
            text += fmt::format("; tried again {}", in(connection.retryAt));
        }
        add({"connection_down", text, "", connection.since, connection.place});
        for (const ObjectStatus &adapter : relay_.adapters) {
            if (adapter.name == connection.adapter &&
                adapter.state == ObjectStatus::State::failed) {
                add({"adapter_down",
                     fmt::format("adapter {} was not made: {}", adapter.name, adapter.failure.text),
                     "mend the configuration and restart ferry", adapter.since, adapter.place});
            }
        }
    }

    bool uses(const std::string &connection) const
    {
        const auto isOf = [&](const EndStatus &end) {
            return end.label.compare(0, connection.size() + 1, connection + "/") == 0;
        };
        return isOf(route_.input) ||
               std::any_of(route_.outputs.begin(), route_.outputs.end(), isOf);
    }

    void lookAtCalls()
    {
        if (route_.call.since != 0) {
            add({"call_hangs",
                 fmt::format("{} has not returned for {}", route_.call.what,
                             ago(route_.call.since)),
                 "the adapter waits for something: look at what it is connected to; kill -QUIT "
                 "shows where its threads are",
                 route_.call.since});
        } else if (route_.callBefore.since != 0) {
            add({"session_busy",
                 fmt::format("its session {} is inside another route's call: {} has not returned "
                             "for {}",
                             route_.session, route_.callBefore.what, ago(route_.callBefore.since)),
                 "put the two routes into sessions of their own", route_.callBefore.since});
        }
        if (relay_.call.since != 0 && route_.state != RouteStatus::State::running) {
            add({"control_busy",
                 fmt::format("{} has not returned for {}, and nothing else is made meanwhile",
                             relay_.call.what, ago(relay_.call.since)),
                 "", relay_.call.since});
        }
    }

    /// What failed last counts for an end that still is in trouble, or whose route is.
    void lookAtEnds()
    {
        const bool failed = route_.state == RouteStatus::State::failed;
        for (const EndStatus &output : route_.outputs) {
            const bool stuck = output.pending > 0 && route_.stuckSince != 0;
            if (stuck || (failed && output.failure.time != 0)) {
                lookAtOutput(output);
            }
        }
        if (route_.input.retryAt != 0 || (failed && route_.input.failure.time != 0)) {
            const Failure &failure = route_.input.failure;
            std::string text;
            if (failure.time != 0) {
                text = fmt::format("{} of {} failed {} ago: {}", failure.operation,
                                   route_.input.label, ago(failure.time), failure.text);
            } else {
                text = fmt::format("{} is left alone after a failure of an output",
                                   route_.input.label);
            }
            if (route_.input.retryAt != 0 && !failed) {
                text += fmt::format("; read again {}", in(route_.input.retryAt));
            }
            add({"input_fails", text, "", failure.time, route_.input.place});
        }
    }

    void lookAtOutput(const EndStatus &output)
    {
        const Failure &failure = output.failure;
        const bool failed = route_.state == RouteStatus::State::failed;
        std::string text = failed
                               ? fmt::format("{} of {} failed {} ago: {}", failure.operation,
                                             output.label, ago(failure.time), failure.text)
                               : fmt::format("{} has taken nothing of {} samples for {}",
                                             output.label, output.pending, ago(route_.stuckSince));
        if (!failed && failure.time != 0) {
            text += fmt::format(": {}", failure.text);
        }
        if (!failed && output.retryAt > relay_.now) {
            text += fmt::format("; tried again {}", in(output.retryAt));
        }
        const bool buffer = output.buffered && !failed;
        add({buffer ? "buffer_takes_nothing" : "output_fails", text,
             buffer ? fmt::format("ferry why \"{} to {}\" tells why what it holds does not move on",
                                  route_.totals.name, output.label)
                    : "",
             failed ? failure.time : route_.stuckSince, output.place});
    }

    void lookAtInput()
    {
        const std::int64_t last = route_.totals.lastActivity;
        if (!route_.idle || (last != 0 && relay_.now - last < quiet)) {
            return;
        }
        if (route_.input.buffered) {
            add({"no_data", "all that the buffer held has been delivered", "", last,
                 route_.input.place});
            return;
        }
        const std::int64_t since = last == 0 ? route_.since : last;
        add({"no_data",
             last == 0
                 ? fmt::format("{} has brought no sample yet, for {}", route_.input.label,
                               ago(since))
                 : fmt::format("{} has brought no sample for {}", route_.input.label, ago(since)),
             "reads come back empty without an error: look at the source, at its name and at what "
             "it is filtered by",
             since, route_.input.place});
    }

    const RouteStatus &route_;
    const RelayStatus &relay_;
    std::vector<Reason> reasons_;
};

} // namespace

std::vector<Reason> reasonsOf(const RouteStatus &route, const RelayStatus &relay)
{
    return Explanation(route, relay).reasons();
}

} // namespace ferry
