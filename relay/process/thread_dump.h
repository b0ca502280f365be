// What every thread is doing, into the log, when somebody asks for it by SIGQUIT.
#ifndef FERRY_PROCESS_THREAD_DUMP_H
#define FERRY_PROCESS_THREAD_DUMP_H

#include <atomic>

#include "engine/relay.h"
#include "process/console.h"

namespace ferry {

/// Dumps on a thread of its own: a VM that does not answer holds up neither stop nor log.
class ThreadDump {
public:
    ThreadDump(Relay &relay, PluginHost &host, Console &console);
    /// Waits for a dump under way.
    ~ThreadDump();
    ThreadDump(const ThreadDump &) = delete;
    ThreadDump &operator=(const ThreadDump &) = delete;

    /// One thread. While a dump is under way there is no other.
    void request();

private:
    Relay &relay_;
    PluginHost &host_;
    Console &console_;
    std::atomic<bool> busy_{false};
    Thread thread_;
};

} // namespace ferry

#endif
