#include "settings/value.h"

#include <algorithm>
#include <charconv>

#include <fmt/format.h>

#include "settings/suggestion.h"

namespace ferry {
namespace {

struct Kind {
    const char *name;
    const char *expected;
    /// Behind the limits of a number.
    const char *examples;
};

// In the order of FERRY_SettingKind.
constexpr Kind kinds[] = {{"text", "a text", ""},
                          {"secret", "a secret", ""},
                          {"path", "a path", ""},
                          {"flag", "true or false", ""},
                          {"choice", "one of ", ""},
                          {"whole", "a whole number", ""},
                          {"bytes", "a number of bytes", ", such as 4096, 64KiB or 8MiB"},
                          {"duration", "a duration", ", such as 100ms, 1.5s or 5m"},
                          {"group", "a text each", ""},
                          {"list", "a list", ""},
                          {"section", "a mapping", ""}};

/// An unknown kind is a text.
const Kind &kindOf(std::uint32_t kind)
{
    return kind < std::size(kinds) ? kinds[kind] : kinds[FERRY_SETTING_TEXT];
}

struct Unit {
    const char *name;
    std::int64_t factor;
};

/// The largest first; the last is what is left for a number that no other divides.
std::vector<Unit> unitsOf(std::uint32_t kind)
{
    switch (kind) {
    case FERRY_SETTING_BYTES:
        return {{"GiB", 1LL << 30}, {"MiB", 1LL << 20}, {"KiB", 1LL << 10}, {"", 1}};
    case FERRY_SETTING_DURATION:
        return {{"h", 3'600'000'000'000},
                {"m", 60'000'000'000},
                {"s", 1'000'000'000},
                {"ms", 1'000'000},
                {"us", 1'000}};
    default:
        return {{"", 1}};
    }
}

std::string_view stripped(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(" \t");
    const std::size_t last = text.find_last_not_of(" \t");
    return first == std::string_view::npos ? "" : text.substr(first, last - first + 1);
}

bool isDigits(std::string_view text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

std::optional<std::int64_t> parseWhole(std::string_view text)
{
    std::int64_t value = 0;
    const char *end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    return result.ec == std::errc() && result.ptr == end ? std::optional(value) : std::nullopt;
}

/// What decimals are worth; nothing if that is no whole number. From the last digit on: what does
/// not come out even there does not in the end.
std::optional<std::int64_t> parseFraction(std::string_view digits, std::int64_t factor)
{
    std::int64_t worth = 0;
    for (auto digit = digits.rbegin(); digit != digits.rend() && worth % 10 == 0; ++digit) {
        worth = worth / 10 + (*digit - '0') * factor;
    }
    return isDigits(digits) && worth % 10 == 0 ? std::optional(worth / 10) : std::nullopt;
}

/// Digits, of a duration perhaps decimals, and a unit.
std::optional<std::int64_t> parseQuantity(std::uint32_t kind, std::string_view text)
{
    const std::size_t unitAt = std::min(text.find_first_not_of("0123456789."), text.size());
    const std::size_t point = std::min(text.find('.'), unitAt);
    const std::vector<Unit> units = unitsOf(kind);
    const auto unit = std::find_if(units.begin(), units.end(), [&](const Unit &each) {
        return text.substr(unitAt) == each.name;
    });
    const auto whole = parseWhole(text.substr(0, point));
    std::int64_t result = 0;
    if (unit == units.end() || !whole || __builtin_mul_overflow(*whole, unit->factor, &result)) {
        return std::nullopt;
    }
    if (point == unitAt) {
        return result;
    }
    const auto rest = parseFraction(text.substr(point + 1, unitAt - point - 1), unit->factor);
    const bool fits =
        kind == FERRY_SETTING_DURATION && rest && !__builtin_add_overflow(result, *rest, &result);
    return fits ? std::optional(result) : std::nullopt;
}

bool hasNumber(std::uint32_t kind)
{
    return kind == FERRY_SETTING_WHOLE || kind == FERRY_SETTING_BYTES ||
           kind == FERRY_SETTING_DURATION;
}

std::optional<std::int64_t> wordIndex(const FERRY_Setting &setting, std::string_view word)
{
    const std::vector<std::string> words = wordsOf(setting);
    const auto found = std::find(words.begin(), words.end(), word);
    return found == words.end() ? std::nullopt : std::optional(found - words.begin());
}

} // namespace

std::optional<std::int64_t> parseNumber(const FERRY_Setting &setting, std::string_view text)
{
    if (!hasNumber(setting.kind)) {
        return wordIndex(setting, text);
    }
    text = stripped(text);
    return setting.kind == FERRY_SETTING_WHOLE ? parseWhole(text)
                                               : parseQuantity(setting.kind, text);
}

std::string numberText(std::uint32_t kind, std::int64_t number)
{
    if (number == 0) {
        return kind == FERRY_SETTING_DURATION ? "0s" : "0";
    }
    const std::vector<Unit> units = unitsOf(kind);
    const auto unit = std::find_if(units.begin(), units.end() - 1,
                                   [&](const Unit &each) { return number % each.factor == 0; });
    // Less than a microsecond is 0.5us.
    std::string rest = fmt::format(".{:03}", number % unit->factor);
    rest.erase(rest.find_last_not_of(".0") + 1);
    return fmt::format("{}{}{}", number / unit->factor, rest, unit->name);
}

std::vector<std::string> split(std::string_view text, char separator)
{
    std::vector<std::string> parts;
    for (std::size_t at = 0; !text.empty() && at <= text.size();) {
        const std::size_t end = std::min(text.find(separator, at), text.size());
        parts.emplace_back(stripped(text.substr(at, end - at)));
        at = end + 1;
    }
    return parts;
}

std::vector<std::string> wordsOf(const FERRY_Setting &setting)
{
    if (setting.kind == FERRY_SETTING_FLAG) {
        return {"false", "true"};
    }
    return split(setting.words == nullptr ? "" : setting.words, ' ');
}

bool accepts(const FERRY_Setting &setting, const std::string &value)
{
    const bool isWord = wordIndex(setting, value).has_value();
    if (hasNumber(setting.kind)) {
        const auto number = parseNumber(setting, value);
        return isWord || (number && *number >= setting.low && *number <= setting.high);
    }
    if (setting.kind == FERRY_SETTING_CHOICE || setting.kind == FERRY_SETTING_FLAG) {
        return isWord;
    }
    return setting.kind != FERRY_SETTING_PATH || !stripped(value).empty();
}

const char *kindName(std::uint32_t kind)
{
    return kindOf(kind).name;
}

std::string expectation(const FERRY_Setting &setting)
{
    const Kind &kind = kindOf(setting.kind);
    const std::string words = fmt::format("{}", fmt::join(wordsOf(setting), ", "));
    if (setting.expected != nullptr) {
        return setting.expected;
    }
    if (hasNumber(setting.kind)) {
        return fmt::format("{}{} from {} to {}{}", words.empty() ? "" : words + " or ",
                           kind.expected, numberText(setting.kind, setting.low),
                           numberText(setting.kind, setting.high), kind.examples);
    }
    return setting.kind == FERRY_SETTING_CHOICE ? kind.expected + words : kind.expected;
}

std::string complaint(const std::string &subject, const FERRY_Setting &setting,
                      const std::string &value)
{
    if (accepts(setting, value)) {
        return "";
    }
    return fmt::format("{} must be {}, not \"{}\"{}", subject, expectation(setting), value,
                       suggestion(value, wordsOf(setting)));
}

} // namespace ferry
