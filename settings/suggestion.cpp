#include "settings/suggestion.h"

#include <algorithm>
#include <cctype>

namespace ferry {
namespace {

std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::size_t distance(const std::string &a, const std::string &b)
{
    std::vector<std::vector<std::size_t>> table(a.size() + 1,
                                                std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                table[i][j] = i + j;
                continue;
            }
            const std::size_t change = a[i - 1] == b[j - 1] ? 0 : 1;
            std::size_t best =
                std::min({table[i - 1][j] + 1, table[i][j - 1] + 1, table[i - 1][j - 1] + change});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
                best = std::min(best, table[i - 2][j - 2] + 1);
            }
            table[i][j] = best;
        }
    }
    return table[a.size()][b.size()];
}

bool isLastPart(const std::string &word, const std::string &name)
{
    return name.size() > word.size() && name[name.size() - word.size() - 1] == '.' &&
           name.compare(name.size() - word.size(), word.size(), word) == 0;
}

/// Whether a name has only lost its unit, as one does whose value has a unit now.
bool isWithoutUnit(const std::string &word, const std::string &name)
{
    return word == name + "_ms";
}

} // namespace

std::string suggestion(const std::string &word, const std::vector<std::string> &candidates)
{
    const std::string *best = nullptr;
    std::size_t bestDistance = 0;
    for (const std::string &candidate : candidates) {
        const std::string wanted = lower(word);
        const std::string name = lower(candidate);
        const bool near = isLastPart(wanted, name) || isWithoutUnit(wanted, name);
        const std::size_t edits = near ? 1 : distance(wanted, name);
        if (best == nullptr || edits < bestDistance) {
            best = &candidate;
            bestDistance = edits;
        }
    }
    const std::size_t limit = std::max<std::size_t>(2, word.size() / 3);
    if (best == nullptr || bestDistance > limit || bestDistance >= best->size()) {
        return "";
    }
    return "; did you mean \"" + *best + "\"?";
}

} // namespace ferry
