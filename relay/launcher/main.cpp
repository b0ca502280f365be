// ferry: reads the command line and the configuration, finds a Java VM, and hands over to the
// relay. Everything up to that point works without any Java on the machine.
#include <cmath>
#include <cstdio>

#include "config/load.h"
#include "engine/exit_code.h"
#include "engine/signals.h"
#include "launcher/command_line.h"
#include "launcher/doctor.h"
#include "launcher/installation.h"
#include "qddscore/log.h"

// The catalogue's own objects are in a library that needs a Java VM, so the launcher has its copy
// of the texts, out of the same file.
#define FERRY_LOG_MESSAGE(name, code, format)                                                      \
    [[maybe_unused]] static const QELLogMessage name = {code, format};
#include "Log_normal.msg"
#undef FERRY_LOG_MESSAGE

namespace {

using namespace ferry;

std::chrono::milliseconds milliseconds(double seconds)
{
    return std::chrono::milliseconds(std::llround(seconds * 1000));
}

std::optional<Configuration> readConfiguration(const std::string &file)
{
    Diagnostics diagnostics(file);
    std::optional<Configuration> configuration = loadConfiguration(file, diagnostics);
    if (!configuration) {
        for (const std::string &line : diagnostics.lines()) {
            std::fprintf(stderr, "%s\n", line.c_str());
        }
        QELLog_printContextAndMsg("ferry", &FERRY_LOG_CFG_FILE_PARSER_PARSING_FAILURE_s,
                                  file.c_str());
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
        std::fprintf(stderr, "ferry: cannot work in %s: %s\n", directory.c_str(),
                     error.message().c_str());
    }
    return !error;
}

int runRelay(const CommandLine &line, VmPlaces places)
{
    const std::optional<Configuration> configuration = readConfiguration(line.file);
    if (!configuration) {
        return exitUsage;
    }
    places.configuration = configuration->java.home;
    VmSearch search;
    findVm(places, search);
    if (search.chosen == nullptr) {
        std::fprintf(stderr, "ferry: %s\n", noVmText(search).c_str());
        return exitNoStart;
    }
    const Installation installation = findInstallation();
    std::string reason;
    const RelayMain relay = loadRelay(search.chosen->library, installation, reason);
    if (relay == nullptr) {
        std::fprintf(stderr, "ferry: %s\n  \"ferry doctor\" tells more.\n", reason.c_str());
        return exitNoStart;
    }
    if (!enter(configuration->directory)) {
        return exitNoStart;
    }
    RelayRequest request;
    request.configuration = &*configuration;
    request.checkOnly = line.verb == Verb::check;
    request.untilIdle = line.untilIdle > 0 ? milliseconds(line.untilIdle) : request.untilIdle;
    request.drain = milliseconds(line.drain);
    request.verbosity = line.verbosity;
    request.jars = installation.jars;
    request.vmVersion = search.chosen->version;
    return relay(&request);
}

} // namespace

int main(int argc, char **argv)
{
    blockStopSignals();
    int code = exitOk;
    try {
        const std::optional<CommandLine> line = readCommandLine(argc, argv, code);
        if (!line) {
            return code;
        }
        VmPlaces places = vmPlaces();
        if (!line->javaHome.empty()) {
            places.commandLine = std::filesystem::absolute(line->javaHome);
        }
        code = line->verb == Verb::doctor ? runDoctor(places) : runRelay(*line, places);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "ferry: %s\n", error.what());
        code = exitNoStart;
    }
    std::fflush(stdout);
    return code;
}
