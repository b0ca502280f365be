// Collects what is wrong with a configuration file, so that one run shows all of it.
#ifndef FERRY_CONFIG_DIAGNOSTICS_H
#define FERRY_CONFIG_DIAGNOSTICS_H

#include <string>
#include <vector>

namespace ferry {

/// A place in the file, counted from 1; line 0 is the file as a whole.
struct Place {
    int line = 0;
    int column = 0;
};

class Diagnostics {
public:
    /// `file` stands before every message, as the user wrote it.
    explicit Diagnostics(std::string file) : file_(std::move(file)) {}

    void add(Place place, const std::string &message);
    /// A message that names its own place (of another file).
    void addForeign(Place place, const std::string &message);

    bool empty() const
    {
        return entries_.empty();
    }
    /// One line each, in the order of the file.
    std::vector<std::string> lines() const;
    const std::string &file() const
    {
        return file_;
    }

private:
    struct Entry {
        Place place;
        std::string text;
    };

    std::string file_;
    std::vector<Entry> entries_;
};

} // namespace ferry

#endif
