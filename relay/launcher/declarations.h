// What adapters declare of their settings, native and Java ones alike, for people and programs.
#ifndef FERRY_LAUNCHER_DECLARATIONS_H
#define FERRY_LAUNCHER_DECLARATIONS_H

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "ferryjni/settings.h"

namespace ferry {

/// One setting; texts are the record's own.
struct Declaration {
    /// FERRY_SETTING_OF_... bits.
    std::uint32_t roles = 0;
    std::string name;
    std::uint32_t kind = FERRY_SETTING_TEXT;
    /// What the value may be, in words.
    std::string allowed;
    std::vector<std::string> words;
    std::int64_t low = 0;
    std::int64_t high = 0;
    std::optional<std::string> fallback;
    bool required = false;
    bool changeable = false;
    std::string help;
};

/// What one adapter declares.
struct Declarations {
    /// As the user names it: a class, a plug-in, "ferry" for the host's own keys.
    std::string adapter;
    /// Why there is nothing to be had of it: "" where it has been asked.
    std::string missing;
    /// Whether it declares anything; false for an adapter that takes its properties unchecked.
    bool declares = false;
    std::vector<Declaration> settings;
};

/// The rows of a table, in its order.
std::vector<Declaration> declarationsOf(const FERRY_SettingTable &table);

/// Joins settings that differ in their role alone, so that each is listed once.
std::vector<Declaration> joinedRoles(const std::vector<Declaration> &settings);

/// The name of a role or section, for people and for JSON: "reader".
std::vector<std::string> roleNames(std::uint32_t bits);

/// A role by its name, 0 for none.
std::uint32_t roleOf(const std::string &name);

/// A kind by its name, "whole", and back; a text for one that is unknown.
std::uint32_t kindOf(const std::string &name);
const char *kindName(std::uint32_t kind);

/// All of it as people read it.
std::string describe(const Declarations &declarations);

/// An array of objects, one for each setting.
nlohmann::ordered_json describeAsJson(const Declarations &declarations);

} // namespace ferry

#endif
