#include "launcher/stream_source.h"

#include <algorithm>
#include <set>
#include <stdexcept>

#include <fmt/format.h>

#include "config/expand.h"
#include "launcher/start.h"
#include "process/exit_code.h"
#include "settings/suggestion.h"

namespace ferry {
namespace {

/// A file that names a secret is read, as it is in a configuration.
Properties expanded(const StreamSource &source, const std::string &directory)
{
    Properties all = source.properties;
    all.insert(all.end(), source.forLooking.begin(), source.forLooking.end());
    for (auto &[name, value] : all) {
        const std::string missing = expand(value, directory);
        if (!missing.empty()) {
            throw std::runtime_error(fmt::format("property \"{}\" {}", name, missing));
        }
    }
    return all;
}

/// One connection and nothing else.
Configuration configurationOf(const StreamSource &source)
{
    Configuration configuration;
    configuration.name = "ferry";
    configuration.directory = std::filesystem::current_path();
    const Installation installation = findInstallation();
    AdapterSettings adapter;
    adapter.name = source.adapter;
    if (source.isJava) {
        adapter.javaClass = source.adapter;
    } else {
        adapter.library = installation.plugin(source.adapter);
        adapter.entry = pluginEntry(source.adapter);
    }
    configuration.adapters.push_back(adapter);
    Diagnostics none("");
    installation.complete(configuration, none);
    ConnectionSettings connection;
    connection.name = source.adapter;
    connection.properties = expanded(source, configuration.directory.string());
    configuration.connections.push_back(connection);
    return configuration;
}

/// Streams that can be read come first: the new configuration reads.
AnnouncedStream choose(const StreamSource &source, const std::vector<AnnouncedStream> &streams)
{
    const AnnouncedStream *chosen = nullptr;
    std::set<std::string> names;
    for (const AnnouncedStream &stream : streams) {
        names.insert(stream.name);
        const auto rank = [](const AnnouncedStream &each) {
            return (isKnown(each.type) ? 2 : 0) + (each.input ? 1 : 0);
        };
        if (stream.name == source.stream && (chosen == nullptr || rank(stream) > rank(*chosen))) {
            chosen = &stream;
        }
    }
    const std::vector<std::string> known(names.begin(), names.end());
    if (chosen == nullptr) {
        throw std::runtime_error(
            fmt::format("there is no {} \"{}\"{}", source.noun, source.stream,
                        known.empty() ? "; none was found" : suggestion(source.stream, known)));
    }
    if (!isKnown(chosen->type)) {
        throw std::runtime_error(
            fmt::format("{} \"{}\" is announced without its type{}", source.noun, source.stream,
                        chosen->typeName.empty() ? "" : fmt::format(", \"{}\"", chosen->typeName)));
    }
    return *chosen;
}

} // namespace

int findStream(const StreamSource &source, std::chrono::milliseconds wait,
               const std::filesystem::path &javaHome, AnnouncedStream &found)
{
    const Configuration configuration = configurationOf(source);
    std::vector<AnnouncedStream> streams;
    RunOptions options;
    options.task = Task::list;
    options.verbosity = Verbosity::quiet;
    options.wait = wait;
    options.streams = [&](const std::vector<AnnouncedStream> &all) { streams = all; };
    std::optional<VmCandidate> vm;
    if (source.isJava && !(vm = chooseVm(javaHome, configuration))) {
        return exitNoStart;
    }
    const int code = startRelay(configuration, options, vm ? &*vm : nullptr);
    if (code == exitOk) {
        found = choose(source, streams);
    }
    return code;
}

} // namespace ferry
