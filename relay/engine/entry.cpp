#include "engine/entry.h"

#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <unistd.h>

#include "engine/exit_code.h"
#include "engine/java_options.h"
#include "engine/log.h"
#include "engine/plugin_host.h"
#include "engine/signals.h"
#include "engine/supervisor.h"
#include "engine/thread_dump.h"

namespace ferry {
namespace {

/// Says what `check` finds on standard output; `run` only keeps it in a verbose log.
class ConsoleReporter : public Reporter {
public:
    ConsoleReporter(Console &console, bool print) : console_(console), print_(print) {}

    void good(const std::string &what, const std::string &details) override
    {
        const std::string text = details.empty() ? "fine" : details;
        if (print_) {
            console_.print("ok    " + what + ": " + text);
        } else {
            logMessage(FERRYLOG_BIT_DEBUG, "FERRYRelay_build", FERRY_LOG_ENTITY_ANY_ss,
                       what.c_str(), text.c_str());
        }
    }
    void bad(const std::string &what, const std::string &reason) override
    {
        if (print_) {
            console_.print("FAIL  " + what + ": " + reason);
        }
    }

private:
    Console &console_;
    const bool print_;
};

/// Set while nobody but the relay itself may end the process.
std::atomic<Supervisor *> g_running{nullptr};

/// A VM that rejects its memory options, or an adapter that calls System.exit, ends the process
/// from within: that must neither look like success nor pass in silence. The VM ends the process on
/// a thread of its own, so all that can be said of the culprit is which calls were under way.
void onExit()
{
    Supervisor *const supervisor = g_running.exchange(nullptr);
    if (supervisor == nullptr) {
        return;
    }
    std::string text = "the process was ended from within the Java VM: an adapter called "
                       "System.exit or Runtime.halt, or the VM refused its options; ";
    const std::vector<std::string> calls = supervisor->relay().callsUnderWay();
    text += calls.empty() ? "no call of an adapter was under way" : "under way were";
    for (const std::string &call : calls) {
        text += (&call == &calls.front() ? " " : ", ") + ("[" + call + "]");
    }
    logError("FERRYRelay_main", FERRY_LOG_ENTITY_ANY_ss, "relay", text.c_str());
    supervisor->endProcess(exitErrors);
}

LogLevel levelOf(const RelayRequest &request)
{
    switch (request.verbosity) {
    case Verbosity::quiet:
        return LogLevel::error;
    case Verbosity::verbose:
        return LogLevel::debug;
    case Verbosity::normal:
        break;
    }
    return request.configuration->log.level;
}

std::filesystem::path crashDirectory(const Configuration &configuration)
{
    if (!configuration.log.file.empty()) {
        return configuration.log.file.parent_path();
    }
    std::error_code error;
    const std::filesystem::path directory = std::filesystem::temp_directory_path(error);
    return error ? std::filesystem::path("/tmp") : directory;
}

int runRelay(const RelayRequest &request)
{
    const Configuration &configuration = *request.configuration;
    const LogLevel level = levelOf(request);
    Console console;
    LogSettings log = configuration.log;
    if (request.task != Task::run) {
        log.file.clear();
    }
    if (!console.start(log, level)) {
        std::fprintf(stderr, "ferry: cannot write the log file %s\n", log.file.c_str());
        return exitNoStart;
    }
    JavaStart java;
    java.bridge = request.bridge;
    java.classPath = classPathEntries(request.jars, configuration.java);
    java.options =
        javaOptions(java.classPath, configuration.java, request.vmVersion,
                    crashDirectory(configuration), request.debugging, request.classArchive);
    if (request.debugging.port != 0) {
        java.debuggers = debuggerAddress(request.debugging.port);
    }
    java.logMask = maskOf(level);
    FerryPluginHost host(configuration, std::move(java));
    ConsoleReporter reporter(console, request.task == Task::check);
    SupervisorOptions options;
    options.task = request.task;
    options.wait = request.wait;
    if (request.idl) {
        options.idl = request.idlType;
    }
    if (request.untilIdle.count() >= 0) {
        options.untilIdle = request.untilIdle;
        options.afterFirst = request.afterFirst;
    }
    options.drain = request.drain;
    options.quiet = request.verbosity == Verbosity::quiet;
    Supervisor supervisor(configuration, host, reporter, console, options);
    ThreadDump dump(supervisor.relay(), host, console);
    SignalWatcher signals([&] { supervisor.requestStop(); }, [&] { dump.request(); },
                          request.drain + stopGrace, exitHung);
    if (!signals.start()) {
        logError("FERRYRelay_main", FERRY_LOG_SERVICE_START_FAILURE_s, configuration.name.c_str());
        return exitNoStart;
    }
    g_running.store(&supervisor);
    const int code = supervisor.run();
    g_running.store(nullptr);
    return code;
}

} // namespace
} // namespace ferry

int ferry_relay_main(const ferry::RelayRequest *request)
{
    std::atexit(ferry::onExit);
    return ferry::runRelay(*request);
}
