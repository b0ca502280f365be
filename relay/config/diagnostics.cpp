#include "config/diagnostics.h"

#include <algorithm>
#include <cctype>

namespace ferry {
namespace {

/// Edits (insert, remove, change, swap of neighbours) between two words; case counts nothing.
std::size_t distance(const std::string &a, const std::string &b)
{
    const auto lower = [](char c) { return std::tolower(static_cast<unsigned char>(c)); };
    std::vector<std::vector<std::size_t>> table(a.size() + 1,
                                                std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                table[i][j] = i + j;
                continue;
            }
            const std::size_t change = lower(a[i - 1]) == lower(b[j - 1]) ? 0 : 1;
            std::size_t best =
                std::min({table[i - 1][j] + 1, table[i][j - 1] + 1, table[i - 1][j - 1] + change});
            if (i > 1 && j > 1 && lower(a[i - 1]) == lower(b[j - 2]) &&
                lower(a[i - 2]) == lower(b[j - 1])) {
                best = std::min(best, table[i - 2][j - 2] + 1);
            }
            table[i][j] = best;
        }
    }
    return table[a.size()][b.size()];
}

} // namespace

void Diagnostics::add(Place place, const std::string &message)
{
    std::string text = file_ + ":";
    if (place.line > 0) {
        text += std::to_string(place.line) + ":" + std::to_string(place.column) + ":";
    }
    entries_.push_back({place, text + " " + message});
}

void Diagnostics::addForeign(Place place, const std::string &message)
{
    entries_.push_back({place, message});
}

std::vector<std::string> Diagnostics::lines() const
{
    std::vector<Entry> sorted = entries_;
    std::stable_sort(sorted.begin(), sorted.end(), [](const Entry &a, const Entry &b) {
        return a.place.line != b.place.line ? a.place.line < b.place.line
                                            : a.place.column < b.place.column;
    });
    std::vector<std::string> result;
    for (const Entry &entry : sorted) {
        if (result.empty() || result.back() != entry.text) {
            result.push_back(entry.text);
        }
    }
    return result;
}

std::string suggestion(const std::string &word, const std::vector<std::string> &candidates)
{
    const std::string *best = nullptr;
    std::size_t bestDistance = 0;
    for (const std::string &candidate : candidates) {
        const std::size_t edits = distance(word, candidate);
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
