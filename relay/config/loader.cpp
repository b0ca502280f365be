#include "config/loader.h"

#include <algorithm>
#include <cctype>

#include "config/text.h"
#include "ferryjni/properties.h"

namespace ferry {
namespace fs = std::filesystem;
namespace {

/// The bridge's own default, which the relay has to know to cut its writes as the bridge would.
constexpr std::int32_t defaultSamplesPerWrite = 1024;
constexpr long maxSamplesPerWrite = 1'000'000;
/// No sample is larger.
constexpr long maxBatchBytes = 2'147'483'647;

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
    const Section top(
        diagnostics_, root, "",
        {"types", "java", "log", "adapters", "connections", "sessions", "routes", "discovery"});
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
    return configuration_;
}

void Loader::readAdapter(const NamedNode &entry)
{
    const std::string path = "adapters." + entry.name;
    const Section section(diagnostics_, entry.value, path,
                          {"class", "class_path", "library", "plugin", "entry", "properties"});
    AdapterSettings adapter;
    adapter.name = entry.name;
    adapter.place = entry.place;
    const bool native = section.find("library").IsDefined();
    const bool plugin = section.find("plugin").IsDefined();
    if (native + plugin + section.find("class").IsDefined() > 1) {
        diagnostics_.add(entry.place,
                         path + " must have only one of \"class\", \"library\" and \"plugin\"");
    } else if (native) {
        adapter.library = absolute(section.text("library").value_or(""));
        adapter.entry = section.requiredJavaText("entry").value_or("");
    } else if (plugin) {
        readPlugin(section, adapter);
    } else if (const auto name = section.requiredJavaText("class")) {
        adapter.javaClass = *name;
        std::replace(adapter.javaClass.begin(), adapter.javaClass.end(), '.', '/');
    }
    if (adapter.javaClass.empty() && section.find("class_path").IsDefined()) {
        diagnostics_.add(placeOf(section.find("class_path")),
                         path + ".class_path goes with \"class\" only");
    }
    readClassPath(section, adapter.classPath);
    if (!native && section.find("entry").IsDefined()) {
        diagnostics_.add(placeOf(section.find("entry")),
                         path + ".entry goes with \"library\" only");
    }
    adapter.properties = readProperties(section, "ADAPTER", configuration_.adapters.size());
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
        diagnostics_.add(placeOf(section.find("plugin")),
                         section.pathOf("plugin") +
                             " must be a plain word of letters, digits and '_', not \"" + name +
                             "\"");
    }
    adapter.library = pluginPrefix + name + pluginSuffix;
    adapter.entry = pluginEntry(name);
}

void Loader::readConnection(const NamedNode &entry)
{
    const std::string path = "connections." + entry.name;
    const Section section(diagnostics_, entry.value, path, {"adapter", "names", "properties"});
    ConnectionSettings connection;
    connection.name = entry.name;
    connection.place = entry.place;
    if (const auto adapter = section.requiredJavaText("adapter")) {
        connection.adapter = reference(configuration_.adapters, *adapter, "adapter",
                                       path + ".adapter", placeOf(section.find("adapter")));
    }
    const YAML::Node names = section.find("names");
    for (const auto &[name, place] : readTexts(diagnostics_, names, section.pathOf("names"))) {
        connection.names.push_back(name);
    }
    if (connection.names.size() > 2) {
        diagnostics_.add(placeOf(names), path + ".names takes at most two names");
    }
    connection.properties =
        readProperties(section, "CONNECTION", configuration_.connections.size());
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
    const Section section(diagnostics_, entry.value, path,
                          {"period", "batch", "batch_bytes", "properties"});
    SessionSettings session;
    session.name = entry.name;
    session.place = entry.place;
    if (const auto text = section.text("period")) {
        if (const auto period = parseDuration(*text)) {
            session.period = *period;
        } else {
            diagnostics_.add(placeOf(section.find("period")),
                             path +
                                 ".period must be a duration from 1ms to 24h, such as 100ms, 2s, "
                                 "5m or 1h, not \"" +
                                 *text + "\"");
        }
    }
    session.batch = static_cast<std::int32_t>(readWhole(section, "batch", maxSamplesPerWrite, 0));
    session.batchBytes = static_cast<std::uint64_t>(
        readWhole(section, "batch_bytes", maxBatchBytes, static_cast<long>(defaultBatchBytes)));
    std::map<std::string, Place> places;
    session.properties = section.properties(configuration_.directory, places);
    configuration_.sessions.push_back(std::move(session));
}

/// A number of at least 1; `otherwise` where there is none, or a wrong one.
long Loader::readWhole(const Section &section, const char *key, long high, long otherwise)
{
    const auto text = section.text(key);
    if (!text) {
        return otherwise;
    }
    const auto number = parseWhole(*text, 1, high);
    if (!number) {
        diagnostics_.add(placeOf(section.find(key)),
                         section.pathOf(key) + " must be a whole number from 1 to " +
                             std::to_string(high) + ", not \"" + *text + "\"");
    }
    return number.value_or(otherwise);
}

void Loader::readRoute(const NamedNode &entry)
{
    const std::string path = "routes." + entry.name;
    const Section section(diagnostics_, entry.value, path,
                          {"session", "type", "input", "outputs", "on_error"});
    RouteSettings route;
    route.name = entry.name;
    readSession(section, route);
    readRouteType(section, route);
    const YAML::Node input = section.require("input");
    if (input.IsDefined()) {
        readStream(input, section.pathOf("input"), "READER", route.input);
    }
    readOutputs(section, route);
    readOnError(section, route);
    configuration_.routes.push_back(std::move(route));
}

void Loader::readOutputs(const Section &section, RouteSettings &route)
{
    const YAML::Node outputs = section.require("outputs");
    if (outputs.IsDefined() && (!outputs.IsSequence() || outputs.size() == 0)) {
        diagnostics_.add(placeOf(outputs),
                         section.pathOf("outputs") + " must be a list of at least one output");
    } else if (outputs.IsDefined()) {
        for (std::size_t i = 0; i < outputs.size(); ++i) {
            const std::string where = section.pathOf("outputs[") + std::to_string(i) + "]";
            StreamSettings output;
            output.batchBytes = configuration_.sessions[route.session].batchBytes;
            readStream(outputs[i], where, "WRITER", output);
            readBatch(outputs[i], route, where, output);
            route.outputs.push_back(std::move(output));
        }
    }
}

void Loader::readOnError(const Section &section, RouteSettings &route)
{
    if (const auto word = section.text("on_error")) {
        route.onError = *word == "stop" ? OnError::stop : OnError::carryOn;
        if (*word != "stop" && *word != "continue") {
            diagnostics_.add(placeOf(section.find("on_error")),
                             section.pathOf("on_error") + " must be continue or stop, not \"" +
                                 *word + "\"" + suggestion(*word, {"continue", "stop"}));
        }
    }
}

void Loader::readSession(const Section &section, RouteSettings &route)
{
    const YAML::Node node = section.find("session");
    if (const auto name = section.text("session")) {
        route.session = reference(configuration_.sessions, *name, "session",
                                  section.pathOf("session"), placeOf(node));
    } else if (!node.IsDefined() && configuration_.sessions.size() > 1) {
        diagnostics_.add(section.place(), "missing key \"session\" in " + section.path() +
                                              ": there is more than one session");
    }
}

void Loader::readRouteType(const Section &section, RouteSettings &route)
{
    const auto name = section.requiredJavaText("type");
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
        diagnostics_.add(place, section.pathOf("type") + ": there is no type \"" + *name + "\"" +
                                    suggestion(*name, names));
    } else if (DDS_TypeCode_get_kind(DDS_TypeCode_resolve(route.type)) != DDS_TK_STRUCT) {
        diagnostics_.add(place, section.pathOf("type") + ": \"" + *name + "\" is not a struct");
    }
}

Properties Loader::readProperties(const Section &section, const char *role, std::size_t owner)
{
    PropertySource source;
    source.role = role;
    source.owner = owner;
    source.path = section.path();
    source.place = section.keyPlace("properties");
    source.properties = section.properties(configuration_.directory, source.places);
    configuration_.sources.push_back(source);
    return source.properties;
}

void Loader::readStream(const YAML::Node &node, const std::string &path, const char *role,
                        StreamSettings &stream)
{
    std::vector<std::string> keys = {"connection", "stream", "properties"};
    const bool output = std::string(role) == "WRITER";
    if (output) {
        keys.emplace_back("batch_bytes");
    }
    const Section section(diagnostics_, node, path, keys);
    if (const auto name = section.requiredJavaText("connection")) {
        stream.connection =
            reference(configuration_.connections, *name, "connection", section.pathOf("connection"),
                      placeOf(section.find("connection")));
    }
    stream.stream = section.requiredJavaText("stream").value_or("");
    stream.place = section.place();
    stream.properties = readProperties(section, role, stream.connection);
    if (output) {
        stream.batchBytes = static_cast<std::uint64_t>(
            readWhole(section, "batch_bytes", maxBatchBytes, static_cast<long>(stream.batchBytes)));
    }
}

/// The most samples of one write: the output's own property, else the session's batch (which is
/// then handed on as that property, so that the bridge cuts as the relay does), else the bridge's
/// default.
void Loader::readBatch(const YAML::Node &node, const RouteSettings &route, const std::string &path,
                       StreamSettings &output)
{
    output.maxSamplesPerWrite = defaultSamplesPerWrite;
    for (const auto &[name, value] : output.properties) {
        if (name == FERRYJNI_PROPERTY_MAX_SAMPLES_PER_WRITE) {
            const auto number = parseWhole(value, 1, maxSamplesPerWrite);
            if (!number) {
                std::string text = path;
                text.append(": property ").append(name);
                text.append(" must be a whole number from 1 to 1000000, not \"");
                text.append(value).append("\"");
                diagnostics_.add(placeOf(node), text);
            }
            output.maxSamplesPerWrite = static_cast<std::int32_t>(number.value_or(1));
            return;
        }
    }
    const std::int32_t batch = configuration_.sessions[route.session].batch;
    if (batch > 0) {
        output.maxSamplesPerWrite = batch;
        output.properties.emplace_back(FERRYJNI_PROPERTY_MAX_SAMPLES_PER_WRITE,
                                       std::to_string(batch));
    }
}

} // namespace ferry
