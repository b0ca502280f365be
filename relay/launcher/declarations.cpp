#include "launcher/declarations.h"

#include <algorithm>
#include <iterator>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "config/keys.h"
#include "settings/value.h"

namespace ferry {
namespace {

struct Named {
    const char *name;
    std::uint32_t value;
};

constexpr Named roles[] = {
    {"adapter", FERRY_SETTING_OF_ADAPTER},
    {"connection", FERRY_SETTING_OF_CONNECTION},
    {"discovery", FERRY_SETTING_OF_DISCOVERY},
    {"session", FERRY_SETTING_OF_SESSION},
    {"reader", FERRY_SETTING_OF_READER},
    {"writer", FERRY_SETTING_OF_WRITER},
    {"file", keys::ofFile},
    {"types", keys::ofType},
    {"java", keys::ofJava},
    {"log", keys::ofLog},
    {"adapters", keys::ofAdapter},
    {"connections", keys::ofConnection},
    {"sessions", keys::ofSession},
    {"routes", keys::ofRoute},
    {"input", keys::ofInput},
    {"output", keys::ofOutput},
    {"rules", keys::ofDiscovery},
    {"patterns", keys::ofPatterns},
};

constexpr Named kinds[] = {
    {"text", FERRY_SETTING_TEXT},       {"secret", FERRY_SETTING_SECRET},
    {"path", FERRY_SETTING_PATH},       {"flag", FERRY_SETTING_FLAG},
    {"choice", FERRY_SETTING_CHOICE},   {"whole", FERRY_SETTING_WHOLE},
    {"bytes", FERRY_SETTING_BYTES},     {"duration", FERRY_SETTING_DURATION},
    {"group", FERRY_SETTING_GROUP},     {"list", FERRY_SETTING_LIST},
    {"section", FERRY_SETTING_SECTION},
};

template<std::size_t size>
std::uint32_t valueOf(const Named (&table)[size], const std::string &name)
{
    const auto *const found = std::find_if(std::begin(table), std::end(table),
                                           [&](const Named &each) { return name == each.name; });
    return found == std::end(table) ? 0 : found->value;
}

bool sameButRole(const Declaration &a, const Declaration &b)
{
    return a.name == b.name && a.kind == b.kind && a.allowed == b.allowed &&
           a.fallback == b.fallback && a.required == b.required && a.changeable == b.changeable &&
           a.help == b.help;
}

} // namespace

std::vector<Declaration> declarationsOf(const FERRY_SettingTable &table)
{
    std::vector<Declaration> all;
    for (std::uint32_t i = 0; i < table.count; ++i) {
        const FERRY_Setting &row = table.settings[i];
        Declaration declared;
        declared.roles = row.roles;
        declared.name = row.name;
        declared.kind = row.kind;
        declared.allowed = expectation(row);
        declared.words = wordsOf(row);
        declared.low = row.low;
        declared.high = row.high;
        if (row.fallback != nullptr) {
            declared.fallback = row.fallback;
        }
        declared.required = (row.flags & FERRY_SETTING_REQUIRED) != 0;
        declared.changeable = (row.flags & FERRY_SETTING_CHANGEABLE) != 0;
        declared.help = row.help;
        all.push_back(std::move(declared));
    }
    return all;
}

std::vector<Declaration> joinedRoles(const std::vector<Declaration> &settings)
{
    std::vector<Declaration> joined;
    for (const Declaration &setting : settings) {
        const auto same = std::find_if(joined.begin(), joined.end(), [&](const Declaration &each) {
            return sameButRole(each, setting);
        });
        if (same == joined.end()) {
            joined.push_back(setting);
        } else {
            same->roles |= setting.roles;
        }
    }
    return joined;
}

std::vector<std::string> roleNames(std::uint32_t bits)
{
    std::vector<std::string> names;
    for (const Named &role : roles) {
        if ((bits & role.value) != 0) {
            names.emplace_back(role.name);
        }
    }
    return names;
}

std::uint32_t roleOf(const std::string &name)
{
    return valueOf(roles, name);
}

std::uint32_t kindOf(const std::string &name)
{
    return valueOf(kinds, name);
}

const char *kindName(std::uint32_t kind)
{
    const auto *const found = std::find_if(std::begin(kinds), std::end(kinds),
                                           [&](const Named &each) { return each.value == kind; });
    return found == std::end(kinds) ? kinds[0].name : found->name;
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
    for (const Declaration &setting : joinedRoles(declarations.settings)) {
        if (setting.roles != heading) {
            heading = setting.roles;
            text += fmt::format("  {}\n", fmt::join(roleNames(heading), ", "));
        }
        text += fmt::format(
            "    {}: {}{}{}{}\n        {}\n", setting.name, setting.allowed,
            setting.required ? "; required" : "",
            setting.fallback && !setting.fallback->empty() ? "; default " + *setting.fallback : "",
            setting.changeable ? "; may change in use" : "", setting.help);
    }
    return text;
}

nlohmann::ordered_json describeAsJson(const Declarations &declarations)
{
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    for (const Declaration &setting : joinedRoles(declarations.settings)) {
        nlohmann::ordered_json row = {{"adapter", declarations.adapter},
                                      {"roles", roleNames(setting.roles)},
                                      {"name", setting.name},
                                      {"kind", kindName(setting.kind)},
                                      {"allowed", setting.allowed}};
        if (setting.fallback) {
            row["default"] = *setting.fallback;
        }
        row["required"] = setting.required;
        row["changeable"] = setting.changeable;
        row["help"] = setting.help;
        rows.push_back(std::move(row));
    }
    return rows;
}

} // namespace ferry
