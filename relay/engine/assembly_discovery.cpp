// What connections announce: getting and reading their discovery readers.
#include "engine/assembly.h"
#include "engine/log.h"

namespace ferry {

/// Whether the last call failed. Reports it unless it repeats.
bool Assembly::sourceFailed(DiscoverySource &source)
{
    if (!environment().failed()) {
        return false;
    }
    ++problems_;
    if (source.filter.admit(environment().cause(), Clock::now())) {
        logAdapterFailure(
            "FERRYRelay_discover", connections_[source.connection]->adapter->settings->name,
            fmt::format("discovery of {}{}", source.label, source.filter.takeSuppressed()),
            environment());
        reporter_.bad(source.label, environment().text(),
                      configuration_.connections[source.connection].place);
    }
    return true;
}

void Assembly::reject(const std::string &what, const std::string &reason)
{
    ++problems_;
    logAbout(FERRYLOG_BIT_ERROR, "FERRYRelay_build", what, "{}", reason);
    reporter_.bad(what, reason, {});
}

bool Assembly::openSource(DiscoverySource &source)
{
    const Connection &connection = *connections_[source.connection];
    if (connection.handle == nullptr || connection.broken) {
        return false;
    }
    const QEL_FerrionAdapterOperations &operations = connection.operations();
    const auto get =
        source.inputs ? operations.get_pub_discovery_reader : operations.get_sub_discovery_reader;
    if (get == nullptr || operations.read == nullptr || operations.return_loan == nullptr) {
        return false;
    }
    QEL_FerrionStreamReader *const reader =
        call(fmt::format("discovery of {}", source.label), *connection.adapter,
             [&](CallEnvironment &own) { return get(connection.handle, own.fresh()); });
    source.reader = sourceFailed(source) ? nullptr : reader;
    source.properties = reinterpret_cast<QEL_FerrionAdapterPlugin_StreamPropertiesFn>(
        host_.find(*connection.adapter->settings, "stream_properties"));
    return source.reader != nullptr;
}

bool Assembly::read(
    DiscoverySource &source,
    const std::function<void(const QEL_FerrionStreamInfo &, const QEL_FerrionProperties *)> &body)
{
    const Connection &connection = *connections_[source.connection];
    const QEL_FerrionAdapterOperations &operations = connection.operations();
    const std::string what = fmt::format("discovery of {}", source.label);
    void **samples = nullptr;
    DDS_SampleInfo **infos = nullptr;
    std::int32_t count = 0;
    source.signalled.store(false);
    call(what, *connection.adapter, [&](CallEnvironment &own) {
        operations.read(source.reader, &samples, &infos, &count, own.fresh());
    });
    bool failed = sourceFailed(source);
    for (std::int32_t i = 0; samples != nullptr && i < count; ++i) {
        const auto *const info = static_cast<const QEL_FerrionStreamInfo *>(samples[i]);
        if (info != nullptr && info->streamName != nullptr) {
            body(*info, info->disposed == 0 && source.properties != nullptr
                            ? source.properties(source.reader, info)
                            : nullptr);
        }
    }
    call(what, *connection.adapter, [&](CallEnvironment &own) {
        operations.return_loan(source.reader, samples, infos, count, own.fresh());
    });
    failed = sourceFailed(source) || failed;
    return !failed;
}

} // namespace ferry
