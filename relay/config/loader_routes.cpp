// Routes: those of the file, and the rules of those that are made at run time.
#include <algorithm>
#include <cstring>

#include "config/keys.h"
#include "config/loader.h"
#include "settings/value.h"

namespace ferry {
namespace {

/// A list without a pattern could mean all or nothing, so it is rejected. One pattern needs no
/// list.
std::vector<std::string> readGlobs(const Entry &list, bool mayBeEmpty)
{
    std::vector<std::string> globs;
    if (list.isGiven() && list.node().IsScalar()) {
        return {list.text(mayBeEmpty).value_or("")};
    }
    for (const Entry &element : list.elements("at least one pattern", 1)) {
        globs.push_back(element.text(mayBeEmpty).value_or(""));
    }
    return globs;
}

StreamPatterns readPatterns(const Section &section)
{
    // The default partition has an empty name.
    return {readGlobs(section["stream"], false), readGlobs(section["type"], false),
            readGlobs(section["partition"], true)};
}

/// Whether announced streams are read; with that go the keys of the other end.
bool readDirection(const Section &section)
{
    const bool inputs = *section.number("direction") == 0;
    const Entry wrong = section[inputs ? "input" : "outputs"];
    const char *const needed = inputs ? "outputs" : "input";
    if (wrong.isGiven()) {
        section.diagnostics().add(wrong.keyPlace(), "{} goes with \"direction: {}\" only",
                                  wrong.path(), inputs ? "output" : "input");
    }
    if (!section.has(needed)) {
        section.complainOfMissing(needed);
    }
    return inputs;
}

/// Whether a stream's name or a property holds the variable.
bool says(const StreamSettings &end, const char *variable)
{
    const auto holds = [&](const std::string &text) {
        return text.find(variable) != std::string::npos;
    };
    return holds(end.stream) ||
           std::any_of(end.properties.begin(), end.properties.end(),
                       [&](const auto &property) { return holds(property.second); });
}

/// The number of the last group that a replacement names.
unsigned greatestGroup(const std::string &replacement)
{
    unsigned greatest = 0;
    for (std::size_t at = replacement.find('$');
         at != std::string::npos && at + 1 < replacement.size();
         at = replacement.find('$', at + (replacement[at + 1] == '$' ? 2 : 1))) {
        const char digit = replacement[at + 1];
        greatest = std::max(greatest,
                            digit >= '0' && digit <= '9' ? static_cast<unsigned>(digit - '0') : 0U);
    }
    return greatest;
}

void readErrors(const Section &section, RouteSettings &route)
{
    section.read("on_error", route.onError);
    std::size_t choice = 0;
    section.read("dead_letter", choice);
    route.deadLetters = choice == 0;
}

} // namespace

void readRetry(const Section &section, RetrySettings &retry)
{
    section.read("first", retry.first);
    section.read("max", retry.max);
    section.read("for", retry.limit);
    if (retry.first > retry.max) {
        section.complain("{}: \"first\" must not be longer than \"max\"");
    }
}

void Loader::readRoute(const Entry &entry)
{
    const Section section(entry, keys::ofRoute);
    RouteSettings route;
    route.name = entry.name();
    readSessionOf(section, route);
    if (section.has("type")) {
        section.read("type", route.typeName);
        route.type = types_.find(section["type"], route.typeName);
    }
    if (section.has("input")) {
        readStream(section["input"], keys::ofInput, route.input);
    }
    readErrors(section, route);
    readOutputs(section, route);
    if (section.has("type")) {
        configuration_.routes.push_back(std::move(route));
    } else {
        addRuleOf(section, std::move(route));
    }
}

/// A route without a type is a rule for one stream, whatever its partitions.
void Loader::addRuleOf(const Section &section, RouteSettings route)
{
    for (const StreamSettings &output : route.outputs) {
        if (output.own) {
            section.diagnostics().add(
                output.place, "{}: without a \"type\" outputs have no \"store\" and are required",
                section.path());
        }
    }
    DiscoverySettings rule;
    rule.name = route.name;
    rule.connection = route.input.connection;
    rule.allow.stream.emplace_back();
    for (const char c : route.input.stream) {
        if (std::strchr("*?[\\", c) != nullptr) {
            rule.allow.stream[0] += '\\';
        }
        rule.allow.stream[0] += c;
    }
    rule.merged = true;
    rule.single = true;
    route.input.stream.clear();
    rule.route = std::move(route);
    configuration_.discovery.push_back(std::move(rule));
}

void Loader::readSessionOf(const Section &section, RouteSettings &route)
{
    const std::vector<SessionSettings> &sessions = configuration_.sessions;
    if (!section.has("session") && sessions.size() > 1) {
        section.complainOfMissing("session", ": there is more than one session");
    }
    const std::size_t session = reference(section["session"], "session", sessions);
    // Whose limits are read meanwhile does not matter.
    route.session = session < sessions.size() ? session : 0;
}

void Loader::readOutputs(const Section &section, RouteSettings &route)
{
    for (const Entry &entry : section["outputs"].elements("at least one output", 1)) {
        StreamSettings output;
        output.batchBytes = configuration_.sessions[route.session].batchBytes;
        readStream(entry, keys::ofOutput, output);
        readBatch(entry, route, output);
        readDelivery(Section(entry, keys::ofOutput), route, output);
        route.outputs.push_back(std::move(output));
    }
}

/// What becomes of samples on their way to an output, and of those that it does not take.
void Loader::readDelivery(const Section &section, const RouteSettings &route,
                          StreamSettings &output)
{
    readRetry(Section(section["retry"], keys::ofRetry), output.retry);
    if (section.has("retry") && route.onError != OnError::retry) {
        section["retry"].complain("{} goes with \"on_error: retry\" only");
    }
    bool required = true;
    section.read("required", required);
    if (!required || section.has("store")) {
        const Section store(section["store"], keys::ofStore);
        BufferSettings buffer;
        store.read("path", buffer.path);
        store.read("max_bytes", buffer.maxBytes);
        store.read("when_full", buffer.whenFull);
        buffer.stored = section.has("store");
        if (!buffer.stored) {
            buffer.maxBytes = keys::queueBytes;
            buffer.whenFull = WhenFull::dropOldest;
        } else if (!required) {
            section["store"].complain("{} goes with required outputs only: its samples are safe");
        }
        output.own = buffer;
    }
}

/// An output that has a buffer gets a session of its own, in which a second route moves what is in
/// the buffer.
void Loader::addBuffers()
{
    const std::size_t routes = configuration_.routes.size();
    for (std::size_t route = 0; route < routes; ++route) {
        for (std::size_t i = 0; i < configuration_.routes[route].outputs.size(); ++i) {
            if (configuration_.routes[route].outputs[i].own) {
                addBuffer(route, i);
            }
        }
    }
}

void Loader::addBuffer(std::size_t route, std::size_t output)
{
    RouteSettings &first = configuration_.routes[route];
    StreamSettings &put = first.outputs[output];
    if (put.connection >= configuration_.connections.size()) {
        return; // a mistake that has been reported
    }
    const std::string label =
        fmt::format("{}/{}", configuration_.connections[put.connection].name, put.stream);
    const std::size_t buffer = configuration_.buffers.size();
    configuration_.buffers.push_back({*put.own, first.name, label, first.type,
                                      put.maxSamplesPerWrite, put.batchBytes, put.place});
    RouteSettings second = first;
    second.name = fmt::format("{} to {}", first.name, label);
    second.session = configuration_.sessions.size();
    second.input = StreamSettings();
    second.input.connection = noConnection;
    second.input.buffer = buffer;
    second.outputs = {put};
    second.outputs[0].own.reset();
    put.buffer = buffer;
    configuration_.sessions.push_back(configuration_.sessions[first.session]);
    configuration_.sessions.back().name = second.name;
    configuration_.routes.push_back(std::move(second));
}

void Loader::readStream(const Entry &entry, std::uint32_t keys, StreamSettings &stream)
{
    const bool output = keys == keys::ofOutput;
    const Section section(entry, keys);
    stream.connection = reference(section["connection"], "connection", configuration_.connections);
    section.read("stream", stream.stream);
    stream.place = section.place();
    stream.properties = readProperties(
        section, output ? FERRY_SETTING_OF_WRITER : FERRY_SETTING_OF_READER, stream.connection);
    if (output) {
        section.read("batch_bytes", stream.batchBytes);
    }
}

/// The most samples of one write: the output's own property, else the session's batch (which is
/// then handed on as that property, so that the bridge cuts as the relay does), else the bridge's
/// default.
void Loader::readBatch(const Entry &entry, const RouteSettings &route, StreamSettings &output)
{
    const std::string name = keys::samplesPerWrite.name;
    const auto own = std::find_if(output.properties.begin(), output.properties.end(),
                                  [&](const auto &property) { return property.first == name; });
    const std::int32_t batch = configuration_.sessions[route.session].batch;
    output.maxSamplesPerWrite = batch > 0 ? batch : keys::defaultSamplesPerWrite;
    if (own != output.properties.end()) {
        const std::string wrong = complaint(fmt::format("{}: property \"{}\"", entry.path(), name),
                                            keys::samplesPerWrite, own->second);
        if (!wrong.empty()) {
            entry.diagnostics().add(entry.place(), wrong);
        } else {
            output.maxSamplesPerWrite =
                static_cast<std::int32_t>(*parseNumber(keys::samplesPerWrite, own->second));
        }
    } else if (batch > 0) {
        output.properties.emplace_back(name, std::to_string(batch));
    }
}

void Loader::readDiscovery(const Entry &entry)
{
    const Section section(entry, keys::ofDiscovery);
    DiscoverySettings rule;
    rule.name = entry.name();
    rule.connection = reference(section["connection"], "connection", configuration_.connections);
    rule.inputs = readDirection(section);
    rule.allow = readPatterns(Section(section["allow"], keys::ofPatterns));
    rule.deny = readPatterns(Section(section["deny"], keys::ofPatterns));
    readSessionOf(section, rule.route);
    readErrors(section, rule.route);
    readOtherEnd(entry, section, rule);
    readRename(section, rule);
    readQos(section, rule);
    readPartitions(section, rule);
    for (const StreamSettings &output : rule.route.outputs) {
        if (output.own) {
            section.diagnostics().add(output.place,
                                      "{}: outputs of a rule have no \"store\" and are required",
                                      section.path());
        }
    }
    if (section.has("grace")) {
        section.read("grace", rule.grace.emplace());
    }
    configuration_.discovery.push_back(std::move(rule));
}

void Loader::readRename(const Section &section, DiscoverySettings &rule)
{
    for (const Entry &entry : section["rename"].elements("names, from and to", 1)) {
        const Section each(entry, keys::ofRename);
        RenameSettings rename;
        std::string from;
        each.read("from", from);
        each.read("to", rename.to);
        try {
            rename.from = std::regex(from);
        } catch (const std::regex_error &error) {
            each["from"].complain("{}: \"{}\" is no regular expression: {}", from, error.what());
        }
        if (const unsigned group = greatestGroup(rename.to); group > rename.from.mark_count()) {
            each["to"].complain("{}: \"from\" has no group for ${}", group);
        }
        rule.rename.push_back(std::move(rename));
    }
    const auto hasName = [](const StreamSettings &end) { return says(end, "${stream}"); };
    const auto &outputs = rule.route.outputs;
    if (!rule.rename.empty() && !(rule.inputs ? std::any_of(outputs.begin(), outputs.end(), hasName)
                                              : hasName(rule.route.input))) {
        section["rename"].complain("{} has no effect: the other end has no ${{stream}}");
    }
}

void Loader::readQos(const Section &section, DiscoverySettings &rule)
{
    for (const Entry &entry : section["qos"].elements("match and properties", 1)) {
        const Section each(entry, keys::ofQos);
        rule.qos.push_back(
            {readPatterns(Section(each["match"], keys::ofPatterns)),
             readProperties(each, rule.inputs ? FERRY_SETTING_OF_READER : FERRY_SETTING_OF_WRITER,
                            rule.connection)});
    }
}

/// Streams of one name are kept apart where the other ends can tell them apart.
void Loader::readPartitions(const Section &section, DiscoverySettings &rule)
{
    const auto &outputs = rule.route.outputs;
    const auto receives = [&](const StreamSettings &end) { return receivesPartitions(end); };
    const bool apart = rule.inputs ? std::all_of(outputs.begin(), outputs.end(), receives)
                                   : receives(rule.route.input);
    rule.merged = section.number("partitions").value_or(apart ? 0 : 1) == 1;
}

/// A Java adapter gets no partitions with a stream, so to it two of one name are the same, unless
/// the name or a property says them.
bool Loader::receivesPartitions(const StreamSettings &end) const
{
    if (end.connection >= configuration_.connections.size()) {
        return true; // a mistake that has been reported
    }
    const std::size_t adapter = configuration_.connections[end.connection].adapter;
    return (adapter < configuration_.adapters.size() &&
            configuration_.adapters[adapter].javaClass.empty()) ||
           says(end, "${partitions}");
}

/// The rule's own properties are those of the announced end, whose stream is not known yet.
void Loader::readOtherEnd(const Entry &entry, const Section &section, DiscoverySettings &rule)
{
    StreamSettings announced;
    announced.connection = rule.connection;
    announced.place = entry.keyPlace();
    announced.properties =
        readProperties(section, rule.inputs ? FERRY_SETTING_OF_READER : FERRY_SETTING_OF_WRITER,
                       announced.connection);
    if (rule.inputs) {
        rule.route.input = announced;
        readOutputs(section, rule.route);
        return;
    }
    announced.batchBytes = configuration_.sessions[rule.route.session].batchBytes;
    readBatch(entry, rule.route, announced);
    rule.route.outputs.push_back(announced);
    if (section.has("input")) {
        readStream(section["input"], keys::ofInput, rule.route.input);
    }
}

} // namespace ferry
