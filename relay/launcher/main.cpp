// ferry: reads the command line and the configuration, finds a Java VM where an adapter needs one,
// and hands over to the relay.
#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <sys/socket.h>
#include <unistd.h>

#include "config/load.h"
#include "ferryjni/log.h"
#include "launcher/class_archive.h"
#include "launcher/command_line.h"
#include "launcher/complain.h"
#include "launcher/doctor.h"
#include "launcher/installation.h"
#include "launcher/settings_check.h"
#include "process/exit_code.h"
#include "process/signals.h"

namespace {

using namespace ferry;

std::chrono::milliseconds milliseconds(double seconds)
{
    return std::chrono::milliseconds(std::llround(seconds * 1000));
}

std::optional<Configuration> readConfiguration(const std::string &file, Needs needs)
{
    Diagnostics diagnostics(file);
    std::optional<Configuration> configuration = loadConfiguration(file, diagnostics, needs);
    if (!configuration) {
        for (const std::string &line : diagnostics.lines()) {
            complainLine(line);
        }
        QELLog_printContextAndMsg("ferry", &FERRY_LOG_CFG_FILE_PARSER_PARSING_FAILURE_s,
                                  file.c_str());
    }
    return configuration;
}

/// One connection on a DDS domain, for `list streams` without a file.
Configuration domainConfiguration(const CommandLine &line)
{
    Configuration configuration;
    configuration.name = "ferry";
    configuration.directory = std::filesystem::current_path();
    AdapterSettings adapter;
    adapter.name = "dds";
    adapter.library = std::string(pluginPrefix) + adapter.name + pluginSuffix;
    adapter.entry = pluginEntry(adapter.name);
    configuration.adapters.push_back(adapter);
    ConnectionSettings connection;
    connection.name = "dds";
    connection.properties = line.properties;
    connection.properties.emplace_back("domain", std::to_string(line.domain));
    configuration.connections.push_back(connection);
    return configuration;
}

/// What the verb works on; a list has no use for routes.
std::optional<Configuration> configurationOf(const CommandLine &line)
{
    if (line.file.empty()) {
        return line.verb == Verb::list ? domainConfiguration(line) : Configuration();
    }
    if (line.verb != Verb::list) {
        return readConfiguration(line.file, Needs::routes);
    }
    std::optional<Configuration> configuration = readConfiguration(line.file, Needs::connections);
    if (configuration) {
        configuration->routes.clear();
        configuration->discovery.clear();
    }
    return configuration;
}

/// Paths of the file, and those in the properties of adapters, start from the file's directory: so
/// that is where the process works.
bool enter(const std::filesystem::path &directory)
{
    std::error_code error;
    std::filesystem::current_path(directory, error);
    if (error) {
        complain("ferry: cannot work in " + directory.string() + ": " + error.message());
    }
    return !error;
}

/// Loads the VM's library for Java adapters; nothing after saying why not.
std::optional<VmCandidate> prepareJava(VmPlaces places, const Configuration &configuration)
{
    places.configuration = configuration.java.home;
    VmSearch search;
    findVm(places, search);
    if (search.chosen == nullptr) {
        complain("ferry: " + noVmText(search));
        return std::nullopt;
    }
    const std::string reason = loadVm(search.chosen->library);
    if (!reason.empty()) {
        complain("ferry: " + reason + "\n  \"ferry doctor\" tells more.");
        return std::nullopt;
    }
    return *search.chosen;
}

/// What the Java adapters' declarations have against the configuration.
std::vector<std::string> settingsProblems(const SettingsCheck &check, const std::string &file)
{
    Diagnostics diagnostics(file);
    if (!check.run(diagnostics)) {
        complain("ferry: the adapters could not be asked for their settings");
    }
    return diagnostics.lines();
}

int printSettings(const SettingsCheck &check, const std::string &javaClass)
{
    const std::optional<std::string> text = check.describe(javaClass);
    if (!text) {
        complain("ferry: the adapters could not be asked");
        return exitNoStart;
    }
    std::fputs(text->c_str(), stdout);
    return exitOk;
}

/// The VM would end the process over a port that is taken. True also for 0, which is none.
bool portIsFree(int port)
{
    if (port == 0) {
        return true;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const bool free = bind(socket, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 &&
                      listen(socket, 1) == 0;
    if (!free) {
        complain("ferry: debuggers cannot attach at " + debuggerAddress(port) + ": " +
                 std::strerror(errno));
    }
    close(socket);
    return free;
}

/// The part of a start that only Java adapters need. `settings` is made for them. Nothing when the
/// relay may start, else the exit code.
std::optional<int> prepareForJava(const CommandLine &line, const VmPlaces &places,
                                  const Installation &installation,
                                  const Configuration &configuration, RelayRequest &request,
                                  std::optional<SettingsCheck> &settings)
{
    const std::optional<VmCandidate> vm = prepareJava(places, configuration);
    if (!vm) {
        return exitNoStart;
    }
    // An installation that does not say is taken for the oldest.
    request.vmVersion = std::max(vm->version, oldestVm);
    request.classArchive = classArchive(installation, *vm);
    settings.emplace(vm->home, installation, configuration);
    if (line.settings) {
        return printSettings(*settings, line.settingsClass);
    }
    if (line.verb == Verb::check) {
        const std::vector<std::string> problems = settingsProblems(*settings, line.file);
        std::for_each(problems.begin(), problems.end(), complainLine);
        return problems.empty() ? std::nullopt : std::make_optional<int>(exitUsage);
    }
    request.explain = [&settings, &line] { return settingsProblems(*settings, line.file); };
    return portIsFree(line.debugging.port) ? std::nullopt : std::make_optional<int>(exitNoStart);
}

int runRelay(const CommandLine &line, const VmPlaces &places)
{
    std::optional<Configuration> configuration = configurationOf(line);
    if (!configuration) {
        return exitUsage;
    }
    RelayRequest request;
    const Installation installation = findInstallation();
    installation.complete(*configuration);
    std::optional<SettingsCheck> settings;
    if (configuration->needsJava() || line.settings) {
        const std::optional<int> end =
            prepareForJava(line, places, installation, *configuration, request, settings);
        if (end) {
            return *end;
        }
    } else if (line.debugging.port != 0 || line.debugging.check) {
        complain("ferry: no adapter is a Java class, so there is no VM to debug");
    }
    std::string reason;
    const RelayMain relay = loadRelay(installation, reason);
    if (relay == nullptr) {
        complain("ferry: " + reason + "\n  \"ferry doctor\" tells more.");
        return exitNoStart;
    }
    if (!enter(configuration->directory)) {
        return exitNoStart;
    }
    request.configuration = &*configuration;
    request.task = line.verb == Verb::check  ? Task::check
                   : line.verb == Verb::list ? Task::list
                                             : Task::run;
    request.wait = milliseconds(line.wait);
    request.idl = line.idl;
    request.idlType = line.idlType;
    request.untilIdle = line.untilIdle > 0 ? milliseconds(line.untilIdle) : request.untilIdle;
    request.afterFirst = line.afterFirst;
    request.debugging = line.debugging;
    request.drain = milliseconds(line.drain);
    request.verbosity = line.verbosity;
    request.jars = installation.jars;
    request.bridge = installation.bridge();
    return relay(&request);
}

/// The exit code, which is none of success when results could not be written.
int withResultsWritten(int code)
{
    std::cout.flush();
    const bool written = std::cout.good() && std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
    if (!written) {
        complain("ferry: results could not be written to standard output");
    }
    return code == exitOk && !written ? exitErrors : code;
}

} // namespace

int main(int argc, char **argv)
{
    ignoreStraySignals();
    int code = exitOk;
    try {
        const std::optional<CommandLine> line = readCommandLine(argc, argv, code);
        if (!line) {
            return withResultsWritten(code);
        }
        VmPlaces places = vmPlaces();
        if (!line->javaHome.empty()) {
            places.commandLine = std::filesystem::absolute(line->javaHome);
        }
        code = line->verb == Verb::doctor    ? runDoctor(places)
               : line->verb == Verb::create  ? makeAdapter(line->adapter, findInstallation())
               : line->verb == Verb::archive ? makeClassArchive(findInstallation(), places)
                                             : runRelay(*line, places);
    } catch (const std::exception &error) {
        complain(std::string("ferry: ") + error.what());
        code = exitNoStart;
    }
    return withResultsWritten(code);
}
