// The adapter's properties: which there are, where each belongs, what it may be, what it is when
// nobody says. Values are checked when they come in, so that looking one up cannot fail.
#ifndef FERRYADAPTER_DDS_SETTINGS_H
#define FERRYADAPTER_DDS_SETTINGS_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ferryjni/properties.h"

namespace ferrydds {

/// In the order of the table in settings.cpp.
enum class Setting : std::size_t {
    domain,
    interfaces,
    multicast,
    peers,
    engineXml,
    name,
    typeTimeout,
    partitions,
    topic,
    typeName,
    reliability,
    durability,
    history,
    depth,
    durableDepth,
    deadline,
    ownership,
    match,
    ignoreLocal,
    maxSamples,
    batch,
    batchBytes,
    timeBasedFilter,
    representation,
    ownershipStrength,
    lifespan,
    autodispose,
    writeTimeout,
    waitForReaders,
    waitTimeout,
    linger,
    timestamps,
    count
};

/// What a property list belongs to; a set of bits in the table.
enum Place : unsigned {
    nowhere = 0,
    onConnection = 1,
    onReader = 2,
    onWriter = 4,
    onSession = onReader | onWriter
};

class Settings {
public:
    /**
     * Takes a property list.
     *
     * @param owner      whose it is, for messages: "writer of stream 'a'".
     * @param properties null stands for an empty list.
     * @param defaults   settings that hold where the list says nothing; null for none. Those that
     *                   do not belong to `place` are passed over.
     * @throws Failure naming the property, what is wrong with it and what would be right
     */
    Settings(Place place, std::string owner, const QEL_FerrionProperties *properties,
             const Settings *defaults = nullptr);

    /// Lays a list over these settings, all of it or nothing. A property that cannot be changed
    /// while in use may be named with the value it has. Throws Failure.
    void update(const QEL_FerrionProperties *properties);

    const std::string &owner() const
    {
        return owner_;
    }
    /// Whether somebody said something, here or in the defaults.
    bool given(Setting setting) const
    {
        return values_[static_cast<std::size_t>(setting)].has_value();
    }
    std::string text(Setting setting) const;
    /// Whether the word is "auto".
    bool automatic(Setting setting) const
    {
        return is(setting, "auto");
    }
    /// Puts in what an automatic setting has turned out to be; nothing is the default.
    void settle(Setting setting, std::optional<std::string> value)
    {
        values_[static_cast<std::size_t>(setting)] = std::move(value);
    }
    static const char *name(Setting setting);
    bool is(Setting setting, const char *word) const
    {
        return text(setting) == word;
    }
    /// 0 for the word "all".
    std::int64_t number(Setting setting) const;
    std::int64_t nanoseconds(Setting setting) const;
    /// A list without the blanks around its elements; an empty text is an empty list.
    std::vector<std::string> list(Setting setting) const;

private:
    void take(const std::string &name, const std::string &value);
    void refuse(std::size_t index, const std::string &value) const;

    Place place_;
    std::string owner_;
    std::array<std::optional<std::string>, static_cast<std::size_t>(Setting::count)> values_;
};

} // namespace ferrydds

#endif
