// Texts as the Java VM can take them.
#ifndef FERRY_CONFIG_TEXT_H
#define FERRY_CONFIG_TEXT_H

#include <cstdint>
#include <string>
#include <string_view>

namespace ferry {

/// Length of the UTF-8 sequence at `at`, and its character; 0 when it is none.
std::size_t decodeUtf8(std::string_view text, std::size_t at, std::uint32_t &code);

/// Byte offset of the first sequence that is not UTF-8, or npos.
std::size_t findInvalidUtf8(const std::string &text);

/// Why a text cannot be handed to Java as it is ("" when it can): the VM takes strings of native
/// code in a modified UTF-8, where a NUL ends the text and a character beyond U+FFFF comes out
/// garbled.
std::string rejectionForJava(const std::string &text);

} // namespace ferry

#endif
