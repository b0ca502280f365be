// What connections announce: getting and reading their discovery readers.
#include "engine/assembly.h"
#include "engine/log.h"

namespace ferry {

/// Whether the last call failed, which is told once in a while.
bool Assembly::announcerFailed(Announcer &announcer)
{
    if (!environment().failed()) {
        return false;
    }
    ++problems_;
    if (announcer.filter.admit(environment().cause(), Clock::now())) {
        std::string what = "discovery of " + announcer.label;
        const std::uint64_t more = announcer.filter.takeSuppressed();
        if (more > 0) {
            what += " (" + std::to_string(more) + " more failures since the last line)";
        }
        logAdapterFailure("FERRYRelay_discover",
                          connections_[announcer.connection]->adapter->settings->name, what,
                          environment());
        reporter_.bad(announcer.label, environment().text(),
                      configuration_.connections[announcer.connection].place);
    }
    return true;
}

void Assembly::refuse(const std::string &what, const std::string &reason)
{
    ++problems_;
    logError("FERRYRelay_build", FERRY_LOG_ENTITY_ANY_ss, what.c_str(), reason.c_str());
    reporter_.bad(what, reason, {});
}

bool Assembly::openAnnouncer(Announcer &announcer)
{
    const Connection &connection = *connections_[announcer.connection];
    if (connection.handle == nullptr || connection.broken) {
        return false;
    }
    const QEL_FerrionAdapterOperations &operations = connection.operations();
    const auto get = announcer.inputs ? operations.get_pub_discovery_reader
                                      : operations.get_sub_discovery_reader;
    if (get == nullptr || operations.read == nullptr || operations.return_loan == nullptr) {
        return false;
    }
    QEL_FerrionStreamReader *const reader =
        call("discovery of " + announcer.label, *connection.adapter,
             [&](CallEnvironment &own) { return get(connection.handle, own.fresh()); });
    announcer.reader = announcerFailed(announcer) ? nullptr : reader;
    announcer.properties = reinterpret_cast<QEL_FerrionAdapterPlugin_StreamPropertiesFn>(
        host_.find(*connection.adapter->settings, "stream_properties"));
    return announcer.reader != nullptr;
}

bool Assembly::read(
    Announcer &announcer,
    const std::function<void(const QEL_FerrionStreamInfo &, const QEL_FerrionProperties *)> &body)
{
    const Connection &connection = *connections_[announcer.connection];
    const QEL_FerrionAdapterOperations &operations = connection.operations();
    const std::string what = "discovery of " + announcer.label;
    void **samples = nullptr;
    DDS_SampleInfo **infos = nullptr;
    std::int32_t count = 0;
    announcer.signalled.store(false);
    call(what, *connection.adapter, [&](CallEnvironment &own) {
        operations.read(announcer.reader, &samples, &infos, &count, own.fresh());
    });
    bool failed = announcerFailed(announcer);
    for (std::int32_t i = 0; samples != nullptr && i < count; ++i) {
        const auto *const info = static_cast<const QEL_FerrionStreamInfo *>(samples[i]);
        if (info != nullptr && info->streamName != nullptr) {
            body(*info, info->disposed == 0 && announcer.properties != nullptr
                            ? announcer.properties(announcer.reader, info)
                            : nullptr);
        }
    }
    call(what, *connection.adapter, [&](CallEnvironment &own) {
        operations.return_loan(announcer.reader, samples, infos, count, own.fresh());
    });
    failed = announcerFailed(announcer) || failed;
    return !failed;
}

} // namespace ferry
