#include "engine/route_calls.h"

#include "engine/log.h"

namespace ferry {

void RouteCalls::reportFailure(RouteEnd &end, RepeatFilter &filter, const char *operation)
{
    explain(end);
    end.lastFailure.note(operation, environment_.text());
    if (filter.admit(environment_.cause(), Clock::now())) {
        logAdapterFailure("FERRYRoute_step", *end.adapter, about(operation, end, filter),
                          environment_);
    }
}

void RouteCalls::explain(const RouteEnd &end)
{
    if (environment_.failed() && !environment_.explained()) {
        environment_.explain(host_.takeFailure(*end.adapter));
    }
}

std::string RouteCalls::about(const char *operation, const RouteEnd &end,
                              RepeatFilter &filter) const
{
    return fmt::format("route {}: {} of {}{}", route_, operation, end.label,
                       filter.takeSuppressed());
}

} // namespace ferry
