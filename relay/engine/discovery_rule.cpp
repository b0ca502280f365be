#include "engine/discovery_rule.h"

#include <algorithm>
#include <fnmatch.h>

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

/// In one pass: a stream's name may hold what looks like a variable.
std::string substitute(const std::string &text, const std::string &stream, const std::string &type)
{
    static const std::string streamWord = "${stream}";
    static const std::string typeWord = "${type}";
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        if (text.compare(at, streamWord.size(), streamWord) == 0) {
            result += stream;
            at += streamWord.size();
        } else if (text.compare(at, typeWord.size(), typeWord) == 0) {
            result += type;
            at += typeWord.size();
        } else {
            result += text[at++];
        }
    }
    return result;
}

void complete(StreamSettings &end, const std::string &stream, const std::string &type)
{
    end.stream = substitute(end.stream, stream, type);
    for (auto &[name, value] : end.properties) {
        value = substitute(value, stream, type);
    }
}

std::string refusalOf(const StreamSettings &end)
{
    std::string refusal = refusalForJava(end.stream);
    for (const auto &[name, value] : end.properties) {
        refusal = refusal.empty() ? refusalForJava(value) : refusal;
    }
    return refusal;
}

} // namespace

bool AnnouncedStream::operator==(const AnnouncedStream &other) const
{
    return connection == other.connection && input == other.input && name == other.name &&
           typeName == other.typeName && type == other.type && partitions == other.partitions;
}

AnnouncedStream announcedStream(const QEL_FerrionStreamInfo &info, std::size_t connection,
                                bool input)
{
    AnnouncedStream stream;
    stream.connection = connection;
    stream.input = input;
    stream.name = info.streamName;
    if (info.disposed != 0) {
        return stream;
    }
    stream.typeName = info.typeName == nullptr ? "" : info.typeName;
    if (info.typeRepresentationKind == QEL_FERRION_TYPE_REPRESENTATION_TYPECODE) {
        stream.type = static_cast<const DDS_TypeCode *>(info.typeRepresentation);
    }
    for (std::int32_t i = 0; i < info.partition.length; ++i) {
        const char *const partition = info.partition.buffer[i];
        stream.partitions.emplace_back(partition == nullptr ? "" : partition);
    }
    if (stream.partitions.empty()) {
        stream.partitions.emplace_back();
    }
    return stream;
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
    const bool allowed =
        (allow.stream.empty() || matches(allow.stream, stream.name)) &&
        (allow.type.empty() || matches(allow.type, stream.typeName)) &&
        (allow.partition.empty() || matchesAny(allow.partition, stream.partitions));
    return allowed && !matches(deny.stream, stream.name) && !matches(deny.type, stream.typeName) &&
           !matchesAny(deny.partition, stream.partitions);
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

RouteSettings routeFor(const DiscoverySettings &rule, const AnnouncedStream &stream,
                       const std::string &typeName, const DDS_TypeCode *type)
{
    RouteSettings route = rule.route;
    route.name = rule.name + "/" + stream.name;
    route.typeName = typeName;
    route.type = type;
    StreamSettings &announced = rule.inputs ? route.input : route.outputs[0];
    announced.stream = stream.name;
    announced.partitions = stream.partitions;
    if (rule.inputs) {
        for (StreamSettings &output : route.outputs) {
            complete(output, stream.name, typeName);
        }
    } else {
        complete(route.input, stream.name, typeName);
    }
    return route;
}

bool coversPartitions(const RouteSettings &route, const AnnouncedStream &stream)
{
    const std::vector<std::string> &made =
        (stream.input ? route.input : route.outputs[0]).partitions;
    return std::all_of(stream.partitions.begin(), stream.partitions.end(),
                       [&](const std::string &partition) {
                           return std::find(made.begin(), made.end(), partition) != made.end();
                       });
}

std::string refusalOf(const RouteSettings &route)
{
    std::string refusal = refusalForJava(route.typeName);
    refusal = refusal.empty() ? refusalOf(route.input) : refusal;
    for (const StreamSettings &output : route.outputs) {
        refusal = refusal.empty() ? refusalOf(output) : refusal;
    }
    return refusal;
}

std::string differenceOf(const DDS_TypeCode *mine, const DDS_TypeCode *theirs)
{
    // One object a type: equal types need no look.
    if (mine == theirs || mine == nullptr || theirs == nullptr) {
        return "";
    }
    DDS_ErrorText text{};
    return DDS_TypeCode_explain_difference(mine, theirs, &text) == 0 ? "" : text.text;
}

} // namespace ferry
