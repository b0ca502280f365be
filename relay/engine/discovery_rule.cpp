#include "engine/discovery_rule.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <fnmatch.h>
#include <iterator>

#include "config/text.h"

namespace ferry {
namespace {

/// Without the rules of paths: `*` also takes slashes and leading dots.
bool matches(const std::vector<std::string> &globs, const std::string &text)
{
    return std::any_of(globs.begin(), globs.end(), [&](const std::string &glob) {
        return fnmatch(glob.c_str(), text.c_str(), 0) == 0;
    });
}

bool matchesAny(const std::vector<std::string> &globs, const std::vector<std::string> &texts)
{
    return std::any_of(texts.begin(), texts.end(),
                       [&](const std::string &text) { return matches(globs, text); });
}

/// An empty list fits everything.
bool fits(const StreamPatterns &patterns, const AnnouncedStream &stream)
{
    return (patterns.stream.empty() || matches(patterns.stream, stream.name)) &&
           (patterns.type.empty() || matches(patterns.type, stream.typeName)) &&
           (patterns.partition.empty() || matchesAny(patterns.partition, stream.partitions));
}

/// In bytes. A regular expression takes stack for each byte of a name, and a peer chooses the name.
constexpr std::size_t longestRenamed = 1024;

/// What the stream is called at the other end.
std::string otherNameOf(const DiscoverySettings &rule, const AnnouncedStream &stream)
{
    if (stream.name.size() > longestRenamed) {
        return stream.name;
    }
    for (const RenameSettings &rename : rule.rename) {
        std::smatch match;
        if (std::regex_match(stream.name, match, rename.from)) {
            return match.format(rename.to);
        }
    }
    return stream.name;
}

void put(Properties &properties, const std::pair<std::string, std::string> &property)
{
    const auto known = std::find_if(properties.begin(), properties.end(),
                                    [&](const auto &each) { return each.first == property.first; });
    if (known == properties.end()) {
        properties.push_back(property);
    } else {
        known->second = property.second;
    }
}

/// The announced end's own properties and those that the rule has for such streams.
void addQos(StreamSettings &announced, const DiscoverySettings &rule, const AnnouncedStream &stream)
{
    for (const QosSettings &qos : rule.qos) {
        if (fits(qos.match, stream)) {
            for (const auto &property : qos.properties) {
                put(announced.properties, property);
            }
        }
    }
}

/// In one pass: a stream's name may hold what looks like a variable.
std::string substitute(const std::string &text, const Properties &words)
{
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        const auto word = std::find_if(words.begin(), words.end(), [&](const auto &each) {
            return text.compare(at, each.first.size(), each.first) == 0;
        });
        if (word != words.end()) {
            result += word->second;
            at += word->first.size();
        } else {
            result += text[at++];
        }
    }
    return result;
}

void complete(StreamSettings &end, const Properties &words)
{
    end.stream = substitute(end.stream, words);
    for (auto &[name, value] : end.properties) {
        value = substitute(value, words);
    }
}

/// So that no name can be taken for several, or for the end of the list.
std::string escaped(const std::string &partition)
{
    std::string text;
    for (const char c : partition) {
        text += std::strchr("\\[],", c) != nullptr && c != '\0' ? "\\" : "";
        text += c;
    }
    return text;
}

/// The end's properties, with what its stream was announced with.
void addAnnounced(StreamSettings &end, const AnnouncedStream &stream)
{
    static const std::string prefix = "qel.ferrion.announced.";
    end.properties.emplace_back(prefix + "direction", stream.input ? "input" : "output");
    for (const auto &[name, value] : stream.properties) {
        end.properties.emplace_back(prefix + name, value);
    }
}

std::string rejectionOf(const StreamSettings &end)
{
    std::string rejection = rejectionForJava(end.stream);
    for (const auto &[name, value] : end.properties) {
        rejection = rejection.empty() ? rejectionForJava(value) : rejection;
    }
    return rejection;
}

} // namespace

std::string valueOf(const Properties &properties, const std::string &name)
{
    const auto found = std::find_if(properties.begin(), properties.end(),
                                    [&](const auto &each) { return each.first == name; });
    return found == properties.end() ? "" : found->second;
}

bool AnnouncedStream::operator==(const AnnouncedStream &other) const
{
    return connection == other.connection && input == other.input && name == other.name &&
           typeName == other.typeName && type == other.type && partitions == other.partitions &&
           properties == other.properties;
}

AnnouncedStream announcedStream(const QEL_FerrionStreamInfo &info,
                                const QEL_FerrionProperties *properties, std::size_t connection,
                                bool input)
{
    AnnouncedStream stream;
    stream.connection = connection;
    stream.input = input;
    stream.name = info.streamName;
    for (std::int32_t i = 0; i < info.partition.length; ++i) {
        const char *const partition = info.partition.buffer[i];
        stream.partitions.emplace_back(partition == nullptr ? "" : partition);
    }
    std::sort(stream.partitions.begin(), stream.partitions.end());
    if (info.disposed != 0) {
        return stream;
    }
    stream.typeName = info.typeName == nullptr ? "" : info.typeName;
    if (info.typeRepresentationKind == QEL_FERRION_TYPE_REPRESENTATION_TYPECODE) {
        stream.type = static_cast<const DDS_TypeCode *>(info.typeRepresentation);
    }
    if (stream.partitions.empty()) {
        stream.partitions.emplace_back();
    }
    for (std::int32_t i = 0; properties != nullptr && i < properties->count; ++i) {
        stream.properties.emplace_back(properties->properties[i].name,
                                       properties->properties[i].value);
    }
    return stream;
}

std::string labelOf(const StreamId &stream)
{
    const auto &[name, partitions] = stream;
    const bool plain = partitions.empty() || (partitions.size() == 1 && partitions[0].empty());
    // A name that looks as if it had partitions gets its own behind it.
    if (plain && (name.empty() || name.back() != ']')) {
        return name;
    }
    std::vector<std::string> texts;
    for (const std::string &partition : partitions) {
        texts.push_back(escaped(partition));
    }
    return fmt::format("{} [{}]", name, fmt::join(texts, ","));
}

StreamId idFor(const DiscoverySettings &rule, const AnnouncedStream &stream)
{
    return {stream.name, rule.merged ? std::vector<std::string>() : stream.partitions};
}

void merge(AnnouncedStream &stream, const AnnouncedStream &other)
{
    std::vector<std::string> all;
    std::set_union(stream.partitions.begin(), stream.partitions.end(), other.partitions.begin(),
                   other.partitions.end(), std::back_inserter(all));
    stream.partitions = std::move(all);
    if (!isKnown(stream.type) && other.type != nullptr) {
        stream.type = other.type;
        stream.typeName = other.typeName;
    }
    auto &mine = stream.properties;
    mine.erase(std::remove_if(mine.begin(), mine.end(),
                              [&](const auto &property) {
                                  const auto &theirs = other.properties;
                                  return std::find(theirs.begin(), theirs.end(), property) ==
                                         theirs.end();
                              }),
               mine.end());
}

bool concerns(const AnnouncedStream &stream, const DiscoverySettings &rule)
{
    return rule.connection == stream.connection && rule.inputs == stream.input;
}

bool wants(const DiscoverySettings &rule, const AnnouncedStream &stream)
{
    if (!concerns(stream, rule)) {
        return false;
    }
    const StreamPatterns &allow = rule.allow;
    const StreamPatterns &deny = rule.deny;
    return fits(allow, stream) && !matches(deny.stream, stream.name) &&
           !matches(deny.type, stream.typeName) && !matchesAny(deny.partition, stream.partitions);
}

bool isAt(const StreamSettings &end, const AnnouncedStream &stream)
{
    return end.connection == stream.connection && end.stream == stream.name;
}

bool writesTo(const RouteSettings &route, const AnnouncedStream &stream)
{
    return std::any_of(route.outputs.begin(), route.outputs.end(),
                       [&](const StreamSettings &output) { return isAt(output, stream); });
}

bool uses(const RouteSettings &route, const AnnouncedStream &stream)
{
    return stream.input ? isAt(route.input, stream) : writesTo(route, stream);
}

bool isOfType(const RouteSettings &route, const AnnouncedStream &stream)
{
    const auto asksFor = [&](const StreamSettings &end) {
        return isAt(end, stream) && valueOf(end.properties, "type_name") == stream.typeName;
    };
    return DDS_TypeName_is_same(route.typeName.c_str(), stream.typeName.c_str()) != 0 ||
           (stream.input ? asksFor(route.input)
                         : std::any_of(route.outputs.begin(), route.outputs.end(), asksFor));
}

RouteSettings routeFor(const DiscoverySettings &rule, const AnnouncedStream &stream,
                       const std::string &typeName, const DDS_TypeCode *type)
{
    RouteSettings route = rule.route;
    route.name = fmt::format("{}/{}", rule.name, labelOf(idFor(rule, stream)));
    route.typeName = typeName;
    route.type = type;
    StreamSettings &announced = rule.inputs ? route.input : route.outputs[0];
    announced.stream = stream.name;
    addQos(announced, rule, stream);
    const Properties words{{"${stream}", otherNameOf(rule, stream)},
                           {"${type}", typeName},
                           {"${partitions}", fmt::format("{}", fmt::join(stream.partitions, ","))}};
    if (rule.inputs) {
        for (StreamSettings &output : route.outputs) {
            complete(output, words);
        }
    } else {
        complete(route.input, words);
    }
    for (StreamSettings &output : route.outputs) {
        output.partitions = stream.partitions;
        addAnnounced(output, stream);
    }
    route.input.partitions = stream.partitions;
    addAnnounced(route.input, stream);
    return route;
}

bool covers(const AnnouncedStream &made, const AnnouncedStream &now)
{
    return std::includes(made.partitions.begin(), made.partitions.end(), now.partitions.begin(),
                         now.partitions.end());
}

std::string differenceOf(const Properties &before, const Properties &now)
{
    std::string text;
    const auto compare = [&](const std::string &name) {
        const std::string was = valueOf(before, name);
        const std::string is = valueOf(now, name);
        if (was != is) {
            text += fmt::format("{}{} {} (was {})", text.empty() ? "" : ", ", name,
                                is.empty() ? "none" : is, was.empty() ? "none" : was);
        }
    };
    for (const auto &[name, value] : now) {
        compare(name);
    }
    for (const auto &[name, value] : before) {
        if (valueOf(now, name).empty()) {
            compare(name);
        }
    }
    return text;
}

std::string rejectionOf(const RouteSettings &route)
{
    std::string rejection = rejectionForJava(route.typeName);
    rejection = rejection.empty() ? rejectionOf(route.input) : rejection;
    for (const StreamSettings &output : route.outputs) {
        rejection = rejection.empty() ? rejectionOf(output) : rejection;
    }
    return rejection;
}

std::string differenceOf(const DDS_TypeCode *mine, const DDS_TypeCode *theirs)
{
    // One object a type: equal types need no look.
    if (mine == theirs || !isKnown(mine) || !isKnown(theirs)) {
        return "";
    }
    DDS_ErrorText text{};
    return DDS_TypeCode_explain_difference(mine, theirs, &text) == 0 ? "" : text.text;
}

} // namespace ferry
