// Property lists held against declarations.
#ifndef FERRY_SETTINGS_CHECK_H
#define FERRY_SETTINGS_CHECK_H

#include <string>
#include <utility>
#include <vector>

#include "ferryjni/settings.h"

namespace ferry {

/// Names and values in the order in which they were written.
using PropertyList = std::vector<std::pair<std::string, std::string>>;

/// One fault of a list. The text names the property too.
struct SettingProblem {
    std::string name;
    std::string text;
};

/// The setting that a property gives a value to; null if the table has none for the role.
const FERRY_Setting *findSetting(const FERRY_SettingTable &table, std::uint32_t role,
                                 const std::string &name);

/// What is wrong with a list: names that the role does not have, values that are not allowed, and
/// what is missing; all of it. Properties of the host are passed over, whatever they hold.
std::vector<SettingProblem> checkProperties(const FERRY_SettingTable &table, std::uint32_t role,
                                            const PropertyList &properties);

/// Names with commas between them; "none" if there are none.
std::string namesText(const std::vector<std::string> &names);

} // namespace ferry

#endif
