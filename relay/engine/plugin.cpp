#include "engine/plugin.h"

#include <cstdio>
#include <unistd.h>

#include "engine/log.h"

namespace ferry {

std::atomic<std::uint32_t> g_logMask{FERRYLOG_BIT_ERROR | FERRYLOG_BIT_WARNING};

void CallEnvironment::fail(const std::string &text)
{
    raw_.errorFlag = 1;
    explained_ = true;
    std::snprintf(raw_.message, sizeof raw_.message, "%s", text.c_str());
}

PropertyList::PropertyList(const Properties &properties) : texts_(properties)
{
    pairs_.reserve(texts_.size());
    for (auto &[name, value] : texts_) {
        pairs_.push_back({name.data(), value.data()});
    }
    list_.properties = pairs_.empty() ? nullptr : pairs_.data();
    list_.count = static_cast<std::int32_t>(pairs_.size());
}

void CallGuard::enter(const char *operation, const void *object, const void *owner)
{
    operation_.store(operation, std::memory_order_relaxed);
    object_.store(object, std::memory_order_relaxed);
    owner_.store(owner, std::memory_order_relaxed);
    calls_.fetch_add(1, std::memory_order_relaxed);
    state_.store(State::inside, std::memory_order_release);
}

void CallGuard::leave()
{
    State expected = State::inside;
    if (!state_.compare_exchange_strong(expected, State::outside)) {
        for (;;) {
            pause();
        }
    }
}

bool CallGuard::giveUp()
{
    State expected = State::inside;
    return state_.compare_exchange_strong(expected, State::abandoned);
}

StallWatch::Clock::duration StallWatch::look(const CallGuard &guard, Clock::time_point now,
                                             Clock::duration limit)
{
    if (!guard.inside() || guard.calls() != call_) {
        call_ = guard.calls();
        since_ = now;
        next_ = limit;
        return Clock::duration::zero();
    }
    if (now - since_ < next_) {
        return Clock::duration::zero();
    }
    next_ = 2 * (now - since_);
    return now - since_;
}

void logAdapterFailure(const char *context, const std::string &adapter,
                       const std::string &operation, const CallEnvironment &environment)
{
    if (environment.code() != 0) {
        const std::string text = operation + ": " + environment.text();
        logError(context, FERRY_LOG_ADAPTER_FAILURE_sds, adapter.c_str(), environment.code(),
                 text.c_str());
    } else {
        logError(context, FERRY_LOG_ADAPTER_FAILURE_sss, adapter.c_str(), operation.c_str(),
                 environment.text());
    }
}

} // namespace ferry
