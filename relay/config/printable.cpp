#include "config/printable.h"

#include <cstdint>

#include "config/text.h"

namespace ferry {
namespace {

bool turnsDirection(std::uint32_t code)
{
    return code == 0x61C || code == 0x200E || code == 0x200F ||
           (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
}

bool isUnsafe(std::uint32_t code)
{
    const bool control = code < 0x20 || (code >= 0x7F && code < 0xA0);
    const bool separatesLines = code == 0x2028 || code == 0x2029;
    return control || separatesLines || turnsDirection(code);
}

std::string hex(const char *prefix, std::uint32_t code, int digits)
{
    std::string text = prefix;
    for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
        text += "0123456789abcdef"[(code >> shift) & 0xFU];
    }
    return text;
}

std::string escape(std::uint32_t code)
{
    constexpr const char *letters = "abtnvfr"; // \a is 7, \r is 13
    if (code >= '\a' && code <= '\r') {
        return {'\\', letters[code - '\a']};
    }
    return code < 0x80 ? hex("\\x", code, 2) : hex("\\u", code, 4);
}

} // namespace

std::string printable(std::string_view text, Layout layout)
{
    std::string result;
    result.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        std::uint32_t code = 0;
        const std::size_t length = decodeUtf8(text, at, code);
        const bool own = layout == Layout::kept && (code == '\n' || code == '\t');
        if (length == 0) {
            result += hex("\\x", static_cast<unsigned char>(text[at]), 2);
        } else if (isUnsafe(code) && !own) {
            result += escape(code);
        } else {
            result += text.substr(at, length);
        }
        at += length == 0 ? 1 : length;
    }
    return result;
}

std::string forLog(std::string_view text, Layout layout)
{
    return printable(withoutSecrets(text), layout);
}

} // namespace ferry
