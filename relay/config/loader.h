// The checks of a configuration file, section by section.
#ifndef FERRY_CONFIG_LOADER_H
#define FERRY_CONFIG_LOADER_H

#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "config/section.h"
#include "settings/suggestion.h"

namespace ferry {

class Loader {
public:
    /// `text` is the file's own, for the line numbers of types written in it.
    Loader(Diagnostics &diagnostics, const std::string &text, const std::filesystem::path &file);

    Configuration load(const YAML::Node &root);

private:
    struct LibraryDeleter {
        void operator()(DDS_TypeLibrary *library) const
        {
            DDS_TypeLibrary_delete(library);
        }
    };

    void readTypes(const YAML::Node &node);
    void readType(const YAML::Node &node, const std::string &path);
    void addInlineType(const YAML::Node &node, const std::string &text);
    void readLog(const YAML::Node &node);
    void readJava(const YAML::Node &node);
    void readJavaOptions(const YAML::Node &node, const std::string &path);
    void readClassPath(const Section &section, std::vector<std::string> &classPath);
    void readAdapter(const NamedNode &entry);
    void readPlugin(const Section &section, AdapterSettings &adapter);
    void readConnection(const NamedNode &entry);
    void readSessions(const YAML::Node &node);
    void readSessionSettings(const NamedNode &entry);
    void readRoute(const NamedNode &entry);
    void readSession(const Section &section, RouteSettings &route);
    void readRouteType(const Section &section, RouteSettings &route);
    void readOutputs(const Section &section, RouteSettings &route);
    void readDiscovery(const NamedNode &entry);
    void readDirection(const Section &section, DiscoverySettings &rule);
    void readPartitions(const Section &section, DiscoverySettings &rule);
    bool receivesPartitions(const StreamSettings &end) const;
    void readOtherEnd(const NamedNode &entry, const Section &section, DiscoverySettings &rule);
    StreamPatterns readPatterns(const Section &section, const std::string &key);
    std::vector<std::string> readGlobs(const YAML::Node &node, const std::string &path,
                                       bool mayBeEmpty);
    void collectTypes();
    /// `owner` as in PropertySource.
    PropertySource readSource(const Section &section, std::uint32_t role, std::size_t owner);
    Properties readProperties(const Section &section, std::uint32_t role, std::size_t owner);
    void collectSessionSources();
    /// `keys` is that of an input or an output.
    void readStream(const YAML::Node &node, const std::string &path, std::uint32_t keys,
                    StreamSettings &stream);
    std::size_t readConnectionOf(const Section &section);
    void readBatch(const YAML::Node &node, const RouteSettings &route, const std::string &path,
                   StreamSettings &output);

    template<class T>
    std::size_t reference(const std::vector<T> &known, const std::string &name, const char *kind,
                          const std::string &path, Place place);
    std::filesystem::path absolute(const std::string &path) const;

    Diagnostics &diagnostics_;
    const std::string &text_;
    Configuration configuration_;
    /// Of the sessions that the file declares, by their index.
    std::vector<PropertySource> sessionSources_;
    std::unique_ptr<DDS_TypeLibrary, LibraryDeleter> types_;
    /// Types that could not be read: names are not looked up, or one mistake would be reported
    /// many times.
    bool typesBroken_ = false;
};

template<class T>
std::size_t Loader::reference(const std::vector<T> &known, const std::string &name,
                              const char *kind, const std::string &path, Place place)
{
    std::vector<std::string> names;
    for (const T &item : known) {
        if (item.name == name) {
            return names.size();
        }
        names.push_back(item.name);
    }
    diagnostics_.add(place, fmt::format("{}: there is no {} \"{}\"{}", path, kind, name,
                                        suggestion(name, names)));
    return names.size();
}

} // namespace ferry

#endif
