// `ferry run`: relays until it is stopped.
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

#include <fmt/format.h>

#include "launcher/complain.h"
#include "launcher/start.h"
#include "launcher/verb.h"
#include "process/exit_code.h"

namespace ferry {
namespace {

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
        complain(fmt::format("ferry: debuggers cannot attach at {}: {}", debuggerAddress(port),
                             std::strerror(errno)));
    }
    close(socket);
    return free;
}

int portOf(const std::string &text)
{
    int value = 0;
    if (!CLI::detail::lexical_cast(text, value) || value < 1 || value > 65535) {
        throw CLI::ValidationError("--java-debug", "takes a port from 1 to 65535");
    }
    return value;
}

class Run : public Verb {
public:
    void declare(CLI::App &command) override
    {
        command.add_option("FILE", file_, "Configuration file (YAML)")->required();
        // Texts of their own, because the library takes the values of flags for whole numbers.
        CLI::Option *const untilIdle =
            command.add_flag("--until-idle{1}", idle_,
                             "End when every input has been empty for SECONDS (1 when not said): "
                             "--until-idle=SECONDS");
        command
            .add_flag("--after-first", options_.afterFirst,
                      "With --until-idle: not before a first sample has come")
            ->needs(untilIdle);
        command
            .add_option("--give-up", giveUp_,
                        "With --until-idle: end with code 1 when nothing but failing retries has "
                        "been left for SECONDS (60 when not said)")
            ->needs(untilIdle);
        addDrain(command, options_.drain);
        addJavaHome(command, javaHome_);
        command.add_flag("--java-debug{5005}", debug_,
                         "Let Java debuggers of this machine attach at PORT (5005 when not said): "
                         "--java-debug=PORT");
        command.add_flag("--java-check", options_.debugging.check,
                         "Have the Java VM check every JNI call");
        CLI::Option *const quiet =
            command.add_flag("-q,--quiet", quiet_, "Only errors and the final summary");
        command.add_flag("-v,--verbose", verbose_, "Log everything")->excludes(quiet);
    }

    void complete() override
    {
        if (!idle_.empty()) {
            options_.untilIdle = secondsOf("--until-idle", idle_, 0.001, 86400);
        }
        if (!giveUp_.empty()) {
            options_.giveUp = secondsOf("--give-up", giveUp_, 0, 86400);
        }
        options_.debugging.port = debug_.empty() ? 0 : portOf(debug_);
        options_.verbosity = quiet_     ? Verbosity::quiet
                             : verbose_ ? Verbosity::verbose
                                        : Verbosity::normal;
    }

    int run() override
    {
        ConfigurationFile file(file_);
        if (!file.complain()) {
            return exitUsage;
        }
        const Configuration &configuration = *file.configuration();
        if (!configuration.needsJava()) {
            if (options_.debugging.port != 0 || options_.debugging.check) {
                complain("ferry: no adapter is a Java class, so there is no VM to debug");
            }
            return startRelay(configuration, options_, nullptr);
        }
        const std::optional<VmCandidate> vm = chooseVm(javaHome_, configuration);
        if (!vm || !portIsFree(options_.debugging.port)) {
            return exitNoStart;
        }
        return startRelay(configuration, options_, &*vm, [&] {
            Diagnostics diagnostics(file_);
            const Installation installation = findInstallation();
            checkJavaSettings(vm->home, installation, configuration, diagnostics);
            return diagnostics.lines();
        });
    }

private:
    std::string file_;
    std::filesystem::path javaHome_;
    std::string idle_;
    std::string giveUp_;
    std::string debug_;
    bool quiet_ = false;
    bool verbose_ = false;
    RunOptions options_;
};

const RegisteredVerb<Run> registered("run", "Run the routes of a configuration file");

} // namespace
} // namespace ferry
