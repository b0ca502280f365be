// What stands in braces in the values of properties.
#ifndef FERRY_CONFIG_EXPAND_H
#define FERRY_CONFIG_EXPAND_H

#include <string>

namespace ferry {

/// Replaces every `${config_dir}`, `${env:NAME}` and `${file:PATH}` of a text; anything else in
/// braces is not ours. A file is read as text without the line ends behind it; relative paths start
/// from the directory. Returns what is missing ("needs NAME, which the environment does not have"),
/// or "".
std::string expand(std::string &text, const std::string &directory);

} // namespace ferry

#endif
