// The grammar of values: one for property lists, configuration files and defaults.
#ifndef FERRY_SETTINGS_VALUE_H
#define FERRY_SETTINGS_VALUE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ferryjni/settings.h"

namespace ferry {

/// The number of a whole number, a size (bytes) or a duration (nanoseconds), within the setting's
/// limits or not; of a choice or a flag ("false" is 0) the index of the word. Nothing for a text
/// that is none, or is beyond 64 bits.
std::optional<std::int64_t> parseNumber(const FERRY_Setting &setting, std::string_view text);

/// A number as one would write it, in the largest unit that leaves no rest: "8MiB", "1500ms".
std::string numberText(std::uint32_t kind, std::int64_t number);

/// The parts of a text between separators, without the blanks around them; none of an empty text.
std::vector<std::string> split(std::string_view text, char separator);

/// The words of a choice, or those that may stand in place of a number.
std::vector<std::string> wordsOf(const FERRY_Setting &setting);

/// Whether the setting may have this value.
bool accepts(const FERRY_Setting &setting, const std::string &value);

/// The kind by the name that people and programs know it under: "duration".
const char *kindName(std::uint32_t kind);

/// What the value may be, for a message: "a whole number from 1 to 10".
std::string expectation(const FERRY_Setting &setting);

/// "" for a value that the setting may have, else what is wrong with it. `subject` is the setting's
/// name as its user knows it: `property "depth"`, `sessions.s.period`. It shows no secret.
std::string complaint(const std::string &subject, const FERRY_Setting &setting,
                      const std::string &value);

} // namespace ferry

#endif
