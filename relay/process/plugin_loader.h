// The plug-in host of the real thing: Java adapters through the bridge, in a VM that is started
// only when there are any, and native ones out of shared libraries.
#ifndef FERRY_PROCESS_PLUGIN_LOADER_H
#define FERRY_PROCESS_PLUGIN_LOADER_H

#include <mutex>
#include <optional>
#include <vector>

#include "engine/plugin_host.h"
#include "process/java_bridge.h"

namespace ferry {

struct JavaStart {
    /// The bridge's library.
    std::filesystem::path bridge;
    std::vector<std::string> options;
    std::uint32_t logMask = 0;
    /// "" when debuggers cannot attach.
    std::string debuggers;
};

class PluginLoader : public PluginHost {
public:
    PluginLoader(const Configuration &configuration, JavaStart java);

    bool start() override;
    QEL_FerrionAdapterPlugin *open(const AdapterSettings &settings,
                                   const QEL_FerrionProperties *properties,
                                   CallEnvironment &environment) override;
    bool attachThread() override;
    void detachThread() override;
    void stop() override;
    void stopBy(Clock::time_point deadline) override;
    bool anyStopBy() const override;
    void endWritesBy(Clock::time_point deadline) override;
    void *find(const AdapterSettings &settings, const std::string &name) override;
    std::uint32_t delivery(const AdapterSettings &settings, std::uint32_t role,
                           const Properties &properties) override;
    FailureDetails takeFailure(const std::string &adapter) override;
    std::string threadDump() override;

private:
    QEL_FerrionAdapterPlugin *openJava(const AdapterSettings &settings,
                                       const QEL_FerrionProperties *properties,
                                       CallEnvironment &environment);
    QEL_FerrionAdapterPlugin *openNative(const AdapterSettings &settings,
                                         const QEL_FerrionProperties *properties,
                                         CallEnvironment &environment);

    void addStopListener(QEL_FerrionAdapterPlugin &plugin,
                         QEL_FerrionAdapterPlugin_StopByFn notify);
    std::string findIsolated(const AdapterSettings &settings) const;
    std::uint32_t javaDelivery(const AdapterSettings &settings, std::uint32_t role,
                               const Properties &properties) const;

    const Configuration &configuration_;
    const JavaStart java_;
    JavaBridge bridge_;
    FERRYJNIGlobal *global_ = nullptr;
    /// The VM lives while it is held with `global_` set: it is asked by threads that nobody else
    /// waits for.
    std::mutex askMutex_;
    /// The bridge wants the first attachment of the process to be over before the next begins.
    std::mutex attachMutex_;

    struct Listener {
        QEL_FerrionAdapterPlugin *plugin;
        QEL_FerrionAdapterPlugin_StopByFn notify;
    };
    mutable std::mutex stopMutex_;
    std::vector<Listener> listeners_;
    /// Nanoseconds of CLOCK_MONOTONIC, for plug-ins that are made when a stop has begun.
    std::optional<std::int64_t> stopBy_;
};

} // namespace ferry

#endif
