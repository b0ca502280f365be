package com.qel.ferrion.kit;

import java.util.EnumMap;
import java.util.Map;
import java.util.stream.Stream;

/**
 * All that an adapter declares. {@code ferry check --settings} finds it in a field of the adapter's
 * class, which has to be public, static and of this name and type:
 *
 * <pre>{@code
 * public static final AdapterSettings SETTINGS = AdapterSettings.none()
 *         .with(Role.CONNECTION, URL, PASSWORD)
 *         .with(Role.READER, TABLE, POLL)
 *         .with(Role.WRITER, TABLE);
 * }</pre>
 *
 * <p>Immutable.
 */
public final class AdapterSettings {
    private final Map<Role, SettingSet> sets;

    /** What is given properties. */
    public enum Role {
        /** The adapter itself. */
        ADAPTER(0x01),
        /** A connection. */
        CONNECTION(0x02),
        /**
         * How a connection finds what it announces. The host has no properties for that alone:
         * these come with the connection's.
         */
        DISCOVERY(0x20),
        /** A session. */
        SESSION(0x04),
        /** A stream reader. */
        READER(0x08),
        /** A stream writer. */
        WRITER(0x10);

        /** As the host knows it. */
        final int bit;

        Role(int bit) {
            this.bit = bit;
        }

        static Role of(int bit) {
            return Stream.of(values()).filter(role -> role.bit == bit).findFirst().orElseThrow();
        }
    }

    private AdapterSettings(Map<Role, SettingSet> sets) {
        this.sets = sets;
    }

    /** @return no settings at all: every property is rejected that is not the host's */
    public static AdapterSettings none() {
        return new AdapterSettings(new EnumMap<>(Role.class));
    }

    /**
     * @param role of what the settings belong to
     * @param settings in the order in which people should read about them
     * @return these settings and more
     */
    public AdapterSettings with(Role role, Setting<?>... settings) {
        Map<Role, SettingSet> more = new EnumMap<>(Role.class);
        more.putAll(sets);
        more.put(role, declared(role).and(settings));
        AdapterSettings result = new AdapterSettings(more);
        result.of(Role.CONNECTION); // Rejects one name in both of its parts.
        return result;
    }

    /**
     * @param role of what is given properties
     * @return what it understands: for a connection the settings of its discovery, too
     */
    public SettingSet of(Role role) {
        SettingSet set = declared(role);
        return role == Role.CONNECTION
                ? set.and(declared(Role.DISCOVERY).settings().toArray(new Setting<?>[0])) : set;
    }

    /** What stands under one heading. */
    SettingSet declared(Role role) {
        return sets.getOrDefault(role, SettingSet.of());
    }
}
