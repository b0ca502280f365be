// The section that says which routes are made at run time.
#include <algorithm>

#include <fmt/format.h>

#include "config/keys.h"
#include "config/loader.h"

namespace ferry {

void Loader::readDiscovery(const NamedNode &entry)
{
    const Section section(diagnostics_, entry.value, "discovery." + entry.name, keys::ofDiscovery);
    DiscoverySettings rule;
    rule.name = entry.name;
    rule.connection = readConnectionOf(section);
    readDirection(section, rule);
    rule.allow = readPatterns(section, "allow");
    rule.deny = readPatterns(section, "deny");
    readSession(section, rule.route);
    readOtherEnd(entry, section, rule);
    readPartitions(section, rule);
    if (const auto grace = section.number("grace")) {
        rule.grace =
            std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::nanoseconds(*grace));
    }
    rule.route.onError = static_cast<OnError>(*section.choice("on_error"));
    configuration_.discovery.push_back(std::move(rule));
}

void Loader::readDirection(const Section &section, DiscoverySettings &rule)
{
    rule.inputs = *section.choice("direction") == 0;
    const char *const wrong = rule.inputs ? "input" : "outputs";
    if (section.has(wrong)) {
        diagnostics_.add(section.keyPlace(wrong),
                         fmt::format("{} goes with \"direction: {}\" only", section.pathOf(wrong),
                                     rule.inputs ? "output" : "input"));
    }
    const char *const needed = rule.inputs ? "outputs" : "input";
    if (!section.has(needed)) {
        diagnostics_.add(section.place(),
                         fmt::format("missing key \"{}\" in {}", needed, section.path()));
    }
}

/// Streams of one name are kept apart where the other ends can tell them apart.
void Loader::readPartitions(const Section &section, DiscoverySettings &rule)
{
    const auto &outputs = rule.route.outputs;
    const bool apart = rule.inputs
                           ? std::all_of(outputs.begin(), outputs.end(),
                                         [&](const auto &end) { return receivesPartitions(end); })
                           : receivesPartitions(rule.route.input);
    rule.merged = section.choice("partitions").value_or(apart ? 0 : 1) == 1;
}

/// A Java adapter gets no partitions with a stream, so to it two of one name are the same, unless
/// the name or a property says them.
bool Loader::receivesPartitions(const StreamSettings &end) const
{
    const auto says = [](const std::string &text) {
        return text.find("${partitions}") != std::string::npos;
    };
    if (end.connection >= configuration_.connections.size()) {
        return true; // a mistake that has been reported
    }
    const std::size_t adapter = configuration_.connections[end.connection].adapter;
    return (adapter < configuration_.adapters.size() &&
            configuration_.adapters[adapter].javaClass.empty()) ||
           says(end.stream) ||
           std::any_of(end.properties.begin(), end.properties.end(),
                       [&](const auto &property) { return says(property.second); });
}

/// The rule's own properties are those of the announced end, whose stream is not known yet.
void Loader::readOtherEnd(const NamedNode &entry, const Section &section, DiscoverySettings &rule)
{
    StreamSettings announced;
    announced.connection = rule.connection;
    announced.place = entry.place;
    announced.properties =
        readProperties(section, rule.inputs ? FERRY_SETTING_OF_READER : FERRY_SETTING_OF_WRITER,
                       announced.connection);
    if (rule.inputs) {
        rule.route.input = announced;
        readOutputs(section, rule.route);
        return;
    }
    announced.batchBytes = configuration_.sessions[rule.route.session].batchBytes;
    readBatch(entry.value, rule.route, section.path(), announced);
    rule.route.outputs.push_back(announced);
    if (section.has("input")) {
        readStream(section.find("input"), section.pathOf("input"), keys::ofInput, rule.route.input);
    }
}

StreamPatterns Loader::readPatterns(const Section &section, const std::string &key)
{
    const Section lists(diagnostics_, section.find(key), section.pathOf(key), keys::ofPatterns);
    StreamPatterns patterns;
    patterns.stream = readGlobs(lists.find("stream"), lists.pathOf("stream"), false);
    patterns.type = readGlobs(lists.find("type"), lists.pathOf("type"), false);
    // The default partition has an empty name.
    patterns.partition = readGlobs(lists.find("partition"), lists.pathOf("partition"), true);
    return patterns;
}

/// A list without a pattern could mean all or nothing, so it is rejected.
std::vector<std::string> Loader::readGlobs(const YAML::Node &node, const std::string &path,
                                           bool mayBeEmpty)
{
    std::vector<std::string> globs;
    if (!node.IsDefined()) {
        return globs;
    }
    if (!node.IsSequence() || node.size() == 0) {
        diagnostics_.add(placeOf(node),
                         fmt::format("{} must be a list of at least one pattern", path));
        return globs;
    }
    for (std::size_t i = 0; i < node.size(); ++i) {
        if (mayBeEmpty && node[i].IsScalar() && node[i].Scalar().empty()) {
            globs.emplace_back();
        } else if (const auto text =
                       readText(diagnostics_, node[i], fmt::format("{}[{}]", path, i))) {
            globs.push_back(*text);
        }
    }
    return globs;
}

void Loader::collectTypes()
{
    for (std::uint32_t i = 0; i < DDS_TypeLibrary_get_count(types_.get()); ++i) {
        const DDS_TypeCode *const type = DDS_TypeLibrary_get_at(types_.get(), i);
        if (DDS_TypeCode_get_kind(DDS_TypeCode_resolve(type)) == DDS_TK_STRUCT) {
            configuration_.types.emplace(DDS_TypeCode_get_name(type), type);
        }
    }
}

} // namespace ferry
