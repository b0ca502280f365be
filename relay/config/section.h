// Typed, strict access to the nodes of a YAML file: every complaint names the place and the key.
//
// The parser is yaml-cpp: it keeps line and column of every node (libyaml's events do too, but
// leave aliases, tags and the tree to us), and it is in every distribution.
#ifndef FERRY_CONFIG_SECTION_H
#define FERRY_CONFIG_SECTION_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include <yaml-cpp/yaml.h>

#include "config/configuration.h"
#include "config/diagnostics.h"
#include "ferryjni/settings.h"

namespace ferry {

Place placeOf(const YAML::Mark &mark);
Place placeOf(const YAML::Node &node);

/// One key of a mapping whose keys the user chooses.
struct NamedNode {
    std::string name;
    Place place;
    YAML::Node value;
};

/// The entries of a mapping, checked for its kind, for duplicates and for names that Java cannot
/// take.
std::vector<NamedNode> readEntries(Diagnostics &diagnostics, const YAML::Node &node,
                                   const std::string &path);

/// The text of a scalar; complains about anything else.
std::optional<std::string> readText(Diagnostics &diagnostics, const YAML::Node &node,
                                    const std::string &path);

/// The same, for a text that goes to Java.
std::optional<std::string> readJavaText(Diagnostics &diagnostics, const YAML::Node &node,
                                        const std::string &path);

/// A list of texts.
std::vector<std::pair<std::string, Place>>
readTexts(Diagnostics &diagnostics, const YAML::Node &node, const std::string &path);

/// Free-form properties: nested mappings are joined by dots, lists are rejected. In values,
/// `${config_dir}` stands for `directory` and `${env:NAME}` for a variable of the environment.
Properties readProperties(Diagnostics &diagnostics, const YAML::Node &node, const std::string &path,
                          const std::filesystem::path &directory,
                          std::map<std::string, Place> &places);

/// A mapping whose keys are declared. An empty node is an empty mapping. The constructor complains
/// about keys that are unknown or missing; the getters, each called once a key, about values.
class Section {
public:
    /// `keys` is one of the sections of keys.h.
    Section(Diagnostics &diagnostics, const YAML::Node &node, std::string path, std::uint32_t keys);

    /// The key's value, or an undefined node.
    YAML::Node find(const std::string &key) const;
    bool has(const std::string &key) const
    {
        return find(key).IsDefined();
    }

    std::optional<std::string> text(const std::string &key) const;
    /// The same, for a text that goes to Java.
    std::optional<std::string> javaText(const std::string &key) const;
    /// A whole number, bytes, or a duration's nanoseconds: the key's, else the declared default,
    /// else nothing. A wrong one counts as not there.
    std::optional<std::int64_t> number(const std::string &key) const;
    /// The index of a choice's word, in the same way.
    std::optional<std::size_t> choice(const std::string &key) const;
    Properties properties(const std::filesystem::path &directory,
                          std::map<std::string, Place> &places) const;

    std::string pathOf(const std::string &key) const;
    const std::string &path() const
    {
        return path_;
    }
    /// Of a key that is there (its value may stand elsewhere, as an alias does).
    Place keyPlace(const std::string &key) const;
    Place place() const
    {
        return place_;
    }

private:
    const FERRY_Setting &setting(const std::string &key) const;
    /// The key's value, or the declared default, after complaining about a wrong one.
    std::optional<std::string> value(const std::string &key) const;
    void complainOfMissing(const std::string &misspelt) const;

    Diagnostics &diagnostics_;
    std::string path_;
    std::uint32_t keys_;
    Place place_;
    std::vector<NamedNode> entries_;
};

} // namespace ferry

#endif
