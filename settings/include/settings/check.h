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

/// Whether a property is the host's own: adapters pass over such, whatever they hold.
bool isOfHost(const std::string &name);

/// The setting that a property gives a value to; null if the table has none for the role.
const FERRY_Setting *findSetting(const FERRY_SettingTable &table, std::uint32_t role,
                                 const std::string &name);

/// What is wrong with a list: names that the role does not have, values that are not allowed, and
/// what is missing; all of it.
std::vector<SettingProblem> checkProperties(const FERRY_SettingTable &table, std::uint32_t role,
                                            const PropertyList &properties);

/// The roles of a set of FERRY_SETTING_OF_... bits, for people: "readers and writers".
std::string rolesText(std::uint32_t bits);

} // namespace ferry

#endif
