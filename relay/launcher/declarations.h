// What adapters declare of their settings, native and Java ones alike, for people and programs.
#ifndef FERRY_LAUNCHER_DECLARATIONS_H
#define FERRY_LAUNCHER_DECLARATIONS_H

#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "ferryjni/settings.h"

namespace ferry {

/// What one adapter declares.
struct Declarations {
    /// As the user names it: a class, a plug-in, "ferry" for the host's own keys.
    std::string adapter;
    /// Why there is nothing to be had of it: "" where it has been asked.
    std::string missing;
    /// Whether it declares anything; false for an adapter that takes its properties unchecked.
    bool declares = false;
    std::vector<FERRY_Setting> settings;
    /// What the settings point to, if it is not a plug-in's own.
    std::shared_ptr<const std::string> texts;
};

/// The rows of a table, in its order; null declares nothing.
Declarations declarationsOf(const std::string &adapter, const FERRY_SettingTable *table);

/// The names of roles and sections, for people and for JSON: "reader".
std::vector<std::string> roleNames(std::uint32_t bits);

/// All of it as people read it.
std::string describe(const Declarations &declarations);

/// An array of objects, one for each setting.
nlohmann::ordered_json describeAsJson(const Declarations &declarations);

} // namespace ferry

#endif
