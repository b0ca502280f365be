#include "config/section.h"

#include <algorithm>

#include "config/expand.h"
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

class PropertyReader {
public:
    explicit PropertyReader(PropertySource &source) : source_(source) {}

    void read(const Entry &mapping, const std::string &prefix, int depth)
    {
        if (depth > maxPropertyDepth) {
            giveUp(mapping, "{} is nested too deeply");
            return;
        }
        for (const Entry &entry : mapping.entries()) {
            if (++seen_ > maxProperties) {
                giveUp(mapping, "{}: there are more than {} properties", maxProperties);
            }
            if (gaveUp_) {
                return;
            }
            if (entry.node().IsMap()) {
                read(entry, prefix + entry.name() + ".", depth + 1);
            } else if (entry.node().IsSequence()) {
                entry.complain("{} is a list, which a property cannot be: write one text, in the "
                               "form that the adapter documents");
            } else {
                add(entry, prefix + entry.name());
            }
        }
    }

private:
    /// Reported once: what else an alias leads to is more of the same.
    template<class... Args>
    void giveUp(const Entry &entry, fmt::format_string<const std::string &, Args...> text,
                Args &&...args)
    {
        if (!gaveUp_) {
            entry.complain(text, std::forward<Args>(args)...);
        }
        gaveUp_ = true;
    }

    void add(const Entry &entry, const std::string &name)
    {
        std::string value = entry.node().IsNull() ? "" : entry.node().Scalar();
        const std::string missing = expand(value, entry.document().directory.string());
        if (!missing.empty()) {
            entry.complain("the value of {} {}", missing);
        }
        const std::string rejection = rejectionForJava(value);
        if (!rejection.empty()) {
            entry.complain("the value of {} {}", rejection);
        } else if (!source_.places.emplace(name, entry.keyPlace()).second) {
            entry.diagnostics().add(entry.keyPlace(), "property \"{}\" is given twice", name);
        } else {
            source_.properties.emplace_back(name, value);
        }
    }

    PropertySource &source_;
    /// Good and bad ones.
    std::size_t seen_ = 0;
    bool gaveUp_ = false;
};

} // namespace

Place placeOf(const YAML::Mark &mark)
{
    return mark.is_null() ? Place{} : Place{mark.line + 1, mark.column + 1};
}

Entry::Entry(const Document &document, const YAML::Node &node, std::string path, std::string name,
             Place keyPlace)
    : document_(&document), node_(node), path_(std::move(path)), name_(std::move(name)),
      keyPlace_(keyPlace)
{
}

std::vector<Entry> Entry::entries() const
{
    std::vector<Entry> entries;
    if (!isGiven() || node_.IsNull()) {
        return entries;
    }
    if (!node_.IsMap()) {
        diagnostics().add(place(), "{} must be a mapping, not {}",
                          path_.empty() ? "the file" : path_, kindOf(node_));
        return entries;
    }
    for (const auto &pair : node_) {
        const Place place = placeOf(pair.first.Mark());
        if (!pair.first.IsScalar() || pair.first.Scalar().empty()) {
            diagnostics().add(place, "a key{} must be a text", within());
            continue;
        }
        const std::string name = pair.first.Scalar();
        const std::string rejection = rejectionForJava(name);
        const auto same = [&](const Entry &known) { return known.name() == name; };
        const auto earlier = std::find_if(entries.begin(), entries.end(), same);
        if (!rejection.empty()) {
            diagnostics().add(place, "a key{} {}", within(), rejection);
        } else if (earlier != entries.end()) {
            diagnostics().add(place, "key \"{}\"{} is given twice (first in line {})", name,
                              within(), earlier->keyPlace().line);
        } else {
            entries.emplace_back(*document_, pair.second, pathOf(name), name, place);
        }
    }
    return entries;
}

std::vector<Entry> Entry::elements(const char *what, std::size_t least) const
{
    std::vector<Entry> elements;
    if (!isGiven() || (node_.IsNull() && least == 0)) {
        return elements;
    }
    if (!node_.IsSequence()) {
        complain("{} must be a list of {}, not {}", what, kindOf(node_));
    } else if (node_.size() < least) {
        complain("{} must be a list of {}", what);
    } else {
        for (const YAML::Node &node : node_) {
            elements.emplace_back(*document_, node, fmt::format("{}[{}]", path_, elements.size()),
                                  "", placeOf(node.Mark()));
        }
    }
    return elements;
}

std::optional<std::string> Entry::text(bool mayBeEmpty) const
{
    if (!isGiven()) {
        return std::nullopt;
    }
    if (!node_.IsScalar() || (node_.Scalar().empty() && !mayBeEmpty)) {
        complain("{} must be a text, but is {}",
                 node_.IsScalar() || node_.IsNull() ? "empty" : kindOf(node_));
        return std::nullopt;
    }
    if (node_.Scalar().find('\0') != std::string::npos) {
        complain("{} holds a NUL character");
        return std::nullopt;
    }
    return node_.Scalar();
}

std::optional<std::string> Entry::javaText() const
{
    std::optional<std::string> text = this->text();
    const std::string rejection = text ? rejectionForJava(*text) : "";
    if (!rejection.empty()) {
        complain("{} {}", rejection);
        return std::nullopt;
    }
    return text;
}

std::vector<std::pair<std::string, Place>> Entry::javaTexts() const
{
    std::vector<std::pair<std::string, Place>> texts;
    for (const Entry &element : elements("texts", 0)) {
        if (auto text = element.javaText()) {
            texts.emplace_back(std::move(*text), element.place());
        }
    }
    return texts;
}

void Entry::readProperties(PropertySource &source) const
{
    PropertyReader(source).read(*this, "", 0);
}

Section::Section(const Entry &entry, std::uint32_t keys) : Entry(entry), keys_(keys)
{
    std::vector<std::string> known;
    for (const FERRY_Setting &setting : keys::of(keys)) {
        known.emplace_back(setting.name);
    }
    std::string misspelt;
    for (Entry &each : this->entries()) {
        if (std::find(known.begin(), known.end(), each.name()) == known.end()) {
            const std::string near = suggestion(each.name(), known);
            diagnostics().add(each.keyPlace(), "unknown key \"{}\"{}{}", each.name(), within(),
                              near);
            misspelt += near;
        } else {
            entries_.push_back(std::move(each));
        }
    }
    // A key that an unknown one was taken for is not missing: one mistake, one message.
    for (const FERRY_Setting &setting : keys::of(keys)) {
        const bool needed = (setting.flags & FERRY_SETTING_REQUIRED) != 0 && !has(setting.name);
        if (needed && misspelt.find(fmt::format("\"{}\"", setting.name)) == std::string::npos) {
            complainOfMissing(setting.name);
        }
    }
}

void Section::complainOfMissing(const std::string &key, const char *reason) const
{
    diagnostics().add(place(), "missing key \"{}\"{}{}", key, within(), reason);
}

Entry Section::operator[](const std::string &key) const
{
    const auto found = std::find_if(entries_.begin(), entries_.end(),
                                    [&](const Entry &entry) { return entry.name() == key; });
    return found != entries_.end() ? *found
                                   : Entry(document(), YAML::Node(YAML::NodeType::Undefined),
                                           pathOf(key), key, place());
}

void Section::read(const std::string &key, std::string &field) const
{
    field = (*this)[key].javaText().value_or(field);
}

void Section::read(const std::string &key, std::filesystem::path &field) const
{
    if (const auto text = (*this)[key].text()) {
        field = document().absolute(*text);
    }
}

void Section::read(const std::string &key, std::vector<std::string> &field) const
{
    for (auto &[text, place] : (*this)[key].javaTexts()) {
        field.push_back(std::move(text));
    }
}

void Section::read(const std::string &key, std::chrono::milliseconds &field) const
{
    if (const auto nanoseconds = number(key)) {
        field = std::chrono::milliseconds(*nanoseconds / 1'000'000);
    }
}

std::optional<std::int64_t> Section::number(const std::string &key) const
{
    const FERRY_Setting &declared = *findSetting(keys::table, keys_, key);
    const Entry entry = (*this)[key];
    std::optional<std::string> value = entry.text();
    const std::string wrong = value ? complaint(entry.path(), declared, *value) : "";
    if (!wrong.empty()) {
        diagnostics().add(entry.place(), wrong);
        value.reset();
    }
    if (!value && declared.fallback != nullptr) {
        value = declared.fallback;
    }
    return value ? parseNumber(declared, *value) : std::nullopt;
}

} // namespace ferry
