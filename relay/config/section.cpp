#include "config/section.h"

#include <algorithm>

#include "config/text.h"

namespace ferry {
namespace {

/// Deeper nesting is a mistake (an alias that holds itself).
constexpr int maxPropertyDepth = 16;
/// More in one list are one, too: a few lines of aliases of aliases stand for billions.
constexpr std::size_t maxProperties = 10000;

const char *kindOf(const YAML::Node &node)
{
    return node.IsMap() ? "a mapping" : node.IsSequence() ? "a list" : "a plain value";
}

std::string join(const std::string &path, const std::string &key)
{
    return path + "." + key;
}

std::string within(const std::string &path)
{
    return path.empty() ? "" : " in " + path;
}

class PropertyReader {
public:
    PropertyReader(Diagnostics &diagnostics, const std::filesystem::path &directory,
                   std::map<std::string, Place> &places)
        : diagnostics_(diagnostics), directory_(directory), places_(places)
    {
    }

    Properties take()
    {
        return std::move(result_);
    }

    void read(const YAML::Node &node, const std::string &path, const std::string &prefix, int depth)
    {
        if (depth > maxPropertyDepth) {
            giveUp(node, path + " is nested too deeply");
            return;
        }
        for (const NamedNode &entry : readEntries(diagnostics_, node, path)) {
            if (++seen_ > maxProperties) {
                giveUp(node, path + ": there are more than " + std::to_string(maxProperties) +
                                 " properties");
            }
            if (gaveUp_) {
                return;
            }
            const std::string name = prefix + entry.name;
            const std::string where = join(path, entry.name);
            if (entry.value.IsMap()) {
                read(entry.value, where, name + ".", depth + 1);
            } else if (entry.value.IsSequence()) {
                diagnostics_.add(placeOf(entry.value),
                                 where + " is a list, which a property cannot be: write one text, "
                                         "in the form that the adapter documents");
            } else {
                add(entry, where, name);
            }
        }
    }

private:
    /// Told once: what else an alias leads to is more of the same.
    void giveUp(const YAML::Node &node, const std::string &message)
    {
        if (!gaveUp_) {
            diagnostics_.add(placeOf(node), message);
        }
        gaveUp_ = true;
    }

    void add(const NamedNode &entry, const std::string &where, const std::string &name)
    {
        std::string value = entry.value.IsNull() ? "" : entry.value.Scalar();
        const std::string missing = expand(value, directory_.string());
        if (!missing.empty()) {
            diagnostics_.add(placeOf(entry.value), "the value of " + where + " needs " + missing +
                                                       ", which the environment does not have");
        }
        const std::string refusal = refusalForJava(value);
        if (!refusal.empty()) {
            diagnostics_.add(placeOf(entry.value), "the value of " + where + " " + refusal);
            return;
        }
        if (!places_.emplace(name, entry.place).second) {
            diagnostics_.add(entry.place, "property \"" + name + "\" is given twice");
            return;
        }
        result_.emplace_back(name, value);
    }

    Diagnostics &diagnostics_;
    const std::filesystem::path &directory_;
    Properties result_;
    std::map<std::string, Place> &places_;
    /// Good and bad ones.
    std::size_t seen_ = 0;
    bool gaveUp_ = false;
};

} // namespace

Place placeOf(const YAML::Mark &mark)
{
    return mark.is_null() ? Place{} : Place{mark.line + 1, mark.column + 1};
}

Place placeOf(const YAML::Node &node)
{
    return placeOf(node.Mark());
}

std::vector<NamedNode> readEntries(Diagnostics &diagnostics, const YAML::Node &node,
                                   const std::string &path)
{
    std::vector<NamedNode> entries;
    if (!node.IsDefined() || node.IsNull()) {
        return entries;
    }
    if (!node.IsMap()) {
        diagnostics.add(placeOf(node), (path.empty() ? std::string("the file") : path) +
                                           " must be a mapping, not " + kindOf(node));
        return entries;
    }
    for (const auto &pair : node) {
        const Place place = placeOf(pair.first);
        if (!pair.first.IsScalar() || pair.first.Scalar().empty()) {
            diagnostics.add(place, "a key" + within(path) + " must be a text");
            continue;
        }
        const std::string name = pair.first.Scalar();
        const std::string refusal = refusalForJava(name);
        const auto same = [&](const NamedNode &known) { return known.name == name; };
        const auto earlier = std::find_if(entries.begin(), entries.end(), same);
        if (!refusal.empty()) {
            diagnostics.add(place, "a key" + within(path) + " " + refusal);
        } else if (earlier != entries.end()) {
            diagnostics.add(place, "key \"" + name + "\"" + within(path) +
                                       " is given twice (first in line " +
                                       std::to_string(earlier->place.line) + ")");
        } else {
            entries.push_back({name, place, pair.second});
        }
    }
    return entries;
}

std::optional<std::string> readText(Diagnostics &diagnostics, const YAML::Node &node,
                                    const std::string &path)
{
    if (!node.IsDefined()) {
        return std::nullopt;
    }
    if (!node.IsScalar() || node.Scalar().empty()) {
        const std::string given = node.IsScalar() || node.IsNull() ? "empty" : kindOf(node);
        diagnostics.add(placeOf(node), path + " must be a text, but is " + given);
        return std::nullopt;
    }
    if (node.Scalar().find('\0') != std::string::npos) {
        diagnostics.add(placeOf(node), path + " holds a NUL character");
        return std::nullopt;
    }
    return node.Scalar();
}

std::optional<std::string> readJavaText(Diagnostics &diagnostics, const YAML::Node &node,
                                        const std::string &path)
{
    std::optional<std::string> text = readText(diagnostics, node, path);
    if (text) {
        const std::string refusal = refusalForJava(*text);
        if (!refusal.empty()) {
            diagnostics.add(placeOf(node), path + " " + refusal);
            return std::nullopt;
        }
    }
    return text;
}

std::vector<std::pair<std::string, Place>>
readTexts(Diagnostics &diagnostics, const YAML::Node &node, const std::string &path)
{
    std::vector<std::pair<std::string, Place>> result;
    if (!node.IsDefined() || node.IsNull()) {
        return result;
    }
    if (!node.IsSequence()) {
        diagnostics.add(placeOf(node), path + " must be a list, not " + kindOf(node));
        return result;
    }
    for (std::size_t i = 0; i < node.size(); ++i) {
        const std::string where = path + "[" + std::to_string(i) + "]";
        if (const auto text = readJavaText(diagnostics, node[i], where)) {
            result.emplace_back(*text, placeOf(node[i]));
        }
    }
    return result;
}

Properties readProperties(Diagnostics &diagnostics, const YAML::Node &node, const std::string &path,
                          const std::filesystem::path &directory,
                          std::map<std::string, Place> &places)
{
    PropertyReader reader(diagnostics, directory, places);
    reader.read(node, path, "", 0);
    return reader.take();
}

Section::Section(Diagnostics &diagnostics, const YAML::Node &node, std::string path,
                 const std::vector<std::string> &allowedKeys)
    : diagnostics_(diagnostics), path_(std::move(path)), place_(placeOf(node))
{
    for (NamedNode &entry : readEntries(diagnostics, node, path_)) {
        if (std::find(allowedKeys.begin(), allowedKeys.end(), entry.name) == allowedKeys.end()) {
            const std::string near = suggestion(entry.name, allowedKeys);
            diagnostics.add(entry.place,
                            "unknown key \"" + entry.name + "\"" + within(path_) + near);
            misspelt_ += near;
        } else {
            entries_.push_back(std::move(entry));
        }
    }
}

YAML::Node Section::find(const std::string &key) const
{
    for (const NamedNode &entry : entries_) {
        if (entry.name == key) {
            return entry.value;
        }
    }
    return YAML::Node(YAML::NodeType::Undefined);
}

Place Section::keyPlace(const std::string &key) const
{
    const auto found = std::find_if(entries_.begin(), entries_.end(),
                                    [&](const NamedNode &entry) { return entry.name == key; });
    return found == entries_.end() ? place_ : found->place;
}

YAML::Node Section::require(const std::string &key) const
{
    YAML::Node node = find(key);
    // One mistake, one message.
    const bool misspelt = misspelt_.find("\"" + key + "\"") != std::string::npos;
    if (!node.IsDefined() && !misspelt) {
        diagnostics_.add(place_, "missing key \"" + key + "\"" + within(path_));
    }
    return node;
}

std::optional<std::string> Section::text(const std::string &key) const
{
    return readText(diagnostics_, find(key), pathOf(key));
}

std::optional<std::string> Section::requiredJavaText(const std::string &key) const
{
    return readJavaText(diagnostics_, require(key), pathOf(key));
}

Properties Section::properties(const std::filesystem::path &directory,
                               std::map<std::string, Place> &places) const
{
    return readProperties(diagnostics_, find("properties"), pathOf("properties"), directory,
                          places);
}

std::string Section::pathOf(const std::string &key) const
{
    return join(path_, key);
}

} // namespace ferry
