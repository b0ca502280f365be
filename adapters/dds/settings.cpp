#include "settings.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>

#include "error.h"

namespace ferrydds {
namespace {

enum class Kind { text, choice, whole, wholeOrAll, duration };

constexpr std::int64_t most = 2147483647;
constexpr std::int64_t nanosecondsPerHour = 3'600'000'000'000;
// A year: far beyond any use, and far from what 64 bits of nanoseconds hold.
constexpr std::int64_t longest = 8760 * nanosecondsPerHour;

struct Row {
    const char *name;
    unsigned places;
    Kind kind;
    /// Of a duration without a default: no limit.
    const char *fallback;
    /// Words of a choice, separated by blanks.
    const char *words = "";
    /// Of numbers and durations: the largest, and the smallest.
    std::int64_t high{};
    std::int64_t low{};
    bool changeable{};
};

constexpr unsigned stream = onReader | onWriter;

constexpr Row table[] = {
    {"domain", onConnection, Kind::whole, "0", "", 230},
    {"interfaces", onConnection, Kind::text, "loopback"},
    {"multicast", onConnection, Kind::choice, "all", "none discovery all"},
    {"peers", onConnection, Kind::text, ""},
    {"engine_xml", onConnection, Kind::text, ""},
    {"name", onConnection, Kind::text, "ferry"},
    {"type_timeout", onConnection, Kind::duration, "2s", "", longest},
    {"partitions", onConnection | stream, Kind::text, ""},
    {"topic", stream, Kind::text, ""},
    {"type_name", stream, Kind::text, ""},
    {"reliability", stream, Kind::choice, "reliable", "reliable best_effort auto"},
    {"durability", stream, Kind::choice, "volatile", "volatile transient_local auto"},
    {"history", stream, Kind::choice, "keep_all", "keep_all keep_last"},
    {"depth", stream, Kind::whole, "1", "", most, 1},
    {"durable_depth", onWriter, Kind::wholeOrAll, "1", "", most, 1},
    {"deadline", stream, Kind::duration, "0s", "", longest},
    {"ownership", stream, Kind::choice, "shared", "shared exclusive auto"},
    {"match", stream, Kind::choice, "type", "type name"},
    {"ignore_local", stream, Kind::choice, "process", "process participant none"},
    {"max_samples", onReader, Kind::whole, "8192", "", most},
    {"batch", onReader, Kind::whole, "1024", "", 1'000'000, 1, true},
    {"batch_bytes", onReader, Kind::whole, "8388608", "", 1LL << 40, 1, true},
    {"time_based_filter", onReader, Kind::duration, "0s", "", longest},
    {"representation", onWriter, Kind::choice, "auto", "auto xcdr1 xcdr2"},
    {"ownership_strength", onWriter, Kind::whole, "0", "", most},
    {"lifespan", onWriter, Kind::duration, "0s", "", longest},
    {"autodispose", onWriter, Kind::choice, "false", "true false"},
    {"write_timeout", onWriter, Kind::duration, "15s", "", longest},
    {"wait_for_readers", onWriter, Kind::whole, "0", "", most},
    {"wait_timeout", onWriter, Kind::duration, "30s", "", longest},
    {"linger", onWriter, Kind::duration, "5s", "", longest, 0, true},
    {"timestamps", onWriter, Kind::choice, "source", "source now"},
};
static_assert(std::size(table) == static_cast<std::size_t>(Setting::count));

/// Properties with these names are the host's own and pass through every adapter's list.
constexpr const char hostPrefix[] = "qel.ferrion.";

/// Edits (insert, remove, change) that lead from one word to another.
std::size_t distance(const std::string &a, const std::string &b)
{
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) {
        row[j] = j;
    }
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t change = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, change});
        }
    }
    return row[b.size()];
}

/// What to say of a name that is none of `place`: the nearest one that is, and all of them.
std::string unknownName(Place place, const std::string &name)
{
    std::string known;
    const char *nearest = nullptr;
    std::size_t least = std::max<std::size_t>(2, name.size() / 3) + 1;
    for (const Row &row : table) {
        if ((row.places & place) == 0) {
            continue;
        }
        known += (known.empty() ? "" : ", ") + std::string(row.name);
        const std::size_t edits = distance(name, row.name);
        if (edits < least && edits < std::strlen(row.name)) {
            least = edits;
            nearest = row.name;
        }
    }
    const std::string hint =
        nearest == nullptr ? "" : "; did you mean '" + std::string(nearest) + "'?";
    return hint + " (known: " + (known.empty() ? "none" : known) + ")";
}

std::vector<std::string> wordsOf(const Row &row)
{
    std::vector<std::string> words;
    const std::string all = row.words;
    for (std::size_t at = 0; at < all.size();) {
        const std::size_t end = std::min(all.find(' ', at), all.size());
        words.push_back(all.substr(at, end - at));
        at = end + 1;
    }
    return words;
}

std::optional<std::int64_t> parseWhole(const std::string &text)
{
    std::int64_t value = 0;
    const char *end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    return result.ec == std::errc() && result.ptr == end ? std::optional(value) : std::nullopt;
}

std::optional<std::int64_t> parseDuration(const std::string &text)
{
    const std::size_t unitAt = std::min(text.find_first_not_of("0123456789."), text.size());
    const std::string unit = text.substr(unitAt);
    const double factor = unit == "ms"  ? 1e6
                          : unit == "s" ? 1e9
                          : unit == "m" ? 60e9
                          : unit == "h" ? 3600e9
                                        : -1;
    double value = 0;
    const char *end = text.data() + unitAt;
    const auto result = std::from_chars(text.data(), end, value);
    if (factor < 0 || result.ec != std::errc() || result.ptr != end ||
        value * factor > static_cast<double>(longest)) {
        return std::nullopt;
    }
    return std::llround(value * factor);
}

bool fits(const Row &row, const std::string &value)
{
    switch (row.kind) {
    case Kind::text:
        return true;
    case Kind::choice: {
        const std::vector<std::string> words = wordsOf(row);
        return std::find(words.begin(), words.end(), value) != words.end();
    }
    case Kind::wholeOrAll:
        if (value == "all") {
            return true;
        }
        break;
    case Kind::whole:
    case Kind::duration:
        break;
    }
    const auto number = row.kind == Kind::duration ? parseDuration(value) : parseWhole(value);
    return number && *number >= row.low && *number <= row.high;
}

std::string expectation(const Row &row)
{
    if (row.kind == Kind::whole || row.kind == Kind::wholeOrAll) {
        return "a whole number from " + std::to_string(row.low) + " to " +
               std::to_string(row.high) + (row.kind == Kind::wholeOrAll ? ", or all" : "");
    }
    if (row.kind == Kind::duration) {
        return "a duration such as 100ms, 2s, 5m or 1h, at most " +
               std::to_string(row.high / nanosecondsPerHour) + "h";
    }
    std::string all;
    for (const std::string &word : wordsOf(row)) {
        all += (all.empty() ? "one of " : ", ") + word;
    }
    return all;
}

std::string placesOf(const Row &row)
{
    std::string all;
    const auto add = [&](unsigned place, const char *name) {
        if ((row.places & place) != 0) {
            all += (all.empty() ? "" : " and ") + std::string(name);
        }
    };
    add(onConnection, "connections");
    add(onReader, "readers");
    add(onWriter, "writers");
    return all;
}

std::string textOf(const char *text)
{
    return text == nullptr ? "" : text;
}

} // namespace

Settings::Settings(Place place, std::string owner, const QEL_FerrionProperties *properties,
                   const Settings *defaults)
    : place_(place), owner_(std::move(owner))
{
    for (std::size_t i = 0; defaults != nullptr && i < values_.size(); ++i) {
        if ((table[i].places & place) != 0 && defaults->values_[i]) {
            values_[i] = defaults->values_[i];
            refuse(i, *values_[i]);
        }
    }
    for (std::int32_t i = 0; properties != nullptr && i < properties->count; ++i) {
        take(textOf(properties->properties[i].name), textOf(properties->properties[i].value));
    }
}

void Settings::take(const std::string &name, const std::string &value)
{
    if (name.rfind(hostPrefix, 0) == 0) {
        return;
    }
    const auto *row = std::find_if(std::begin(table), std::end(table),
                                   [&](const Row &r) { return name == r.name; });
    if (row == std::end(table)) {
        throw Failure(owner_ + ": unknown property '" + name + "'" + unknownName(place_, name));
    }
    if ((row->places & place_) == 0) {
        throw Failure(owner_ + ": property '" + name + "' is one of " + placesOf(*row) +
                      unknownName(place_, name));
    }
    const auto index = static_cast<std::size_t>(row - std::begin(table));
    refuse(index, value);
    values_[index] = value;
}

/// Throws unless the value is one that the property can have here.
void Settings::refuse(std::size_t index, const std::string &value) const
{
    const Row &row = table[index];
    if (!fits(row, value)) {
        throw Failure(owner_ + ": property '" + row.name + "' is '" + value + "', expected " +
                      expectation(row));
    }
}

void Settings::update(const QEL_FerrionProperties *properties)
{
    const Settings updated(place_, owner_, properties, this);
    for (std::size_t i = 0; i < values_.size(); ++i) {
        const auto setting = static_cast<Setting>(i);
        if (!table[i].changeable && updated.text(setting) != text(setting)) {
            std::string changeable;
            for (const Row &row : table) {
                if (row.changeable && (row.places & place_) != 0) {
                    changeable += (changeable.empty() ? "" : ", ") + std::string(row.name);
                }
            }
            throw Failure(owner_ + ": property '" + table[i].name +
                          "' cannot be changed while in use (those that can: " +
                          (changeable.empty() ? "none" : changeable) + ")");
        }
    }
    values_ = updated.values_;
}

const char *Settings::name(Setting setting)
{
    return table[static_cast<std::size_t>(setting)].name;
}

std::string Settings::text(Setting setting) const
{
    const auto index = static_cast<std::size_t>(setting);
    return values_[index] ? *values_[index] : table[index].fallback;
}

std::int64_t Settings::number(Setting setting) const
{
    return parseWhole(text(setting)).value_or(0);
}

std::int64_t Settings::nanoseconds(Setting setting) const
{
    return parseDuration(text(setting)).value_or(0);
}

std::vector<std::string> Settings::list(Setting setting) const
{
    std::vector<std::string> elements;
    const std::string all = text(setting);
    for (std::size_t at = 0; !all.empty() && at <= all.size();) {
        const std::size_t end = std::min(all.find(',', at), all.size());
        const std::string element = all.substr(at, end - at);
        const std::size_t first = element.find_first_not_of(" \t");
        const std::size_t last = element.find_last_not_of(" \t");
        elements.push_back(first == std::string::npos ? ""
                                                      : element.substr(first, last - first + 1));
        at = end + 1;
    }
    return elements;
}

} // namespace ferrydds
