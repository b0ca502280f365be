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

void rejectIfAny(const std::string &owner, const std::vector<SettingProblem> &problems)
{
    std::vector<std::string> texts;
    texts.reserve(problems.size());
    for (const SettingProblem &problem : problems) {
        texts.push_back(problem.text);
    }
    if (!texts.empty()) {
        throw SettingsError(fmt::format("{}: {}", owner, fmt::join(texts, "; ")));
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
    rejectIfAny(owner_, checkProperties(table, role, list));
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
    std::vector<SettingProblem> problems;
    for (std::uint32_t i = 0; i < table_->count; ++i) {
        const FERRY_Setting &setting = table_->settings[i];
        if ((setting.flags & FERRY_SETTING_CHANGEABLE) == 0) {
            if (updated.text(i) != text(i)) {
                problems.push_back({setting.name, ""});
            }
        } else if ((setting.roles & role_) != 0) {
            changeable.emplace_back(setting.name);
        }
    }
    for (SettingProblem &problem : problems) {
        problem.text = fmt::format(
            "property \"{}\" cannot be changed while in use (those that can: {})", problem.name,
            changeable.empty() ? "none" : fmt::format("{}", fmt::join(changeable, ", ")));
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
    return parseNumber(table_->settings[setting].kind, text(setting)).value_or(0);
}

std::vector<std::string> SettingValues::list(std::size_t setting) const
{
    std::vector<std::string> elements;
    const std::string all = text(setting);
    for (std::size_t at = 0; !all.empty() && at <= all.size();) {
        const std::size_t end = std::min(all.find(',', at), all.size());
        const std::string element = all.substr(at, end - at);
        const std::size_t first = element.find_first_not_of(" \t");
        const std::size_t last = element.find_last_not_of(" \t");
        elements.push_back(first == std::string::npos ? ""
                                                      : element.substr(first, last - first + 1));
        at = end + 1;
    }
    return elements;
}

} // namespace ferry
