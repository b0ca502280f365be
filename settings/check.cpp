#include "settings/check.h"

#include <algorithm>
#include <cstring>

#include <fmt/format.h>

#include "settings/suggestion.h"
#include "settings/value.h"

namespace ferry {
namespace {

struct Role {
    std::uint32_t bit;
    const char *name;
};

constexpr Role roles[] = {
    {FERRY_SETTING_OF_ADAPTER, "adapters"}, {FERRY_SETTING_OF_CONNECTION, "connections"},
    {FERRY_SETTING_OF_SESSION, "sessions"}, {FERRY_SETTING_OF_READER, "readers"},
    {FERRY_SETTING_OF_WRITER, "writers"},   {FERRY_SETTING_OF_DISCOVERY, "connections"},
};

bool takes(const FERRY_Setting &setting, const std::string &name)
{
    return setting.kind == FERRY_SETTING_GROUP
               ? name.rfind(setting.name, 0) == 0 && name.size() > std::strlen(setting.name)
               : name == setting.name;
}

/// A connection takes what its discovery needs, too.
bool belongs(const FERRY_Setting &setting, std::uint32_t role)
{
    const bool connection = role == FERRY_SETTING_OF_CONNECTION;
    return (setting.roles & (connection ? role | FERRY_SETTING_OF_DISCOVERY : role)) != 0;
}

std::string unknown(const FERRY_SettingTable &table, std::uint32_t role, const std::string &name)
{
    std::vector<std::string> known;
    std::string elsewhere;
    for (std::uint32_t i = 0; i < table.count; ++i) {
        const FERRY_Setting &setting = table.settings[i];
        if (belongs(setting, role)) {
            known.emplace_back(setting.name);
        } else if (takes(setting, name)) {
            elsewhere = fmt::format(", which belongs to {}", rolesText(setting.roles));
        }
    }
    return fmt::format("unknown property \"{}\"{}{} (known: {})", name, elsewhere,
                       suggestion(name, known),
                       known.empty() ? "none" : fmt::format("{}", fmt::join(known, ", ")));
}

} // namespace

bool isOfHost(const std::string &name)
{
    return name.rfind("qel.ferrion.", 0) == 0;
}

const FERRY_Setting *findSetting(const FERRY_SettingTable &table, std::uint32_t role,
                                 const std::string &name)
{
    const FERRY_Setting *const end = table.settings + table.count;
    const FERRY_Setting *const found =
        std::find_if(table.settings, end, [&](const FERRY_Setting &setting) {
            return belongs(setting, role) && takes(setting, name);
        });
    return found == end ? nullptr : found;
}

std::vector<SettingProblem> checkProperties(const FERRY_SettingTable &table, std::uint32_t role,
                                            const PropertyList &properties)
{
    std::vector<SettingProblem> problems;
    for (const auto &[name, value] : properties) {
        const FERRY_Setting *const setting = findSetting(table, role, name);
        const std::string text =
            isOfHost(name)       ? ""
            : setting == nullptr ? unknown(table, role, name)
                                 : complaint(fmt::format("property \"{}\"", name), *setting, value);
        if (!text.empty()) {
            problems.push_back({name, text});
        }
    }
    for (std::uint32_t i = 0; i < table.count; ++i) {
        const FERRY_Setting &setting = table.settings[i];
        const bool given =
            std::any_of(properties.begin(), properties.end(),
                        [&](const auto &property) { return takes(setting, property.first); });
        if ((setting.flags & FERRY_SETTING_REQUIRED) != 0 && belongs(setting, role) && !given) {
            problems.push_back(
                {setting.name, fmt::format("missing property \"{}\": {} ({})", setting.name,
                                           setting.help, expectation(setting))});
        }
    }
    return problems;
}

std::string rolesText(std::uint32_t bits)
{
    std::vector<std::string> names;
    for (const Role &role : roles) {
        if ((bits & role.bit) != 0 &&
            std::find(names.begin(), names.end(), role.name) == names.end()) {
            names.emplace_back(role.name);
        }
    }
    std::string last = names.empty() ? "" : names.back();
    if (names.size() < 2) {
        return last;
    }
    names.pop_back();
    return fmt::format("{} and {}", fmt::join(names, ", "), last);
}

} // namespace ferry
