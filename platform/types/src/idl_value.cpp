// See idl_value.h.
#include "idl_value.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>

#include "idl_scan.h"

namespace qddsc {

namespace {

const char *behindBlanks(const char *at)
{
    return at + std::strspn(at, " \t\r\n");
}

/// Up to `most` digits of a base behind an escape.
char readCode(const char *&at, const char *end, int base, int most)
{
    std::string digits;
    while (at != end && digits.size() < static_cast<size_t>(most) &&
           std::isxdigit(static_cast<unsigned char>(*at)) != 0 && (base == 16 || *at < '8')) {
        digits += *at++;
    }
    return static_cast<char>(std::strtol(digits.c_str(), nullptr, base));
}

/// The character of an escape; `at` is behind the backslash.
char readEscape(const char *&at, const char *end)
{
    static const char names[] = "ntvbrfa";
    static const char characters[] = "\n\t\v\b\r\f\a";
    if (*at >= '0' && *at <= '7') {
        return readCode(at, end, 8, 3);
    }
    const char name = *at++;
    if (name == 'x') {
        return readCode(at, end, 16, 2);
    }
    const char *const known = std::strchr(names, name);
    return known != nullptr ? characters[known - names] : name;
}

std::string withoutQuotes(const char *at, size_t length)
{
    const char *const end = at + length - 1;
    std::string text;
    for (++at; at != end;) {
        const char character = *at++;
        text += character == '\\' && at != end ? readEscape(at, end) : character;
    }
    return text;
}

bool isNumber(const std::string &text)
{
    const size_t sign = text.find_first_not_of("+-") == 1 ? 1 : 0;
    return text.size() > sign &&
           (std::isdigit(static_cast<unsigned char>(text[sign])) != 0 || text[sign] == '.') &&
           text.find_first_not_of("0123456789abcdefABCDEFxX.+-") == std::string::npos;
}

bool isScopedName(const std::string &text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(),
                                        [](char each) { return isWord(each) || each == ':'; });
}

/// Texts behind each other are one.
std::optional<IdlValue> readQuoted(const char *at)
{
    const char quote = *at;
    std::string text;
    while (*at == quote) {
        const size_t length = quoteLength(at);
        if (length < 2 || at[length - 1] != quote) {
            return std::nullopt;
        }
        text += withoutQuotes(at, length);
        at = behindBlanks(at + length);
    }
    if (*at != '\0') {
        return std::nullopt;
    }
    return IdlValue{quote == '"' ? IdlValue::Form::text : IdlValue::Form::character, text};
}

} // namespace

std::optional<IdlValue> readIdlValue(const std::string &arguments)
{
    const char *at = behindBlanks(arguments.c_str());
    if (std::strncmp(at, "value", 5) == 0 && *behindBlanks(at + 5) == '=') {
        at = behindBlanks(behindBlanks(at + 5) + 1);
    }
    if (*at == '"' || *at == '\'') {
        return readQuoted(at);
    }
    std::string rest = at;
    rest.erase(rest.find_last_not_of(" \t\r\n") + 1);
    if (isNumber(rest)) {
        return IdlValue{IdlValue::Form::number, rest};
    }
    if (isScopedName(rest)) {
        return IdlValue{IdlValue::Form::word, rest};
    }
    return std::nullopt;
}

} // namespace qddsc
