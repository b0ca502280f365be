#include "settings/value.h"

#include <algorithm>
#include <charconv>

#include <fmt/format.h>

#include "settings/suggestion.h"

namespace ferry {
namespace {

struct Unit {
    const char *name;
    std::int64_t factor;
};

// The largest first; the smallest is what is left for a number that no other divides.
constexpr Unit sizes[] = {{"GiB", 1LL << 30}, {"MiB", 1LL << 20}, {"KiB", 1LL << 10}, {"", 1}};
constexpr Unit durations[] = {{"h", 3'600'000'000'000},
                              {"m", 60'000'000'000},
                              {"s", 1'000'000'000},
                              {"ms", 1'000'000},
                              {"us", 1'000}};

std::string_view stripped(std::string_view text)
{
    const std::size_t first = text.find_first_not_of(" \t");
    const std::size_t last = text.find_last_not_of(" \t");
    return first == std::string_view::npos ? "" : text.substr(first, last - first + 1);
}

std::optional<std::int64_t> parseWhole(std::string_view text)
{
    std::int64_t value = 0;
    const char *end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    return result.ec == std::errc() && result.ptr == end ? std::optional(value) : std::nullopt;
}

bool isDigits(std::string_view text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

template<std::size_t size>
std::optional<std::int64_t> factorOf(const Unit (&units)[size], std::string_view name)
{
    const auto *const found = std::find_if(std::begin(units), std::end(units),
                                           [&](const Unit &unit) { return name == unit.name; });
    return found == std::end(units) ? std::nullopt : std::optional(found->factor);
}

std::optional<std::int64_t> product(std::string_view digits, std::int64_t factor)
{
    const auto number = isDigits(digits) ? parseWhole(digits) : std::nullopt;
    std::int64_t result = 0;
    if (!number || __builtin_mul_overflow(*number, factor, &result)) {
        return std::nullopt;
    }
    return result;
}

std::optional<std::int64_t> parseBytes(std::string_view text)
{
    const std::size_t unitAt = std::min(text.find_first_not_of("0123456789"), text.size());
    const auto factor = factorOf(sizes, text.substr(unitAt));
    return factor ? product(text.substr(0, unitAt), *factor) : std::nullopt;
}

/// What decimals are worth; nothing where that is no whole number of nanoseconds.
std::optional<std::int64_t> parseFraction(std::string_view digits, std::int64_t factor)
{
    constexpr std::size_t most = 18;
    if (!isDigits(digits)) {
        return std::nullopt;
    }
    digits = digits.substr(0, digits.find_last_not_of('0') + 1);
    __extension__ using Wide = __int128;
    Wide scale = 1;
    for (std::size_t i = 0; i < digits.size() && i < most; ++i) {
        scale *= 10;
    }
    const Wide scaled = Wide{factor} * parseWhole(digits).value_or(0);
    const bool exact = digits.size() <= most && scaled % scale == 0;
    return exact ? std::optional(static_cast<std::int64_t>(scaled / scale)) : std::nullopt;
}

std::optional<std::int64_t> parseDuration(std::string_view text)
{
    const std::size_t unitAt = std::min(text.find_first_not_of("0123456789."), text.size());
    const auto factor = factorOf(durations, text.substr(unitAt));
    const std::size_t point = std::min(text.find('.'), unitAt);
    auto result = factor ? product(text.substr(0, point), *factor) : std::nullopt;
    if (!result || point == unitAt) {
        return result;
    }
    const auto rest = parseFraction(text.substr(point + 1, unitAt - point - 1), *factor);
    const bool fits = rest && !__builtin_add_overflow(*result, *rest, &*result);
    return fits ? result : std::nullopt;
}

bool hasNumber(std::uint32_t kind)
{
    return kind == FERRY_SETTING_WHOLE || kind == FERRY_SETTING_BYTES ||
           kind == FERRY_SETTING_DURATION;
}

bool isWord(const FERRY_Setting &setting, const std::string &value)
{
    const std::vector<std::string> words = wordsOf(setting);
    return std::find(words.begin(), words.end(), value) != words.end();
}

std::string rangeOf(const FERRY_Setting &setting)
{
    const auto text = [&](std::int64_t number) { return numberText(setting.kind, number); };
    const char *const what = setting.kind == FERRY_SETTING_WHOLE   ? "a whole number"
                             : setting.kind == FERRY_SETTING_BYTES ? "a number of bytes"
                                                                   : "a duration";
    const char *const examples = setting.kind == FERRY_SETTING_WHOLE ? ""
                                 : setting.kind == FERRY_SETTING_BYTES
                                     ? ", such as 4096, 64KiB or 8MiB"
                                     : ", such as 100ms, 1.5s or 5m";
    return fmt::format("{} from {} to {}{}", what, text(setting.low), text(setting.high), examples);
}

} // namespace

std::optional<std::int64_t> parseNumber(std::uint32_t kind, std::string_view text)
{
    text = stripped(text);
    return kind == FERRY_SETTING_BYTES      ? parseBytes(text)
           : kind == FERRY_SETTING_DURATION ? parseDuration(text)
                                            : parseWhole(text);
}

std::string numberText(std::uint32_t kind, std::int64_t number)
{
    const auto in = [&](const auto &units) {
        const auto *const unit =
            std::find_if(std::begin(units), std::end(units) - 1, [&](const Unit &each) {
                return number != 0 && number % each.factor == 0;
            });
        std::string rest = fmt::format(".{:03}", number % unit->factor);
        rest.erase(rest.find_last_not_of(".0") + 1);
        return fmt::format("{}{}{}", number / unit->factor, rest, unit->name);
    };
    if (kind == FERRY_SETTING_DURATION) {
        return number == 0 ? "0s" : in(durations);
    }
    return kind == FERRY_SETTING_BYTES ? in(sizes) : std::to_string(number);
}

std::vector<std::string> wordsOf(const FERRY_Setting &setting)
{
    if (setting.kind == FERRY_SETTING_FLAG) {
        return {"true", "false"};
    }
    std::vector<std::string> words;
    const std::string all = setting.words == nullptr ? "" : setting.words;
    for (std::size_t at = 0; at < all.size();) {
        const std::size_t end = std::min(all.find(' ', at), all.size());
        words.push_back(all.substr(at, end - at));
        at = end + 1;
    }
    return words;
}

bool accepts(const FERRY_Setting &setting, const std::string &value)
{
    if (hasNumber(setting.kind)) {
        const auto number = parseNumber(setting.kind, value);
        return isWord(setting, value) ||
               (number && *number >= setting.low && *number <= setting.high);
    }
    const bool ofWords = setting.kind == FERRY_SETTING_CHOICE || setting.kind == FERRY_SETTING_FLAG;
    return ofWords ? isWord(setting, value)
                   : setting.kind != FERRY_SETTING_PATH || !stripped(value).empty();
}

std::string expectation(const FERRY_Setting &setting)
{
    const std::string words = fmt::format("{}", fmt::join(wordsOf(setting), ", "));
    switch (setting.kind) {
    case FERRY_SETTING_FLAG:
        return "true or false";
    case FERRY_SETTING_CHOICE:
        return "one of " + words;
    case FERRY_SETTING_WHOLE:
    case FERRY_SETTING_BYTES:
    case FERRY_SETTING_DURATION:
        return words.empty() ? rangeOf(setting) : words + " or " + rangeOf(setting);
    case FERRY_SETTING_SECRET:
        return "a secret";
    case FERRY_SETTING_PATH:
        return "a path";
    case FERRY_SETTING_GROUP:
        return "a text each";
    case FERRY_SETTING_LIST:
        return "a list";
    case FERRY_SETTING_SECTION:
        return "a mapping";
    default:
        return "a text";
    }
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
