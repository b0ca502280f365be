// The section that says which routes are made at run time.
#include <algorithm>

#include "config/loader.h"
#include "config/text.h"

namespace ferry {

void Loader::readDiscovery(const NamedNode &entry)
{
    const Section section(diagnostics_, entry.value, "discovery." + entry.name,
                          {"connection", "direction", "allow", "deny", "session", "properties",
                           "outputs", "input", "on_error", "partitions", "grace"});
    DiscoverySettings rule;
    rule.name = entry.name;
    if (const auto name = section.requiredJavaText("connection")) {
        rule.connection =
            reference(configuration_.connections, *name, "connection", section.pathOf("connection"),
                      placeOf(section.find("connection")));
    }
    readDirection(section, rule);
    rule.allow = readPatterns(section, "allow");
    rule.deny = readPatterns(section, "deny");
    readSession(section, rule.route);
    readOtherEnd(entry, section, rule);
    readPartitions(section, rule);
    readGrace(section, rule);
    readOnError(section, rule.route);
    configuration_.discovery.push_back(std::move(rule));
}

void Loader::readDirection(const Section &section, DiscoverySettings &rule)
{
    const std::string word = section.text("direction").value_or("input");
    rule.inputs = word != "output";
    if (word != "input" && word != "output") {
        diagnostics_.add(placeOf(section.find("direction")),
                         section.pathOf("direction") + " must be input or output, not \"" + word +
                             "\"" + suggestion(word, {"input", "output"}));
    }
    const char *const wrong = rule.inputs ? "input" : "outputs";
    if (section.find(wrong).IsDefined()) {
        diagnostics_.add(section.keyPlace(wrong),
                         section.pathOf(wrong) + " goes with \"direction: " +
                             (rule.inputs ? "output" : "input") + "\" only");
    }
}

/// Streams of one name are kept apart where the other ends can tell them apart.
void Loader::readPartitions(const Section &section, DiscoverySettings &rule)
{
    const auto &outputs = rule.route.outputs;
    const bool told = rule.inputs
                          ? std::all_of(outputs.begin(), outputs.end(),
                                        [&](const auto &end) { return isToldPartitions(end); })
                          : isToldPartitions(rule.route.input);
    const std::string word = section.text("partitions").value_or(told ? "apart" : "merged");
    rule.merged = word == "merged";
    if (word != "apart" && word != "merged") {
        diagnostics_.add(placeOf(section.find("partitions")),
                         section.pathOf("partitions") + " must be apart or merged, not \"" + word +
                             "\"" + suggestion(word, {"apart", "merged"}));
    }
}

/// A Java adapter gets no partitions with a stream, so to it two of one name are the same, unless
/// the name or a property says them.
bool Loader::isToldPartitions(const StreamSettings &end) const
{
    const auto says = [](const std::string &text) {
        return text.find("${partitions}") != std::string::npos;
    };
    if (end.connection >= configuration_.connections.size()) {
        return true; // which has been told
    }
    const std::size_t adapter = configuration_.connections[end.connection].adapter;
    return (adapter < configuration_.adapters.size() &&
            configuration_.adapters[adapter].javaClass.empty()) ||
           says(end.stream) ||
           std::any_of(end.properties.begin(), end.properties.end(),
                       [&](const auto &property) { return says(property.second); });
}

void Loader::readGrace(const Section &section, DiscoverySettings &rule)
{
    const auto text = section.text("grace");
    if (!text) {
        return;
    }
    rule.grace = *text == "0s" ? std::chrono::milliseconds(0) : parseDuration(*text);
    if (!rule.grace) {
        diagnostics_.add(placeOf(section.find("grace")),
                         section.pathOf("grace") +
                             " must be 0s or a duration from 1ms to 24h, such as 2s, not \"" +
                             *text + "\"");
    }
}

/// The rule's own properties are those of the announced end, whose stream is not known yet.
void Loader::readOtherEnd(const NamedNode &entry, const Section &section, DiscoverySettings &rule)
{
    StreamSettings announced;
    announced.connection = rule.connection;
    announced.place = entry.place;
    announced.properties =
        readProperties(section, rule.inputs ? "READER" : "WRITER", announced.connection);
    if (rule.inputs) {
        rule.route.input = announced;
        readOutputs(section, rule.route);
        return;
    }
    announced.batchBytes = configuration_.sessions[rule.route.session].batchBytes;
    readBatch(entry.value, rule.route, section.path(), announced);
    rule.route.outputs.push_back(announced);
    const YAML::Node input = section.require("input");
    if (input.IsDefined()) {
        readStream(input, section.pathOf("input"), "READER", rule.route.input);
    }
}

StreamPatterns Loader::readPatterns(const Section &section, const std::string &key)
{
    const Section lists(diagnostics_, section.find(key), section.pathOf(key),
                        {"stream", "type", "partition"});
    StreamPatterns patterns;
    patterns.stream = readGlobs(lists.find("stream"), lists.pathOf("stream"), false);
    patterns.type = readGlobs(lists.find("type"), lists.pathOf("type"), false);
    // The default partition has an empty name.
    patterns.partition = readGlobs(lists.find("partition"), lists.pathOf("partition"), true);
    return patterns;
}

/// A list without a pattern could mean all or nothing, so it is refused.
std::vector<std::string> Loader::readGlobs(const YAML::Node &node, const std::string &path,
                                           bool mayBeEmpty)
{
    std::vector<std::string> globs;
    if (!node.IsDefined()) {
        return globs;
    }
    if (!node.IsSequence() || node.size() == 0) {
        diagnostics_.add(placeOf(node), path + " must be a list of at least one pattern");
        return globs;
    }
    for (std::size_t i = 0; i < node.size(); ++i) {
        if (mayBeEmpty && node[i].IsScalar() && node[i].Scalar().empty()) {
            globs.emplace_back();
        } else if (const auto text =
                       readText(diagnostics_, node[i], path + "[" + std::to_string(i) + "]")) {
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
