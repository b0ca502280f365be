#include "config/section.h"

#include <algorithm>

#include <fmt/format.h>

#include "config/keys.h"
#include "config/text.h"
#include "settings/check.h"
#include "settings/suggestion.h"
#include "settings/value.h"

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
            giveUp(node, fmt::format("{} is nested too deeply", path));
            return;
        }
        for (const NamedNode &entry : readEntries(diagnostics_, node, path)) {
            if (++seen_ > maxProperties) {
                giveUp(node,
                       fmt::format("{}: there are more than {} properties", path, maxProperties));
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
                                 fmt::format("{} is a list, which a property cannot be: write one "
                                             "text, in the form that the adapter documents",
                                             where));
            } else {
                add(entry, where, name);
            }
        }
    }

private:
    /// Reported once: what else an alias leads to is more of the same.
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
            diagnostics_.add(
                placeOf(entry.value),
                fmt::format("the value of {} needs {}, which the environment does not have", where,
                            missing));
        }
        const std::string rejection = rejectionForJava(value);
        if (!rejection.empty()) {
            diagnostics_.add(placeOf(entry.value),
                             fmt::format("the value of {} {}", where, rejection));
            return;
        }
        if (!places_.emplace(name, entry.place).second) {
            diagnostics_.add(entry.place, fmt::format("property \"{}\" is given twice", name));
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
        diagnostics.add(placeOf(node), fmt::format("{} must be a mapping, not {}",
                                                   path.empty() ? "the file" : path, kindOf(node)));
        return entries;
    }
    for (const auto &pair : node) {
        const Place place = placeOf(pair.first);
        if (!pair.first.IsScalar() || pair.first.Scalar().empty()) {
            diagnostics.add(place, fmt::format("a key{} must be a text", within(path)));
            continue;
        }
        const std::string name = pair.first.Scalar();
        const std::string rejection = rejectionForJava(name);
        const auto same = [&](const NamedNode &known) { return known.name == name; };
        const auto earlier = std::find_if(entries.begin(), entries.end(), same);
        if (!rejection.empty()) {
            diagnostics.add(place, fmt::format("a key{} {}", within(path), rejection));
        } else if (earlier != entries.end()) {
            diagnostics.add(place, fmt::format("key \"{}\"{} is given twice (first in line {})",
                                               name, within(path), earlier->place.line));
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
        diagnostics.add(placeOf(node), fmt::format("{} must be a text, but is {}", path, given));
        return std::nullopt;
    }
    if (node.Scalar().find('\0') != std::string::npos) {
        diagnostics.add(placeOf(node), fmt::format("{} holds a NUL character", path));
        return std::nullopt;
    }
    return node.Scalar();
}

std::optional<std::string> readJavaText(Diagnostics &diagnostics, const YAML::Node &node,
                                        const std::string &path)
{
    std::optional<std::string> text = readText(diagnostics, node, path);
    if (text) {
        const std::string rejection = rejectionForJava(*text);
        if (!rejection.empty()) {
            diagnostics.add(placeOf(node), fmt::format("{} {}", path, rejection));
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
        diagnostics.add(placeOf(node),
                        fmt::format("{} must be a list, not {}", path, kindOf(node)));
        return result;
    }
    for (std::size_t i = 0; i < node.size(); ++i) {
        const std::string where = fmt::format("{}[{}]", path, i);
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
                 std::uint32_t keys)
    : diagnostics_(diagnostics), path_(std::move(path)), keys_(keys), place_(placeOf(node))
{
    std::vector<std::string> known;
    for (const FERRY_Setting &setting : keys::of(keys)) {
        known.emplace_back(setting.name);
    }
    std::string misspelt;
    for (NamedNode &entry : readEntries(diagnostics, node, path_)) {
        if (std::find(known.begin(), known.end(), entry.name) == known.end()) {
            const std::string near = suggestion(entry.name, known);
            diagnostics.add(entry.place,
                            fmt::format("unknown key \"{}\"{}{}", entry.name, within(path_), near));
            misspelt += near;
        } else {
            entries_.push_back(std::move(entry));
        }
    }
    complainOfMissing(misspelt);
}

/// A key that an unknown one was taken for is not missing: one mistake, one message.
void Section::complainOfMissing(const std::string &misspelt) const
{
    for (const FERRY_Setting &setting : keys::of(keys_)) {
        const bool needed = (setting.flags & FERRY_SETTING_REQUIRED) != 0 && !has(setting.name);
        if (needed && misspelt.find(fmt::format("\"{}\"", setting.name)) == std::string::npos) {
            diagnostics_.add(place_,
                             fmt::format("missing key \"{}\"{}", setting.name, within(path_)));
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

std::optional<std::string> Section::text(const std::string &key) const
{
    return readText(diagnostics_, find(key), pathOf(key));
}

std::optional<std::string> Section::javaText(const std::string &key) const
{
    return readJavaText(diagnostics_, find(key), pathOf(key));
}

const FERRY_Setting &Section::setting(const std::string &key) const
{
    return *findSetting(keys::table, keys_, key);
}

std::optional<std::string> Section::value(const std::string &key) const
{
    const FERRY_Setting &declared = setting(key);
    if (auto given = text(key)) {
        const std::string wrong = complaint(pathOf(key), declared, *given);
        if (wrong.empty()) {
            return given;
        }
        diagnostics_.add(placeOf(find(key)), wrong);
    }
    return declared.fallback == nullptr ? std::nullopt
                                        : std::make_optional<std::string>(declared.fallback);
}

std::optional<std::int64_t> Section::number(const std::string &key) const
{
    const auto text = value(key);
    return text ? parseNumber(setting(key).kind, *text) : std::nullopt;
}

std::optional<std::size_t> Section::choice(const std::string &key) const
{
    const auto word = value(key);
    if (!word) {
        return std::nullopt;
    }
    const std::vector<std::string> words = wordsOf(setting(key));
    return static_cast<std::size_t>(std::find(words.begin(), words.end(), *word) - words.begin());
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
