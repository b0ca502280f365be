#include "launcher/declarations.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "config/keys.h"
#include "settings/value.h"

namespace ferry {

Declarations declarationsOf(const std::string &adapter, const FERRY_SettingTable *table)
{
    Declarations declarations;
    declarations.adapter = adapter;
    declarations.declares = table != nullptr;
    if (table != nullptr) {
        declarations.settings.assign(table->settings, table->settings + table->count);
    }
    return declarations;
}

std::vector<std::string> roleNames(std::uint32_t bits)
{
    std::vector<std::string> names;
    const auto add = [&](std::uint32_t role, const char *name) {
        if ((bits & role) != 0) {
            names.emplace_back(name);
        }
    };
    add(FERRY_SETTING_OF_ADAPTER, "adapter");
    add(FERRY_SETTING_OF_CONNECTION, "connection");
    add(FERRY_SETTING_OF_DISCOVERY, "discovery");
    add(FERRY_SETTING_OF_SESSION, "session");
    add(FERRY_SETTING_OF_READER, "reader");
    add(FERRY_SETTING_OF_WRITER, "writer");
    for (const keys::SectionKind &section : keys::sections) {
        add(section.keys, section.name);
    }
    return names;
}

std::string describe(const Declarations &declarations)
{
    std::string text = declarations.adapter + "\n";
    if (!declarations.missing.empty()) {
        return text + "  " + declarations.missing + "\n";
    }
    if (!declarations.declares) {
        return text + "  declares no settings\n";
    }
    std::uint32_t heading = 0;
    for (const FERRY_Setting &setting : declarations.settings) {
        if (setting.roles != heading) {
            heading = setting.roles;
            text += fmt::format("  {}\n", fmt::join(roleNames(heading), ", "));
        }
        const std::string fallback = setting.fallback == nullptr ? "" : setting.fallback;
        text += fmt::format("    {}: {}{}{}{}\n        {}\n", setting.name, expectation(setting),
                            (setting.flags & FERRY_SETTING_REQUIRED) != 0 ? "; required" : "",
                            fallback.empty() ? "" : "; default " + fallback,
                            (setting.flags & FERRY_SETTING_CHANGEABLE) != 0 ? "; may change in use"
                                                                            : "",
                            setting.help);
    }
    return text;
}

nlohmann::ordered_json describeAsJson(const Declarations &declarations)
{
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    for (const FERRY_Setting &setting : declarations.settings) {
        nlohmann::ordered_json row = {{"adapter", declarations.adapter},
                                      {"roles", roleNames(setting.roles)},
                                      {"name", setting.name},
                                      {"kind", kindName(setting.kind)},
                                      {"allowed", expectation(setting)}};
        if (setting.fallback != nullptr) {
            row["default"] = setting.fallback;
        }
        row["required"] = (setting.flags & FERRY_SETTING_REQUIRED) != 0;
        row["changeable"] = (setting.flags & FERRY_SETTING_CHANGEABLE) != 0;
        row["help"] = setting.help;
        rows.push_back(std::move(row));
    }
    return rows;
}

} // namespace ferry
