#include "settings/suggestion.h"

#include <algorithm>
#include <cctype>

#include <fmt/format.h>

namespace ferry {
namespace {

std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

/// "lat" for "position.lat", and "poll_ms" for "poll", whose unit stands in the value.
bool isNear(const std::string &word, const std::string &name)
{
    const std::string end = "." + word;
    return word == name + "_ms" || (name.size() > end.size() &&
                                    name.compare(name.size() - end.size(), end.size(), end) == 0);
}

/// Characters that are put in, left out, changed or swapped with their neighbours; `limit` without
/// a look at texts that differ so much in length alone.
std::size_t distance(const std::string &a, const std::string &b, std::size_t limit)
{
    if (std::max(a.size(), b.size()) - std::min(a.size(), b.size()) >= limit) {
        return limit;
    }
    std::vector<std::vector<std::size_t>> edits(a.size() + 1,
                                                std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            std::size_t &least = edits[i][j] = i + j;
            if (i > 0 && j > 0) {
                const std::size_t change = a[i - 1] == b[j - 1] ? 0 : 1;
                least = std::min(
                    {edits[i - 1][j] + 1, edits[i][j - 1] + 1, edits[i - 1][j - 1] + change});
            }
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                least = std::min(least, edits[i - 2][j - 2] + 1);
            }
        }
    }
    return edits[a.size()][b.size()];
}

} // namespace

std::string suggestion(const std::string &word, const std::vector<std::string> &candidates)
{
    const std::string wanted = lower(word);
    std::string best;
    std::size_t least = std::max<std::size_t>(2, word.size() / 3) + 1;
    for (const std::string &candidate : candidates) {
        const std::string name = lower(candidate);
        const std::size_t edits = isNear(wanted, name) ? 1 : distance(wanted, name, least);
        if (edits < std::min(least, name.size())) {
            best = candidate;
            least = edits;
        }
    }
    return best.empty() ? "" : fmt::format("; did you mean \"{}\"?", best);
}

} // namespace ferry
