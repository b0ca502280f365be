// Collects what is wrong with a configuration file, so that one run shows all of it.
#ifndef FERRY_CONFIG_DIAGNOSTICS_H
#define FERRY_CONFIG_DIAGNOSTICS_H

#include <map>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

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
    template<class First, class... Args>
    void add(Place place, fmt::format_string<First, Args...> text, First &&first, Args &&...args)
    {
        add(place, fmt::format(text, std::forward<First>(first), std::forward<Args>(args)...));
    }
    /// A message that names its own place (of another file).
    void addForeign(Place place, const std::string &message);

    std::size_t count() const
    {
        return messages_.size();
    }
    bool empty() const
    {
        return messages_.empty();
    }
    /// One line each, in the order of the file.
    std::vector<std::string> lines() const;
    const std::string &file() const
    {
        return file_;
    }

private:
    std::string file_;
    /// By line and column; those of one place as they came.
    std::multimap<std::pair<int, int>, std::string> messages_;
};

} // namespace ferry

#endif
