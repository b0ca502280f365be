#include "process/entry.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <unistd.h>

#include "config/printable.h"
#include "control/control.h"
#include "engine/log.h"
#include "process/exit_code.h"
#include "process/java_options.h"
#include "process/java_output.h"
#include "process/plugin_loader.h"
#include "process/signals.h"
#include "process/supervisor.h"
#include "process/thread_dump.h"
#include "state/state_directory.h"

namespace ferry {
namespace {

/// Prints what `check` finds on standard output; `run` only keeps it in a verbose log. At the first
/// failure it logs all that `check` would print.
class ConsoleReporter : public Reporter {
public:
    ConsoleReporter(Console &console, const RelayRequest &request)
        : console_(console), request_(request), print_(request.options.task == Task::check)
    {
    }

    void good(const std::string &what, const std::string &details) override
    {
        const std::string text = details.empty() ? "fine" : details;
        if (print_) {
            console_.print(fmt::format("ok    {}: {}", what, text));
        } else {
            logAbout(FERRYLOG_BIT_DEBUG, "FERRYRelay_build", what, "{}", text);
        }
    }
    void bad(const std::string &what, const std::string &reason, Place place) override
    {
        if (print_) {
            console_.print(fmt::format("FAIL  {}{}: {}", request_.configuration->prefix(place),
                                       what, withoutSecrets(reason)));
        } else if (request_.explain && !explained_) {
            explained_ = true;
            for (const std::string &line : request_.explain()) {
                anyMistake_.store(true);
                logAbout(FERRYLOG_BIT_ERROR, "FERRYRelay_build", "settings", "{}", line);
            }
        }
    }

    bool anyMistake() const override
    {
        return anyMistake_.load();
    }

private:
    Console &console_;
    const RelayRequest &request_;
    const bool print_;
    bool explained_ = false;
    std::atomic<bool> anyMistake_{false};
};

/// The configuration as the task has it: a property says that adapters are only tried.
Configuration configurationFor(const RelayRequest &request)
{
    Configuration configuration = *request.configuration;
    if (request.options.task != Task::run) {
        configuration.restart.reset();
    }
    if (request.options.task != Task::check) {
        return configuration;
    }
    configuration.onlyTried = true;
    const auto mark = [](auto &object) {
        object.properties.emplace_back("qel.ferrion.check", "true");
    };
    const auto markRoute = [&](RouteSettings &route) {
        mark(route.input);
        std::for_each(route.outputs.begin(), route.outputs.end(), mark);
    };
    std::for_each(configuration.connections.begin(), configuration.connections.end(), mark);
    std::for_each(configuration.sessions.begin(), configuration.sessions.end(), mark);
    std::for_each(configuration.routes.begin(), configuration.routes.end(), markRoute);
    for (DiscoverySettings &rule : configuration.discovery) {
        markRoute(rule.route);
    }
    return configuration;
}

/// Whether `run` could write its log; true also without a log file.
bool checkLogFile(const LogSettings &log, Reporter &reporter)
{
    const std::string reason = log.file.empty() ? "" : LogFile::probe(log.file);
    if (!reason.empty()) {
        reporter.bad(fmt::format("log file {}", log.file.string()), reason, log.place);
    }
    return reason.empty();
}

/// Whether `run` could keep what has to outlive it: dead letters, and stores without a path.
bool checkState(const Configuration &configuration, Reporter &reporter)
{
    const bool used = std::any_of(configuration.routes.begin(), configuration.routes.end(),
                                  [](const RouteSettings &route) { return route.deadLetters; }) ||
                      std::any_of(configuration.buffers.begin(), configuration.buffers.end(),
                                  [](const OutputBuffer &buffer) {
                                      return buffer.settings.stored && buffer.settings.path.empty();
                                  });
    const StateResult result = used ? StateDirectory(configuration.state).probe() : StateResult();
    if (!result.ok()) {
        reporter.bad("dead letters and stores", result.text, configuration.statePlace);
    }
    return result.ok();
}

/// What no adapter tries.
bool checkFiles(const Configuration &configuration, Reporter &reporter)
{
    const bool log = checkLogFile(configuration.log, reporter);
    return checkState(configuration, reporter) && log;
}

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
    const std::vector<std::string> calls = supervisor->relay().callsUnderWay();
    logAbout(FERRYLOG_BIT_ERROR, "FERRYRelay_main", "relay",
             "the process was ended from within the Java VM: an adapter called System.exit or "
             "Runtime.halt, or the VM rejected its options; {}",
             calls.empty() ? "no call of an adapter was under way"
                           : fmt::format("under way were [{}]", fmt::join(calls, "], [")));
    supervisor->endProcess(exitErrors);
}

LogLevel levelOf(const RelayRequest &request)
{
    switch (request.options.verbosity) {
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

/// What Java has to say goes to the console while this lives.
class JavaConsole {
public:
    explicit JavaConsole(Console &console)
    {
        javaoutput::setConsole(&console);
    }
    ~JavaConsole()
    {
        javaoutput::setConsole(nullptr);
    }
    JavaConsole(const JavaConsole &) = delete;
    JavaConsole &operator=(const JavaConsole &) = delete;
};

/// A relay does without the socket where nobody said where that is to be: what it moves counts
/// more.
bool startControl(const Configuration &configuration, Control &control)
{
    const std::string httpProblem = control.startHttp();
    if (!httpProblem.empty()) {
        logAbout(FERRYLOG_BIT_ERROR, "FERRYRelay_main", "http", "{}{}",
                 configuration.prefix(configuration.http.place), httpProblem);
        return false;
    }
    const std::string problem = control.start();
    if (problem.empty()) {
        if (configuration.control.on) {
            logAbout(FERRYLOG_BIT_DEBUG, "FERRYRelay_main", "control socket", "{}",
                     control.path().string());
        }
        return true;
    }
    const bool asked = !configuration.control.path.empty();
    logAbout(asked ? FERRYLOG_BIT_ERROR : FERRYLOG_BIT_WARNING, "FERRYRelay_main", "control socket",
             "{}{}", configuration.prefix(configuration.control.place), problem);
    return !asked;
}

int runRelay(const RelayRequest &request)
{
    const Configuration configuration = configurationFor(request);
    const LogLevel level = levelOf(request);
    Console console;
    LogSettings log = configuration.log;
    if (request.options.task != Task::run) {
        log.file.clear();
    }
    const std::string reason = console.start(log, level);
    if (!reason.empty()) {
        std::fprintf(stderr, "ferry: cannot write the log file %s: %s\n", log.file.c_str(),
                     reason.c_str());
        return exitNoStart;
    }
    const JavaConsole javaConsole(console);
    JavaStart java;
    java.bridge = request.bridge;
    java.options =
        javaOptions(classPathEntries(request.jars, configuration.java), configuration.java, level,
                    request.vmVersion, crashDirectory(configuration), request.options.debugging,
                    request.classArchive);
    // Where adapters keep positions.
    java.options.push_back(fmt::format("-Dferryjni.state={}", configuration.state.string()));
    if (request.options.debugging.port != 0) {
        java.debuggers = debuggerAddress(request.options.debugging.port);
    }
    java.logMask = maskOf(level);
    PluginLoader host(configuration, std::move(java));
    ConsoleReporter reporter(console, request);
    const bool filesGood =
        request.options.task != Task::check || checkFiles(configuration, reporter);
    Supervisor supervisor(configuration, host, reporter, console, request.options);
    ThreadDump dump(supervisor.relay(), host, console);
    SignalWatcher signals([&] { supervisor.requestStop(); }, [&] { dump.request(); },
                          request.options.drain + stopGrace, exitHung);
    if (!signals.start()) {
        logError("FERRYRelay_main", FERRY_LOG_SERVICE_START_FAILURE_s, configuration.name.c_str());
        return exitNoStart;
    }
    Control control(configuration, supervisor.relay());
    if (request.options.task == Task::run && !startControl(configuration, control)) {
        return exitNoStart;
    }
    supervisor.beforeEnd([&control] { control.removeSocket(); });
    g_running.store(&supervisor);
    const int code = supervisor.run();
    g_running.store(nullptr);
    if (console.lostResults()) {
        logAbout(FERRYLOG_BIT_ERROR, "FERRYRelay_main", "relay",
                 "results could not be written to standard output");
    }
    return code == exitOk && (console.lostResults() || !filesGood) ? exitErrors : code;
}

} // namespace
} // namespace ferry

int ferry_relay_main(const ferry::RelayRequest *request)
{
    std::atexit(ferry::onExit);
    return ferry::runRelay(*request);
}
