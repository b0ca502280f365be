#include "config/loader.h"

#include <algorithm>
#include <cctype>
#include <set>

#include <fmt/format.h>

#include "config/keys.h"
#include "settings/suggestion.h"
#include "settings/value.h"

namespace ferry {
namespace fs = std::filesystem;
namespace {

std::chrono::milliseconds toMilliseconds(std::int64_t nanoseconds)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::nanoseconds(nanoseconds));
}

} // namespace

Loader::Loader(Diagnostics &diagnostics, const std::string &text, const fs::path &file)
    : diagnostics_(diagnostics), text_(text), types_(DDS_TypeLibrary_new())
{
    configuration_.directory = file.parent_path();
    configuration_.name = file.stem().string();
}

fs::path Loader::absolute(const std::string &path) const
{
    return (configuration_.directory / path).lexically_normal();
}

Configuration Loader::load(const YAML::Node &root)
{
    const Section top(diagnostics_, root, "", keys::ofFile);
    readTypes(top.find("types"));
    readLog(top.find("log"));
    readJava(top.find("java"));
    for (const NamedNode &entry : readEntries(diagnostics_, top.find("adapters"), "adapters")) {
        readAdapter(entry);
    }
    for (const NamedNode &entry :
         readEntries(diagnostics_, top.find("connections"), "connections")) {
        readConnection(entry);
    }
    readSessions(top.find("sessions"));
    for (const NamedNode &entry : readEntries(diagnostics_, top.find("routes"), "routes")) {
        readRoute(entry);
    }
    for (const NamedNode &entry : readEntries(diagnostics_, top.find("discovery"), "discovery")) {
        readDiscovery(entry);
    }
    collectTypes();
    collectSessionSources();
    return configuration_;
}

void Loader::readAdapter(const NamedNode &entry)
{
    const std::string path = "adapters." + entry.name;
    const Section section(diagnostics_, entry.value, path, keys::ofAdapter);
    AdapterSettings adapter;
    adapter.name = entry.name;
    adapter.place = entry.place;
    const int kinds = section.has("class") + section.has("library") + section.has("plugin");
    if (kinds != 1) {
        diagnostics_.add(
            entry.place,
            fmt::format("{} must have one of \"class\", \"plugin\" and \"library\"", path));
    } else if (section.has("library")) {
        adapter.library = absolute(section.text("library").value_or(""));
        adapter.entry = section.javaText("entry").value_or("");
    } else if (section.has("plugin")) {
        readPlugin(section, adapter);
    } else if (const auto name = section.javaText("class")) {
        adapter.javaClass = *name;
        std::replace(adapter.javaClass.begin(), adapter.javaClass.end(), '.', '/');
    }
    const auto only = [&](const char *key, const char *with) {
        if (kinds == 1 && section.has(key) && !section.has(with)) {
            diagnostics_.add(section.keyPlace(key),
                             fmt::format("{} goes with \"{}\" only", section.pathOf(key), with));
        }
    };
    only("class_path", "class");
    only("entry", "library");
    if (kinds == 1 && section.has("library") && !section.has("entry")) {
        diagnostics_.add(section.place(), fmt::format("missing key \"entry\" in {}", path));
    }
    readClassPath(section, adapter.classPath);
    adapter.properties =
        readProperties(section, FERRY_SETTING_OF_ADAPTER, configuration_.adapters.size());
    configuration_.adapters.push_back(std::move(adapter));
}

/// The name becomes a part of a file name and of a symbol.
void Loader::readPlugin(const Section &section, AdapterSettings &adapter)
{
    const std::string name = section.text("plugin").value_or("");
    const auto isPlain = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
    };
    if (!std::all_of(name.begin(), name.end(), isPlain)) {
        diagnostics_.add(
            placeOf(section.find("plugin")),
            fmt::format("{} must be a plain word of letters, digits and '_', not \"{}\"",
                        section.pathOf("plugin"), name));
    }
    adapter.library = pluginPrefix + name + pluginSuffix;
    adapter.entry = pluginEntry(name);
}

void Loader::readConnection(const NamedNode &entry)
{
    const std::string path = "connections." + entry.name;
    const Section section(diagnostics_, entry.value, path, keys::ofConnection);
    ConnectionSettings connection;
    connection.name = entry.name;
    connection.place = entry.place;
    connection.adapter = configuration_.adapters.size();
    if (const auto adapter = section.javaText("adapter")) {
        connection.adapter = reference(configuration_.adapters, *adapter, "adapter",
                                       path + ".adapter", placeOf(section.find("adapter")));
    }
    const YAML::Node names = section.find("names");
    for (const auto &[name, place] : readTexts(diagnostics_, names, section.pathOf("names"))) {
        connection.names.push_back(name);
    }
    if (connection.names.size() > 2) {
        diagnostics_.add(placeOf(names), fmt::format("{}.names takes at most two names", path));
    }
    connection.properties =
        readProperties(section, FERRY_SETTING_OF_CONNECTION, configuration_.connections.size());
    configuration_.connections.push_back(std::move(connection));
}

void Loader::readSessions(const YAML::Node &node)
{
    for (const NamedNode &entry : readEntries(diagnostics_, node, "sessions")) {
        readSessionSettings(entry);
    }
    if (configuration_.sessions.empty()) {
        configuration_.sessions.emplace_back();
        configuration_.sessions.back().name = "default";
    }
}

void Loader::readSessionSettings(const NamedNode &entry)
{
    const std::string path = "sessions." + entry.name;
    const Section section(diagnostics_, entry.value, path, keys::ofSession);
    SessionSettings session;
    session.name = entry.name;
    session.place = entry.place;
    session.period = toMilliseconds(*section.number("period"));
    session.batch = static_cast<std::int32_t>(section.number("batch").value_or(0));
    session.batchBytes = static_cast<std::uint64_t>(*section.number("batch_bytes"));
    PropertySource source = readSource(section, FERRY_SETTING_OF_SESSION, 0);
    session.properties = source.properties;
    sessionSources_.push_back(std::move(source));
    configuration_.sessions.push_back(std::move(session));
}

void Loader::readRoute(const NamedNode &entry)
{
    const std::string path = "routes." + entry.name;
    const Section section(diagnostics_, entry.value, path, keys::ofRoute);
    RouteSettings route;
    route.name = entry.name;
    readSession(section, route);
    readRouteType(section, route);
    if (section.has("input")) {
        readStream(section.find("input"), section.pathOf("input"), keys::ofInput, route.input);
    }
    readOutputs(section, route);
    route.onError = static_cast<OnError>(*section.choice("on_error"));
    configuration_.routes.push_back(std::move(route));
}

void Loader::readOutputs(const Section &section, RouteSettings &route)
{
    const YAML::Node outputs = section.find("outputs");
    if (outputs.IsDefined() && (!outputs.IsSequence() || outputs.size() == 0)) {
        diagnostics_.add(placeOf(outputs), fmt::format("{} must be a list of at least one output",
                                                       section.pathOf("outputs")));
    } else if (outputs.IsDefined()) {
        for (std::size_t i = 0; i < outputs.size(); ++i) {
            const std::string where = fmt::format("{}[{}]", section.pathOf("outputs"), i);
            StreamSettings output;
            output.batchBytes = configuration_.sessions[route.session].batchBytes;
            readStream(outputs[i], where, keys::ofOutput, output);
            readBatch(outputs[i], route, where, output);
            route.outputs.push_back(std::move(output));
        }
    }
}

void Loader::readSession(const Section &section, RouteSettings &route)
{
    const YAML::Node node = section.find("session");
    if (const auto name = section.text("session")) {
        route.session = reference(configuration_.sessions, *name, "session",
                                  section.pathOf("session"), placeOf(node));
        // Whose limits are read meanwhile does not matter.
        route.session = route.session < configuration_.sessions.size() ? route.session : 0;
    } else if (!node.IsDefined() && configuration_.sessions.size() > 1) {
        diagnostics_.add(
            section.place(),
            fmt::format("missing key \"session\" in {}: there is more than one session",
                        section.path()));
    }
}

void Loader::readRouteType(const Section &section, RouteSettings &route)
{
    const auto name = section.javaText("type");
    if (!name || typesBroken_) {
        return;
    }
    route.typeName = *name;
    route.type = DDS_TypeLibrary_find(types_.get(), name->c_str());
    const Place place = placeOf(section.find("type"));
    if (route.type == nullptr) {
        std::vector<std::string> names;
        for (std::uint32_t i = 0; i < DDS_TypeLibrary_get_count(types_.get()); ++i) {
            names.emplace_back(DDS_TypeCode_get_name(DDS_TypeLibrary_get_at(types_.get(), i)));
        }
        diagnostics_.add(place, fmt::format("{}: there is no type \"{}\"{}", section.pathOf("type"),
                                            *name, suggestion(*name, names)));
    } else if (DDS_TypeCode_get_kind(DDS_TypeCode_resolve(route.type)) != DDS_TK_STRUCT) {
        diagnostics_.add(place,
                         fmt::format("{}: \"{}\" is not a struct", section.pathOf("type"), *name));
    }
}

PropertySource Loader::readSource(const Section &section, std::uint32_t role, std::size_t owner)
{
    PropertySource source;
    source.role = role;
    source.owner = owner;
    source.path = section.path();
    source.place = section.keyPlace("properties");
    source.properties = section.properties(configuration_.directory, source.places);
    return source;
}

Properties Loader::readProperties(const Section &section, std::uint32_t role, std::size_t owner)
{
    configuration_.sources.push_back(readSource(section, role, owner));
    return configuration_.sources.back().properties;
}

/// A session's properties go to every connection that its routes use.
void Loader::collectSessionSources()
{
    std::set<std::pair<std::size_t, std::size_t>> seen;
    const auto add = [&](std::size_t session, std::size_t connection) {
        if (session < sessionSources_.size() && seen.emplace(session, connection).second) {
            configuration_.sources.push_back(sessionSources_[session]);
            configuration_.sources.back().owner = connection;
        }
    };
    const auto addRoute = [&](const RouteSettings &route) {
        add(route.session, route.input.connection);
        for (const StreamSettings &output : route.outputs) {
            add(route.session, output.connection);
        }
    };
    std::for_each(configuration_.routes.begin(), configuration_.routes.end(), addRoute);
    for (const DiscoverySettings &rule : configuration_.discovery) {
        addRoute(rule.route);
    }
}

void Loader::readStream(const YAML::Node &node, const std::string &path, std::uint32_t keys,
                        StreamSettings &stream)
{
    const bool output = keys == keys::ofOutput;
    const Section section(diagnostics_, node, path, keys);
    stream.connection = readConnectionOf(section);
    stream.stream = section.javaText("stream").value_or("");
    stream.place = section.place();
    stream.properties = readProperties(
        section, output ? FERRY_SETTING_OF_WRITER : FERRY_SETTING_OF_READER, stream.connection);
    if (output) {
        const auto inherited = static_cast<std::int64_t>(stream.batchBytes);
        stream.batchBytes =
            static_cast<std::uint64_t>(section.number("batch_bytes").value_or(inherited));
    }
}

std::size_t Loader::readConnectionOf(const Section &section)
{
    const auto name = section.javaText("connection");
    return name ? reference(configuration_.connections, *name, "connection",
                            section.pathOf("connection"), placeOf(section.find("connection")))
                : configuration_.connections.size();
}

/// The most samples of one write: the output's own property, else the session's batch (which is
/// then handed on as that property, so that the bridge cuts as the relay does), else the bridge's
/// default.
void Loader::readBatch(const YAML::Node &node, const RouteSettings &route, const std::string &path,
                       StreamSettings &output)
{
    output.maxSamplesPerWrite = keys::defaultSamplesPerWrite;
    for (const auto &[name, value] : output.properties) {
        if (name == keys::samplesPerWrite.name) {
            const std::string wrong = complaint(fmt::format("{}: property \"{}\"", path, name),
                                                keys::samplesPerWrite, value);
            if (!wrong.empty()) {
                diagnostics_.add(placeOf(node), wrong);
                return;
            }
            output.maxSamplesPerWrite =
                static_cast<std::int32_t>(*parseNumber(FERRY_SETTING_WHOLE, value));
            return;
        }
    }
    const std::int32_t batch = configuration_.sessions[route.session].batch;
    if (batch > 0) {
        output.maxSamplesPerWrite = batch;
        output.properties.emplace_back(keys::samplesPerWrite.name, std::to_string(batch));
    }
}

} // namespace ferry
