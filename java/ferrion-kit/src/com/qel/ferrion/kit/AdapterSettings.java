package com.qel.ferrion.kit;

import java.util.EnumMap;
import java.util.EnumSet;
import java.util.Map;
import java.util.Properties;
import java.util.Set;
import java.util.function.Function;
import java.util.stream.Stream;

/**
 * All that an adapter declares. The host finds it in a field of the adapter's class, which has to
 * be public, static and of this name and type:
 *
 * <pre>{@code
 * public static final AdapterSettings SETTINGS = AdapterSettings.none()
 *         .with(Role.CONNECTION, URL, PASSWORD)
 *         .with(Role.READER, TABLE, POLL)
 *         .with(Role.WRITER, TABLE)
 *         .delivers(Role.READER, settings -> EnumSet.of(Delivery.REPEATS));
 * }</pre>
 *
 * <p>Immutable.
 */
public final class AdapterSettings {
    private final Map<Role, SettingSet> sets;
    private final Map<Role, Function<Settings, Set<Delivery>>> deliveries;

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

    private AdapterSettings(Map<Role, SettingSet> sets,
            Map<Role, Function<Settings, Set<Delivery>>> deliveries) {
        this.sets = sets;
        this.deliveries = deliveries;
    }

    /**
     * @param adapter class of an adapter
     * @return what it declares; null when it declares nothing
     */
    public static AdapterSettings of(Class<?> adapter) {
        try {
            return (AdapterSettings) adapter.getField("SETTINGS").get(null);
        } catch (NoSuchFieldException | IllegalAccessException | RuntimeException none) {
            return null;
        }
    }

    /** @return no settings at all: every property is rejected that is not the host's */
    public static AdapterSettings none() {
        return new AdapterSettings(new EnumMap<>(Role.class), new EnumMap<>(Role.class));
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
        AdapterSettings result = new AdapterSettings(more, deliveries);
        result.of(Role.CONNECTION); // Rejects one name in both of its parts.
        return result;
    }

    /**
     * Declares what readers or writers guarantee of the samples that go through them. Without this
     * the host takes a reader to repeat nothing, and a write that fails or counts short to have
     * taken nothing.
     *
     * @param role reader or writer
     * @param declared gives what one with these settings guarantees; may be called on any thread,
     *     at any time
     * @return these settings with that
     */
    public AdapterSettings delivers(Role role, Function<Settings, Set<Delivery>> declared) {
        if (role != Role.READER && role != Role.WRITER) {
            throw new IllegalArgumentException("only readers and writers deliver");
        }
        Map<Role, Function<Settings, Set<Delivery>>> more = new EnumMap<>(Role.class);
        more.putAll(deliveries);
        more.put(role, declared);
        return new AdapterSettings(sets, more);
    }

    /**
     * What a reader or writer with these properties guarantees.
     *
     * @param role reader or writer
     * @param properties those of its session may be among them; null stands for none
     * @return nothing where nothing is declared
     * @throws SettingsException for properties that no reader or writer can be made with
     */
    public Set<Delivery> deliveries(Role role, Properties properties) throws SettingsException {
        Set<Delivery> result = EnumSet.noneOf(Delivery.class);
        if (deliveries.containsKey(role)) {
            SettingSet set = declared(role);
            Map<String, String> texts = SettingSet.texts(properties);
            texts.keySet().removeIf(
                    name -> set.settings().stream().noneMatch(setting -> setting.takes(name)));
            result.addAll(deliveries.get(role).apply(set.parse("", texts, null)));
        }
        if (!result.stream().allMatch(each -> each.role() == role)) {
            throw new IllegalStateException("a " + role + " that declares " + result);
        }
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
