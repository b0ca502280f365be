#include "launcher/retry_plan.h"

#include <fmt/format.h>

#include "state/type_text.h"

namespace ferry {
namespace {

using Letters = std::vector<const KeptLetter *>;

/// An output as the configuration has it, with its route.
struct Target {
    const RouteSettings *route = nullptr;
    const StreamSettings *output = nullptr;
};

/// An output with a store has a route of its own between the two, and that one wrote to it.
Target findTarget(const Configuration &configuration, const KeptLetter &letter)
{
    for (const RouteSettings &route : configuration.routes) {
        for (const StreamSettings &output : route.outputs) {
            const std::string label =
                output.buffer
                    ? ""
                    : configuration.connections[output.connection].name + "/" + output.stream;
            if (route.name == letter.route && label == letter.end) {
                return {&route, &output};
            }
        }
    }
    return {};
}

/// Why a letter cannot go to the target; "" if it can.
std::string obstacle(const KeptLetter &letter, const Target &target)
{
    if (letter.type.empty()) {
        return "a source could not decode it, so there is no sample to write";
    }
    if (target.output == nullptr) {
        return fmt::format("the file has no route \"{}\" with an output \"{}\"", letter.route,
                           letter.end);
    }
    const std::string difference =
        typeText(target.route->type) == letter.idl
            ? ""
            : typeDifference(target.route->type, letter.type, letter.idl);
    return difference.empty()
               ? ""
               : fmt::format("the route's type is another one today: {}", difference);
}

/// A route that reads nothing but the letters and writes to that output alone.
void addRoute(Configuration &configuration, const Target &target, const std::filesystem::path &file,
              const Letters &letters)
{
    OutputBuffer buffer;
    buffer.settings.path = file;
    for (const KeptLetter *letter : letters) {
        buffer.settings.letters.insert(letter->id);
    }
    buffer.route = target.route->name;
    buffer.output = letters.front()->end;
    buffer.type = target.route->type;
    // One at a time: what became of it is noted before the next one is tried.
    buffer.maxSamples = 1;
    buffer.batchBytes = target.output->batchBytes;
    RouteSettings route = *target.route;
    route.name = route.input.buffer
                     ? fmt::format("dead letters of {}", route.name)
                     : fmt::format("dead letters of {} to {}", route.name, buffer.output);
    route.input = StreamSettings();
    route.input.connection = noConnection;
    route.input.buffer = configuration.buffers.size();
    route.outputs = {*target.output};
    route.outputs.front().retry.oneAttempt = true;
    route.onError = OnError::retry;
    route.deadLetters = true;
    configuration.buffers.push_back(std::move(buffer));
    configuration.routes.push_back(std::move(route));
}

} // namespace

RetryPlan planRetry(const Configuration &configuration, const std::filesystem::path &file,
                    const std::vector<KeptLetter> &letters)
{
    RetryPlan plan{configuration, {}};
    plan.configuration.routes.clear();
    plan.configuration.discovery.clear();
    plan.configuration.buffers.clear();
    // Those are the relay's.
    plan.configuration.control = {};
    plan.configuration.http = {};
    std::map<const StreamSettings *, std::pair<Target, Letters>> targets;
    for (const KeptLetter &letter : letters) {
        const Target target = findTarget(configuration, letter);
        const std::string reason = obstacle(letter, target);
        if (!reason.empty()) {
            plan.impossible[letter.id] = reason;
            continue;
        }
        auto &[which, chosen] = targets[target.output];
        which = target;
        chosen.push_back(&letter);
    }
    for (const auto &[output, target] : targets) {
        addRoute(plan.configuration, target.first, file, target.second);
    }
    return plan;
}

} // namespace ferry
