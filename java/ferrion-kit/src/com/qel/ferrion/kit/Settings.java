package com.qel.ferrion.kit;

import java.util.Map;
import java.util.Properties;
import java.util.StringJoiner;
import java.util.TreeMap;

/** The values of a {@link SettingSet}, checked. Immutable. */
public final class Settings {
    private final SettingSet set;
    private final String owner;
    private final Map<String, String> texts;
    private final Map<Setting<?>, Object> values;

    Settings(SettingSet set, String owner, Map<String, String> texts,
            Map<Setting<?>, Object> values) {
        this.set = set;
        this.owner = owner;
        this.texts = texts;
        this.values = values;
    }

    /**
     * @param setting one of the set
     * @return its value; where it is absent the default, or null when there is none
     * @throws IllegalArgumentException for a setting of another set
     */
    @SuppressWarnings("unchecked") // The value was put there by the setting itself.
    public <T> T get(Setting<T> setting) {
        if (!values.containsKey(setting)) {
            throw new IllegalArgumentException("\"" + setting + "\" is no setting of this set");
        }
        return (T) values.get(setting);
    }

    /** @return whether the property is there, or, of a group, at least one */
    public boolean has(Setting<?> setting) {
        return texts.keySet().stream().anyMatch(setting::takes);
    }

    /** @return what the values belong to, for messages */
    public String owner() {
        return owner;
    }

    /**
     * These values with others laid over them, for {@link
     * com.qel.ferrion.adapter.Entity#update(Properties)}. The list may hold all properties or those
     * that change; what it does not name stays as it is.
     *
     * @param properties null stands for none
     * @return the new values; these stay as they are
     * @throws SettingsException for what {@link SettingSet#parse} rejects, and for another value of
     *     a setting that is not changeable
     */
    public Settings updated(Properties properties) throws SettingsException {
        Map<String, String> merged = new TreeMap<>(texts);
        merged.putAll(SettingSet.texts(properties));
        return set.parse(owner, merged, this);
    }

    /** @return owner and values for people, without secrets */
    @Override
    public String toString() {
        StringJoiner all = new StringJoiner(", ", owner + " {", "}");
        set.settings().forEach(setting -> all.add(setting + "=" + values.get(setting)));
        return all.toString();
    }
}
