#include "launcher/running_relay.h"

#include <iostream>
#include <optional>

#include <fmt/format.h>

#include "control/client.h"
#include "control/socket_directory.h"
#include "launcher/complain.h"
#include "process/exit_code.h"

namespace ferry {
namespace {

std::string listOf(const std::vector<RunningRelay> &relays)
{
    std::string text;
    for (const RunningRelay &relay : relays) {
        text +=
            fmt::format("\n  {}, process {}: {}", relay.name, relay.process, relay.path.string());
    }
    return text;
}

/// The socket of the only relay that fits; nothing after saying why there is none.
std::optional<std::filesystem::path> findSocket(const std::string &control)
{
    if (control.find('/') != std::string::npos) {
        return std::filesystem::path(control);
    }
    const std::vector<std::filesystem::path> directories = socketDirectories();
    const std::vector<RunningRelay> relays = runningRelays(directories, control);
    if (relays.size() == 1) {
        return relays[0].path;
    }
    if (!relays.empty()) {
        complain(
            fmt::format("ferry: several relays run; say which with --control:{}", listOf(relays)));
        return std::nullopt;
    }
    std::string looked;
    for (const std::filesystem::path &directory : directories) {
        looked += fmt::format("{}{}", looked.empty() ? "" : ", ", directory.string());
    }
    complain(fmt::format("ferry: no relay {}runs that this user may ask; looked in {}{}",
                         control.empty() ? "" : fmt::format("{} ", control), looked,
                         control.empty() ? "" : listOf(runningRelays(directories))));
    return std::nullopt;
}

} // namespace

void RunningRelayVerb::declareCommon(CLI::App &command, bool aboutRoute)
{
    if (aboutRoute) {
        command.add_option("ROUTE", route_, "The route's name")->required();
    }
    command.add_option("--control", control_,
                       "The relay's name or the path of its socket; needed if several run");
    command.add_flag("--json", json_, "The answer as it came, as JSON");
}

int RunningRelayVerb::codeOf(const nlohmann::ordered_json &) const
{
    return exitOk;
}

int RunningRelayVerb::run()
{
    const std::optional<std::filesystem::path> socket = findSocket(control_);
    if (!socket) {
        return exitNoStart;
    }
    const Reply reply = ask(*socket, request());
    if (!reply.problem.empty()) {
        complainLine("ferry: " + reply.problem);
        return exitNoStart;
    }
    const auto answer = nlohmann::ordered_json::parse(reply.line, nullptr, false);
    if (!answer.is_object() || !answer.contains("ok")) {
        complainLine(fmt::format("ferry: {} answers what is no answer: {}", socket->string(),
                                 reply.line.substr(0, 200)));
        return exitNoStart;
    }
    const bool good = answer["ok"] == true;
    if (json_) {
        std::cout << answer.dump(2) << "\n";
        return good ? codeOf(answer) : exitErrors;
    }
    if (!good) {
        complainLine("ferry: " + answer.value("error", nlohmann::ordered_json::object())
                                     .value("text", "the relay rejects this"));
        return exitErrors;
    }
    return show(answer);
}

} // namespace ferry
