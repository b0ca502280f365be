#include "engine/call.h"

#include <cstdio>

#include "engine/log.h"

namespace ferry {

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

void logAdapterFailure(const char *context, const std::string &adapter,
                       const std::string &operation, const CallEnvironment &environment)
{
    if (environment.code() != 0) {
        const std::string text = fmt::format("{}: {}", operation, environment.text());
        logError(context, FERRY_LOG_ADAPTER_FAILURE_sds, adapter.c_str(), environment.code(),
                 text.c_str());
    } else {
        logError(context, FERRY_LOG_ADAPTER_FAILURE_sss, adapter.c_str(), operation.c_str(),
                 environment.text());
    }
}

} // namespace ferry
