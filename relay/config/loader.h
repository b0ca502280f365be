// The checks of a configuration file, section by section.
#ifndef FERRY_CONFIG_LOADER_H
#define FERRY_CONFIG_LOADER_H

#include <string>
#include <vector>

#include "config/loader_types.h"
#include "config/section.h"
#include "settings/suggestion.h"

namespace ferry {

void readRetry(const Section &section, RetrySettings &retry);

class Loader {
public:
    /// `text` is the file's own, for the line numbers of types written in it.
    Loader(Diagnostics &diagnostics, const std::string &text, const std::filesystem::path &file);

    Configuration load(const YAML::Node &root);

private:
    void readAdapter(const Entry &entry);
    void readConnection(const Entry &entry);
    void readSession(const Entry &entry);
    void readRoute(const Entry &entry);
    void addRuleOf(const Section &section, RouteSettings route);
    void readDiscovery(const Entry &entry);

    void readSessionOf(const Section &section, RouteSettings &route);
    void readOutputs(const Section &section, RouteSettings &route);
    /// `keys` is that of an input or an output.
    void readDelivery(const Section &section, const RouteSettings &route, StreamSettings &output);
    void addBuffers();
    void addBuffer(std::size_t route, std::size_t output);
    void readStream(const Entry &entry, std::uint32_t keys, StreamSettings &stream);
    void readBatch(const Entry &entry, const RouteSettings &route, StreamSettings &output);
    void readOtherEnd(const Entry &entry, const Section &section, DiscoverySettings &rule);
    void readRename(const Section &section, DiscoverySettings &rule);
    void readQos(const Section &section, DiscoverySettings &rule);
    void readPartitions(const Section &section, DiscoverySettings &rule);
    bool receivesPartitions(const StreamSettings &end) const;
    /// `owner` as in PropertySource.
    PropertySource readSource(const Section &section, std::uint32_t role, std::size_t owner);
    Properties readProperties(const Section &section, std::uint32_t role, std::size_t owner);
    void collectSessionSources();

    /// The index of what an entry names among `known`; beyond their end if it names nothing there.
    template<class T>
    std::size_t reference(const Entry &entry, const char *kind, const std::vector<T> &known) const;

    const Document document_;
    TypeLoader types_;
    Configuration configuration_;
    /// Of the sessions that the file declares, by their index.
    std::vector<PropertySource> sessionSources_;
};

template<class T>
std::size_t Loader::reference(const Entry &entry, const char *kind,
                              const std::vector<T> &known) const
{
    const auto wanted = entry.javaText();
    std::vector<std::string> names;
    for (const T &item : known) {
        if (item.name == wanted) {
            return names.size();
        }
        names.push_back(item.name);
    }
    if (wanted) {
        entry.complain("{}: there is no {} \"{}\"{}", kind, *wanted, suggestion(*wanted, names));
    }
    return names.size();
}

} // namespace ferry

#endif
