// What somebody meant who wrote a name that does not exist.
#ifndef FERRY_SETTINGS_SUGGESTION_H
#define FERRY_SETTINGS_SUGGESTION_H

#include <string>
#include <vector>

namespace ferry {

/// `; did you mean "x"?` with the candidate that takes the fewest edits (insert, remove, change,
/// swap of neighbours; case counts nothing), or "" if none is near. The last part of a dotted name
/// is near to the whole.
std::string suggestion(const std::string &word, const std::vector<std::string> &candidates);

} // namespace ferry

#endif
