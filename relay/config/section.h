// Typed, strict access to a YAML file: every complaint names the place and the key.
//
// The parser is yaml-cpp: it keeps line and column of every node (libyaml's events do too, but
// leave aliases, tags and the tree to us), and it is in every distribution.
#ifndef FERRY_CONFIG_SECTION_H
#define FERRY_CONFIG_SECTION_H

#include <optional>
#include <string>
#include <vector>

#include <yaml-cpp/yaml.h>

#include "config/configuration.h"

namespace ferry {

Place placeOf(const YAML::Mark &mark);

/// What all values of a file have in common.
struct Document {
    Diagnostics &diagnostics;
    /// Absolute; relative paths start from it.
    std::filesystem::path directory;

    std::filesystem::path absolute(const std::string &path) const
    {
        return (directory / path).lexically_normal();
    }
};

/// What stands below a key or in a list, if anything does. It outlives no document.
class Entry {
public:
    /// `path` is what messages call it: "routes.r.outputs[0]"; the file as a whole has none.
    Entry(const Document &document, const YAML::Node &node, std::string path, std::string name,
          Place keyPlace);

    bool isGiven() const
    {
        return node_.IsDefined();
    }
    /// The key.
    const std::string &name() const
    {
        return name_;
    }
    const std::string &path() const
    {
        return path_;
    }
    /// Of the value, which need not stand at its key: an alias does not.
    Place place() const
    {
        return placeOf(node_.Mark());
    }
    Place keyPlace() const
    {
        return keyPlace_;
    }
    const Document &document() const
    {
        return *document_;
    }
    Diagnostics &diagnostics() const
    {
        return document_->diagnostics;
    }
    const YAML::Node &node() const
    {
        return node_;
    }

    /// A text that may be empty only if asked for; complains about anything else.
    std::optional<std::string> text(bool mayBeEmpty = false) const;
    /// The same, for a text that goes to Java.
    std::optional<std::string> javaText() const;
    /// Of a mapping whose keys the user chooses; a key that is not distinct, or that Java cannot
    /// take, is left out with a complaint.
    std::vector<Entry> entries() const;
    /// Of a list. `what` names them in a complaint; nothing is a list unless one must be there.
    std::vector<Entry> elements(const char *what, std::size_t least) const;
    /// A list of texts for Java; wrong ones are left out with a complaint.
    std::vector<std::pair<std::string, Place>> javaTexts() const;
    /// Free-form properties: nested mappings are joined by dots, lists are rejected. In values,
    /// `${config_dir}` stands for the directory and `${env:NAME}` for a variable.
    void readProperties(PropertySource &source) const;

    /// Complains at the value. The first `{}` of the text stands for the path.
    template<class... Args>
    void complain(fmt::format_string<const std::string &, Args...> text, Args &&...args) const
    {
        diagnostics().add(place(), text, path_, std::forward<Args>(args)...);
    }

protected:
    std::string pathOf(const std::string &key) const
    {
        return path_.empty() ? key : path_ + "." + key;
    }
    /// For the end of a message.
    std::string within() const
    {
        return path_.empty() ? "" : " in " + path_;
    }

private:
    const Document *document_;
    YAML::Node node_;
    std::string path_;
    std::string name_;
    Place keyPlace_;
};

/// A mapping whose keys are declared; nothing is an empty one. The constructor complains about keys
/// that are unknown or missing; the readers, each called once a key, about values.
class Section : public Entry {
public:
    /// `keys` is one of the sections of keys.h.
    Section(const Entry &entry, std::uint32_t keys);

    /// The key's entry, given or not.
    Entry operator[](const std::string &key) const;
    bool has(const std::string &key) const
    {
        return (*this)[key].isGiven();
    }
    void complainOfMissing(const std::string &key, const char *reason = "") const;

    // Each leaves the field as it is if the file gives no usable value and no default is declared.

    /// A text, which may go to Java.
    void read(const std::string &key, std::string &field) const;
    /// Absolute.
    void read(const std::string &key, std::filesystem::path &field) const;
    void read(const std::string &key, std::vector<std::string> &field) const;
    void read(const std::string &key, std::chrono::milliseconds &field) const;
    /// A whole number, bytes, or an enumeration in the order of a choice's words.
    template<class Number> void read(const std::string &key, Number &field) const
    {
        if (const auto number = this->number(key)) {
            field = static_cast<Number>(*number);
        }
    }
    /// A whole number, bytes, a duration's nanoseconds, or the index of a choice's word: the key's,
    /// else the declared default, else nothing.
    std::optional<std::int64_t> number(const std::string &key) const;

private:
    std::uint32_t keys_;
    std::vector<Entry> entries_;
};

} // namespace ferry

#endif
