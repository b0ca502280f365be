// The calls of plug-ins that one route makes: their environment, and the errors they report.
#ifndef FERRY_ENGINE_ROUTE_CALLS_H
#define FERRY_ENGINE_ROUTE_CALLS_H

#include "engine/buffered_output.h"
#include "engine/call_guard.h"
#include "engine/last_failure.h"
#include "engine/plugin_host.h"
#include "engine/repeat_filter.h"
#include "engine/route_totals.h"

namespace ferry {

/// One end of a route: its stream, and the plug-in that serves it. The names are the
/// configuration's.
struct RouteEnd {
    const StreamSettings *settings = nullptr;
    const std::string *adapter = nullptr;
    const QEL_FerrionAdapterOperations *operations = nullptr;
    /// "connection/stream", for messages.
    std::string label;
    /// What stands here in place of an adapter; null if one does.
    BufferedOutput *buffer = nullptr;
    LastFailure lastFailure;
};

struct ReaderEnd : RouteEnd {
    QEL_FerrionStreamReader *reader = nullptr;
};

struct WriterEnd : RouteEnd {
    QEL_FerrionStreamWriter *writer = nullptr;
    /// What the adapter declares of it: FERRY_DELIVERY_... bits.
    std::uint32_t delivery = 0;
    /// Whether there is no bad data for it, so that a failure is always one of the place.
    bool takesAnything = false;
};

/// How a call went, the worse the higher. What is flawed was no success, but the next call may come
/// at once.
enum class CallResult { good, flawed, failed };

/// Session thread, but for the counter.
class RouteCalls {
public:
    /// `owner` is whom guards take for the caller.
    RouteCalls(const std::string &route, const void *owner, PluginHost &host)
        : route_(route), owner_(owner), host_(host)
    {
    }

    /// Runs one call of a plug-in, which `body` is given the environment for. `operation` is a
    /// literal, `object` what the call works on.
    template<class Body>
    auto run(CallGuard &guard, const char *operation, const void *object, Body &&body)
    {
        const Inside inside(guard, operation, object, owner_);
        return body(environment_.fresh());
    }
    /// What the last call left.
    CallEnvironment &environment()
    {
        return environment_;
    }

    /// Finds out what else is known of the last call if it failed. Before another call.
    void explain(const RouteEnd &end);
    /// Logs the failure of the last call unless the filter holds it back, and notes it at its end.
    /// Callers count it.
    void reportFailure(RouteEnd &end, RepeatFilter &filter, const char *operation);
    /// What a line is about, with the number of those like it that the filter has held back.
    std::string about(const char *operation, const RouteEnd &end, RepeatFilter &filter) const;

    const std::string &route() const
    {
        return route_;
    }

    /// Failed calls.
    Counter errors;

private:
    struct Inside {
        Inside(CallGuard &entered, const char *operation, const void *object, const void *owner)
            : guard(entered)
        {
            guard.enter(operation, object, owner);
        }
        ~Inside()
        {
            guard.leave();
        }
        Inside(const Inside &) = delete;
        Inside &operator=(const Inside &) = delete;
        CallGuard &guard;
    };

    const std::string &route_;
    const void *const owner_;
    PluginHost &host_;
    CallEnvironment environment_;
};

} // namespace ferry

#endif
