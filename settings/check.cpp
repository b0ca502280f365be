#include "settings/check.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include <fmt/format.h>

#include "settings/suggestion.h"
#include "settings/value.h"

namespace ferry {
namespace {

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

/// ", which belongs to sessions, readers and writers"
std::string ownersOf(const FERRY_Setting &setting)
{
    std::string text;
    std::string last;
    const auto add = [&](std::uint32_t role, const char *name) {
        if (belongs(setting, role)) {
            text += (text.empty() ? "" : ", ") + std::exchange(last, name);
        }
    };
    add(FERRY_SETTING_OF_ADAPTER, "adapters");
    add(FERRY_SETTING_OF_CONNECTION, "connections");
    add(FERRY_SETTING_OF_SESSION, "sessions");
    add(FERRY_SETTING_OF_READER, "readers");
    add(FERRY_SETTING_OF_WRITER, "writers");
    return fmt::format(", which belongs to {}{}{}", text, text.empty() ? "" : " and ", last);
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
            elsewhere = ownersOf(setting);
        }
    }
    return fmt::format("unknown property \"{}\"{}{} (known: {})", name, elsewhere,
                       suggestion(name, known), namesText(known));
}

} // namespace

std::string namesText(const std::vector<std::string> &names)
{
    return names.empty() ? "none" : fmt::format("{}", fmt::join(names, ", "));
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
    std::vector<const FERRY_Setting *> given;
    for (const auto &[name, value] : properties) {
        if (name.rfind("qel.ferrion.", 0) == 0) {
            continue;
        }
        given.push_back(findSetting(table, role, name));
        const std::string text =
            given.back() == nullptr
                ? unknown(table, role, name)
                : complaint(fmt::format("property \"{}\"", name), *given.back(), value);
        if (!text.empty()) {
            problems.push_back({name, text});
        }
    }
    for (std::uint32_t i = 0; i < table.count; ++i) {
        const FERRY_Setting &setting = table.settings[i];
        if ((setting.flags & FERRY_SETTING_REQUIRED) != 0 && belongs(setting, role) &&
            std::find(given.begin(), given.end(), &setting) == given.end()) {
            problems.push_back(
                {setting.name, fmt::format("missing property \"{}\": {} ({})", setting.name,
                                           setting.help, expectation(setting))});
        }
    }
    return problems;
}

} // namespace ferry
