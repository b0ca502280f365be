// What a route tells those who ask.
#include <algorithm>

#include "engine/route.h"

namespace ferry {
namespace {

EndStatus statusOf(const RouteEnd &end, const StreamSettings &settings)
{
    EndStatus status;
    status.label = end.label;
    status.place = settings.place;
    status.failure = end.lastFailure.get();
    if (end.buffer != nullptr) {
        status.buffered = true;
        status.stored = end.buffer->isStored();
        status.level = end.buffer->level();
        status.maxBytes = end.buffer->maxBytes();
    }
    return status;
}

} // namespace

/// Samples that every output has, without the names that totals have.
std::uint64_t Route::writtenByAll() const
{
    std::uint64_t written = samplesRead_.get();
    for (const auto &delivery : deliveries_) {
        written = std::min(written, delivery->written());
    }
    return written;
}

void Route::measure(Clock::time_point now)
{
    meter_.look(now, samplesRead_.get(), writtenByAll());
}

RouteStatus::State Route::stateNow() const
{
    switch (state()) {
    case State::closed:
        return RouteStatus::State::starting;
    case State::failed:
        return RouteStatus::State::failed;
    case State::active:
        break;
    }
    if (pausedBy(byOperator)) {
        return RouteStatus::State::paused;
    }
    if (pausedBy(byDiscovery)) {
        return RouteStatus::State::waiting;
    }
    return stuckSince_.load() != 0 || readAgainAt_.load() != 0 ? RouteStatus::State::retrying
                                                               : RouteStatus::State::running;
}

RouteStatus Route::status() const
{
    RouteStatus status;
    status.state = stateNow();
    status.stuckSince = stuckSince_.load();
    switch (status.state) {
    case RouteStatus::State::failed:
        status.since = failedSince_.load();
        break;
    case RouteStatus::State::paused:
    case RouteStatus::State::waiting:
        status.since = pausedAt_.load();
        break;
    case RouteStatus::State::retrying:
        status.since = status.stuckSince != 0 ? status.stuckSince : troubleSince_.load();
        break;
    case RouteStatus::State::starting:
    case RouteStatus::State::running:
        status.since = stateSince_.load();
        break;
    }
    status.totals = totals();
    status.rates = meter_.rates();
    status.restartAt = restartAt_.load();
    status.restarted = restarted_.load();
    status.idle = idle();
    status.input = statusOf(input_, settings_.input);
    status.input.retryAt = readAgainAt_.load();
    for (std::size_t i = 0; i < deliveries_.size(); ++i) {
        const Delivery &delivery = *deliveries_[i];
        status.outputs.push_back(statusOf(delivery.end(), settings_.outputs[i]));
        status.outputs.back().pending = static_cast<std::uint64_t>(delivery.pending());
        status.outputs.back().retryAt = delivery.retryAt();
    }
    return status;
}

} // namespace ferry
