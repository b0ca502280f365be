#include "settings/values.h"

#include <fmt/format.h>

#include "settings/check.h"
#include "settings/value.h"

namespace ferry {
namespace {

PropertyList listOf(const QEL_FerrionProperties *properties)
{
    const auto textOf = [](const char *text) { return text == nullptr ? "" : text; };
    PropertyList list;
    for (std::int32_t i = 0; properties != nullptr && i < properties->count; ++i) {
        const QEL_FerrionNameValue &property = properties->properties[i];
        list.emplace_back(textOf(property.name), textOf(property.value));
    }
    return list;
}

void rejectIfAny(const std::string &owner, const std::vector<std::string> &problems)
{
    if (!problems.empty()) {
        throw SettingsError(fmt::format("{}: {}", owner, fmt::join(problems, "; ")));
    }
}

} // namespace

SettingValues::SettingValues(const FERRY_SettingTable &table, std::uint32_t role, std::string owner,
                             const QEL_FerrionProperties *properties, const SettingValues *defaults)
    : table_(&table), role_(role), owner_(std::move(owner)), values_(table.count)
{
    PropertyList list;
    for (std::uint32_t i = 0; defaults != nullptr && i < table.count; ++i) {
        if ((table.settings[i].roles & role) != 0 && defaults->values_[i]) {
            list.emplace_back(table.settings[i].name, *defaults->values_[i]);
        }
    }
    for (auto &property : listOf(properties)) {
        list.push_back(std::move(property));
    }
    std::vector<std::string> problems;
    for (const SettingProblem &problem : checkProperties(table, role, list)) {
        problems.push_back(problem.text);
    }
    rejectIfAny(owner_, problems);
    for (const auto &[name, value] : list) {
        if (const FERRY_Setting *const setting = findSetting(table, role, name)) {
            values_[static_cast<std::size_t>(setting - table.settings)] = value;
        }
    }
}

void SettingValues::update(const QEL_FerrionProperties *properties)
{
    const SettingValues updated(*table_, role_, owner_, properties, this);
    std::vector<std::string> changeable;
    std::vector<std::string> problems;
    const auto isChangeable = [&](std::uint32_t i) {
        return (table_->settings[i].flags & FERRY_SETTING_CHANGEABLE) != 0;
    };
    for (std::uint32_t i = 0; i < table_->count; ++i) {
        if (isChangeable(i) && (table_->settings[i].roles & role_) != 0) {
            changeable.emplace_back(table_->settings[i].name);
        }
    }
    for (std::uint32_t i = 0; i < table_->count; ++i) {
        if (!isChangeable(i) && updated.text(i) != text(i)) {
            problems.push_back(
                fmt::format("property \"{}\" cannot be changed while in use (those that can: {})",
                            table_->settings[i].name, namesText(changeable)));
        }
    }
    rejectIfAny(owner_, problems);
    values_ = updated.values_;
}

std::string SettingValues::text(std::size_t setting) const
{
    const char *const fallback = table_->settings[setting].fallback;
    return values_[setting] ? *values_[setting] : fallback == nullptr ? "" : fallback;
}

std::int64_t SettingValues::number(std::size_t setting) const
{
    return parseNumber(table_->settings[setting], text(setting)).value_or(0);
}

std::vector<std::string> SettingValues::list(std::size_t setting) const
{
    return split(text(setting), ',');
}

} // namespace ferry
