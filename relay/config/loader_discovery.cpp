// The section that says which routes are made at run time.
#include "config/loader.h"

namespace ferry {

void Loader::readDiscovery(const NamedNode &entry)
{
    const Section section(diagnostics_, entry.value, "discovery." + entry.name,
                          {"connection", "direction", "allow", "deny", "session", "properties",
                           "outputs", "input", "on_error"});
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

/// The rule's own properties are those of the announced end, whose stream is not known yet.
void Loader::readOtherEnd(const NamedNode &entry, const Section &section, DiscoverySettings &rule)
{
    StreamSettings announced;
    announced.connection = rule.connection;
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
