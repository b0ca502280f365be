package com.qel.ferrion.kit;

import java.util.ArrayList;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import java.util.Objects;
import java.util.Properties;
import java.util.TreeMap;

/**
 * The settings of one kind of object: what an adapter, a connection, a reader understands.
 *
 * <p>Properties whose names begin with {@code qel.ferrion.} are the host's: they are passed over,
 * whatever they hold. Immutable.
 */
public final class SettingSet {
    private final List<Setting<?>> settings;

    private SettingSet(List<Setting<?>> settings) {
        this.settings = settings;
    }

    /**
     * @param settings no two of the same name
     * @return a set of them
     */
    public static SettingSet of(Setting<?>... settings) {
        return new SettingSet(List.of()).and(settings);
    }

    /**
     * @param more no two of the same name, and none of a name that this set has
     * @return this set and more
     */
    public SettingSet and(Setting<?>... more) {
        List<Setting<?>> all = new ArrayList<>(settings);
        for (Setting<?> setting : more) {
            if (all.stream().anyMatch(known -> known.name().equals(setting.name()))) {
                throw new IllegalArgumentException("two settings \"" + setting.name() + "\"");
            }
            all.add(setting);
        }
        return new SettingSet(List.copyOf(all));
    }

    /** @return the settings, in the order of their declaration */
    public List<Setting<?>> settings() {
        return settings;
    }

    /**
     * Reads properties.
     *
     * @param owner what the properties belong to, for messages: "connection 'db'"
     * @param properties null stands for none
     * @return the values
     * @throws SettingsException for unknown names, values that are not allowed and missing ones,
     *     all at once
     */
    public Settings parse(String owner, Properties properties) throws SettingsException {
        return parse(owner, texts(properties), null);
    }

    /**
     * Reads texts by name.
     *
     * @param before the values of those that must stay as they are; null where none must
     */
    Settings parse(String owner, Map<String, String> texts, Settings before)
            throws SettingsException {
        List<SettingsException.Problem> problems = new ArrayList<>();
        for (String name : texts.keySet()) {
            if (settings.stream().noneMatch(setting -> setting.takes(name))) {
                problems.add(new SettingsException.Problem(name, unknown(name)));
            }
        }
        Map<Setting<?>, Object> values = new HashMap<>();
        for (Setting<?> setting : settings) {
            try {
                Object value = setting.read(texts);
                if (before != null && !setting.isChangeable()
                        && !Objects.equals(value, before.get(setting))) {
                    problems.add(new SettingsException.Problem(setting.name(), fixed(setting)));
                }
                values.put(setting, value);
            } catch (IllegalArgumentException rejected) {
                problems.add(new SettingsException.Problem(setting.name(), rejected.getMessage()));
            }
        }
        if (!problems.isEmpty()) {
            throw new SettingsException(owner, problems);
        }
        return new Settings(this, owner, texts, values);
    }

    /** Those that are not the host's. Whatever is no text cannot have come from a host. */
    static Map<String, String> texts(Properties properties) {
        Map<String, String> texts = new TreeMap<>();
        if (properties != null) {
            for (String name : properties.stringPropertyNames()) {
                if (!name.startsWith(Setting.HOST_PREFIX)) {
                    texts.put(name, properties.getProperty(name));
                }
            }
        }
        return texts;
    }

    private String unknown(String name) {
        List<String> known = settings.stream().map(Setting::name).toList();
        return "unknown property \"" + name + "\"" + Names.suggestion(name, known) + " (known: "
                + Names.list(known) + ")";
    }

    private String fixed(Setting<?> setting) {
        List<String> can =
                settings.stream().filter(Setting::isChangeable).map(Setting::name).toList();
        return "property \"" + setting.name() + "\" cannot be changed while in use "
                + "(those that can: " + Names.list(can) + ")";
    }
}
