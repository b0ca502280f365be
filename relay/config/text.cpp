#include "config/text.h"

#include <cstdint>

namespace ferry {

std::size_t decodeUtf8(std::string_view text, std::size_t at, std::uint32_t &code)
{
    const auto byte = [&](std::size_t i) -> unsigned {
        return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
    };
    const unsigned lead = byte(at);
    std::size_t length = 0;
    code = lead;
    if (lead < 0x80) {
        return 1;
    }
    if (lead >= 0xC2 && lead < 0xE0) {
        length = 2;
        code = lead & 0x1FU;
    } else if (lead >= 0xE0 && lead < 0xF0) {
        length = 3;
        code = lead & 0x0FU;
    } else if (lead >= 0xF0 && lead < 0xF5) {
        length = 4;
        code = lead & 0x07U;
    } else {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(at + i) & 0xC0U) != 0x80U) {
            return 0;
        }
        code = (code << 6) | (byte(at + i) & 0x3FU);
    }
    const bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    const bool surrogate = code >= 0xD800 && code < 0xE000;
    return overlong || surrogate || code > 0x10FFFF ? 0 : length;
}

std::size_t findInvalidUtf8(const std::string &text)
{
    std::uint32_t code = 0;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = decodeUtf8(text, at, code);
        if (length == 0) {
            return at;
        }
        at += length;
    }
    return std::string::npos;
}

std::string rejectionForJava(const std::string &text)
{
    std::uint32_t code = 0;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t length = decodeUtf8(text, at, code);
        if (length == 0) {
            return "is not valid UTF-8";
        }
        if (text[at] == '\0') {
            return "holds a NUL character, which cannot be handed to Java";
        }
        if (length == 4) {
            return "holds a character beyond U+FFFF (\"" + text.substr(at, 4) +
                   "\"), which cannot be handed to Java unchanged";
        }
        at += length;
    }
    return "";
}

} // namespace ferry
