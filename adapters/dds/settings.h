// The adapter's properties: which there are, where each belongs, what it may be, what it is when
// nobody says.
#ifndef FERRYADAPTER_DDS_SETTINGS_H
#define FERRYADAPTER_DDS_SETTINGS_H

#include "settings/values.h"

namespace ferrydds {

/// In the order of the table in settings.cpp.
struct Setting {
    enum Index : std::size_t {
        domain,
        interfaces,
        multicast,
        peers,
        transport,
        port,
        engineXml,
        identityCa,
        certificate,
        key,
        password,
        governance,
        permissionsCa,
        permissions,
        name,
        typeTimeout,
        opaque,
        partitions,
        naming,
        topic,
        typeName,
        reliability,
        durability,
        history,
        depth,
        durableDepth,
        deadline,
        ownership,
        liveliness,
        livelinessLease,
        destinationOrder,
        presentation,
        coherentAccess,
        orderedAccess,
        latencyBudget,
        userData,
        match,
        ignoreLocal,
        maxSamples,
        batch,
        batchBytes,
        timeBasedFilter,
        representation,
        ownershipStrength,
        transportPriority,
        lifespan,
        autodispose,
        writeTimeout,
        waitForReaders,
        waitTimeout,
        linger,
        timestamps,
        count
    };
};

extern const FERRY_SettingTable settingTable;

using Settings = ferry::SettingValues;

/// The property's name, for messages and for what is announced.
inline const char *nameOf(Setting::Index setting)
{
    return settingTable.settings[setting].name;
}

} // namespace ferrydds

#endif
