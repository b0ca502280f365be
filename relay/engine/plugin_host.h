// Where the relay gets its plug-ins from: the engine knows neither libraries nor Java.
#ifndef FERRY_ENGINE_PLUGIN_HOST_H
#define FERRY_ENGINE_PLUGIN_HOST_H

#include <string>

#include "engine/call.h"
#include "engine/clock.h"

namespace ferry {

/// The relay calls start, open and stop on its control thread, and attachThread and detachThread on
/// each of its session threads.
class PluginHost {
public:
    virtual ~PluginHost() = default;

    /// Prepares what the adapters need; false after logging why that failed.
    virtual bool start() = 0;
    /// Makes an adapter's plug-in; a failure is in the environment, whatever is returned.
    virtual QEL_FerrionAdapterPlugin *open(const AdapterSettings &settings,
                                           const QEL_FerrionProperties *properties,
                                           CallEnvironment &environment) = 0;
    /// Lets the calling thread call plug-ins; false after logging why that failed.
    virtual bool attachThread() = 0;
    virtual void detachThread() = 0;
    /// Ends what start made. Every plug-in is gone, every thread is detached.
    virtual void stop() = 0;
    /// What else is known of the failure that the last call on this thread reported, a call of
    /// `adapter`. Asked once, right after that call. What nobody asks for is forgotten.
    virtual FailureDetails takeFailure(const std::string &adapter)
    {
        static_cast<void>(adapter);
        return {};
    }
    /// Asks plug-ins that can be asked to return by then from whatever they wait for. Not once
    /// plug-ins are being deleted. May hang in one of them. Any thread.
    virtual void stopBy(Clock::time_point) {}
    /// Whether any plug-in can be asked. Any thread.
    virtual bool anyStopBy() const
    {
        return false;
    }
    /// Asks writers that can be asked to give up, in time for that, what they are writing. Returns
    /// at once. Any thread.
    virtual void endWritesBy(Clock::time_point) {}
    /// The optional function `name` of a plug-in that was opened, see ferryjni/plugin.h; null when
    /// it has none.
    virtual void *find(const AdapterSettings &settings, const std::string &name)
    {
        static_cast<void>(settings);
        static_cast<void>(name);
        return nullptr;
    }
    /// What a reader or writer with these properties would declare of its deliveries:
    /// FERRY_DELIVERY_... bits, 0 if nothing is known. The properties are those of the stream
    /// behind those of its session. Control thread, once the adapter has been opened.
    virtual std::uint32_t delivery(const AdapterSettings &settings, std::uint32_t role,
                                   const Properties &properties)
    {
        static_cast<void>(settings);
        static_cast<void>(role);
        static_cast<void>(properties);
        return 0;
    }
    /// What the threads of the plug-ins' runtime are doing, for people. Any thread, any time.
    virtual std::string threadDump()
    {
        return "";
    }
};

} // namespace ferry

#endif
