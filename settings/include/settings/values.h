// The values of a native adapter's settings, checked when they come in: looking one up cannot fail.
#ifndef FERRY_SETTINGS_VALUES_H
#define FERRY_SETTINGS_VALUES_H

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "ferryjni/properties.h"
#include "ferryjni/settings.h"

namespace ferry {

/// Properties are rejected; the text says which, and all that is wrong with them.
class SettingsError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Settings are named by their index in the table. Not safe for use by several threads while one
/// changes it.
class SettingValues {
public:
    /**
     * Takes a property list.
     *
     * @param table      outlives this object. A setting without default has an empty text.
     * @param role       a FERRY_SETTING_OF_... bit.
     * @param owner      whose the list is, for messages: "writer of stream \"a\"".
     * @param properties null stands for an empty list.
     * @param defaults   values that hold where the list says nothing; null for none. Those that do
     *                   not belong to `role` are passed over.
     * @throws SettingsError
     */
    SettingValues(const FERRY_SettingTable &table, std::uint32_t role, std::string owner,
                  const QEL_FerrionProperties *properties, const SettingValues *defaults = nullptr);

    /// Lays a list over these values, all of it or nothing. A property that cannot be changed while
    /// in use may be named with the value that it has. Throws SettingsError.
    void update(const QEL_FerrionProperties *properties);

    const std::string &owner() const
    {
        return owner_;
    }
    /// Whether somebody said something, here or in the defaults.
    bool given(std::size_t setting) const
    {
        return values_[setting].has_value();
    }
    std::string text(std::size_t setting) const;
    bool is(std::size_t setting, const char *word) const
    {
        return text(setting) == word;
    }
    /// A whole number, bytes, a duration's nanoseconds, or the index of a choice's or flag's word;
    /// 0 for a word that stands in place of a number.
    std::int64_t number(std::size_t setting) const;
    /// The elements of a list with commas, without the blanks around them; an empty text is an
    /// empty list.
    std::vector<std::string> list(std::size_t setting) const;
    /// Puts in a value that the table accepts; nothing is the default.
    void put(std::size_t setting, std::optional<std::string> value)
    {
        values_[setting] = std::move(value);
    }

private:
    const FERRY_SettingTable *table_;
    std::uint32_t role_;
    std::string owner_;
    std::vector<std::optional<std::string>> values_;
};

} // namespace ferry

#endif
