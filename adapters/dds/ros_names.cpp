#include "ros_names.h"

namespace ferrydds::ros {
namespace {

constexpr const char topicPrefix[] = "rt/";
const std::string hidden = "::dds_::";

/// Where the last part of a scoped name begins.
std::size_t lastPart(const std::string &name)
{
    const std::size_t at = name.rfind("::");
    return at == std::string::npos ? 0 : at + 2;
}

bool isAnnounced(const std::string &name)
{
    const std::size_t last = lastPart(name);
    return last >= hidden.size() && name.back() == '_' &&
           name.compare(last - hidden.size(), hidden.size(), hidden) == 0;
}

} // namespace

bool isTopic(const std::string &topic)
{
    return topic.rfind(topicPrefix, 0) == 0 && topic.size() > sizeof topicPrefix - 1;
}

std::string streamOf(const std::string &topic)
{
    return isTopic(topic) ? topic.substr(sizeof topicPrefix - 2) : topic;
}

std::string topicOf(const std::string &stream)
{
    return stream.size() > 1 && stream[0] == '/' ? "rt" + stream : stream;
}

std::string shownTypeOf(const std::string &typeName)
{
    if (!isAnnounced(typeName)) {
        return typeName;
    }
    std::string name = typeName.substr(0, typeName.size() - 1);
    name.erase(lastPart(name) - hidden.size() + 2, hidden.size() - 2);
    for (std::size_t at = name.find("::"); at != std::string::npos; at = name.find("::", at)) {
        name.replace(at, 2, "/");
    }
    return name;
}

std::string announcedTypeOf(const std::string &typeName)
{
    if (isAnnounced(typeName)) {
        return typeName;
    }
    std::string name = typeName + "_";
    for (std::size_t at = name.find('/'); at != std::string::npos; at = name.find('/', at)) {
        name.replace(at, 1, "::");
    }
    return name.insert(lastPart(name), "dds_::");
}

} // namespace ferrydds::ros
