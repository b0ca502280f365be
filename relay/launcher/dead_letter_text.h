// Dead letters as people and programs read them.
#ifndef FERRY_LAUNCHER_DEAD_LETTER_TEXT_H
#define FERRY_LAUNCHER_DEAD_LETTER_TEXT_H

#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "state/dead_letters.h"

namespace ferry {

/// A line for each below a line of headings, in columns.
std::vector<std::string> deadLetterTable(const std::vector<KeptLetter> &letters);

/// All of one letter, a line for each thing that is known.
std::string describe(const KeptLetter &letter);

/// With the type's IDL and the sample's bytes if they were fetched.
nlohmann::ordered_json describeAsJson(const KeptLetter &letter);

} // namespace ferry

#endif
