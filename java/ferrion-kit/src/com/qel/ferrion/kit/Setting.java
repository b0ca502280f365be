package com.qel.ferrion.kit;

import java.nio.file.Path;
import java.time.Duration;
import java.util.Collections;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.Objects;
import java.util.TreeMap;
import java.util.function.Predicate;

/**
 * A property that an adapter understands, declared once: its name, the type of its value, what is
 * allowed, its default, and a word of help. It is also the key that its value is asked for with.
 *
 * <pre>{@code
 * static final Setting<Duration> POLL = Setting.duration("poll", Duration.ofMillis(1),
 *         Duration.ofHours(1), "how often the table is looked at")
 *         .defaultTo(Duration.ofSeconds(1)).changeable();
 * }</pre>
 *
 * <p>A setting that is neither required nor has a default may be absent; its value is null then.
 * Immutable.
 *
 * @param <T> what the value is in Java
 */
public final class Setting<T> {
    /** Names that begin like this belong to the host and its bridge. */
    static final String HOST_PREFIX = "qel.ferrion.";

    private final String name;
    private final Values<T> values;
    private final String help;
    private final T absent;
    private final boolean required;
    private final boolean changeable;

    private Setting(String name, Values<T> values, String help, T absent, boolean required,
            boolean changeable) {
        if (name.isBlank() || name.startsWith(HOST_PREFIX)) {
            throw new IllegalArgumentException("no name for a setting: \"" + name + "\"");
        }
        if (absent != null && !values.test().test(absent)) {
            throw new IllegalArgumentException("the default of \"" + name + "\" must be "
                    + values.expected() + ", not \"" + values.format().apply(absent) + "\"");
        }
        this.name = name;
        this.values = values;
        this.help = Objects.requireNonNull(help);
        this.absent = absent;
        this.required = required;
        this.changeable = changeable;
    }

    private static <T> Setting<T> of(String name, Values<T> values, String help) {
        if (name.endsWith(".")) {
            throw new IllegalArgumentException("\"" + name + "\" names a group of properties");
        }
        return new Setting<>(name, values, help, null, false, false);
    }

    /**
     * {@return a setting for all properties whose names begin alike: their texts under the rest of
     * their names}
     *
     * @param prefix with a dot at its end: "columns."
     */
    public static Setting<Map<String, String>> group(String prefix, String help) {
        if (!prefix.endsWith(".")) {
            throw new IllegalArgumentException("\"" + prefix + "\" ends without a dot");
        }
        return new Setting<>(prefix, Values.group(), help, Map.of(), false, false);
    }

    /** {@return a setting whose value is any text} */
    public static Setting<String> text(String name, String help) {
        return of(name, Values.text(), help);
    }

    /** {@return a setting whose value is a text that is not shown} */
    public static Setting<Secret> secret(String name, String help) {
        return of(name, Values.secret(), help);
    }

    /** {@return a setting that is a path; a relative one starts where the process works} */
    public static Setting<Path> path(String name, String help) {
        return of(name, Values.path(), help);
    }

    /** {@return a setting that is {@code true} or {@code false}} */
    public static Setting<Boolean> flag(String name, String help) {
        return of(name, Values.flag(), help);
    }

    /** {@return a setting that is one of an enumeration's constants, in small letters} */
    public static <E extends Enum<E>> Setting<E> choice(String name, Class<E> constants,
            String help) {
        return of(name, Values.choice(value -> value.name().toLowerCase(Locale.ROOT),
                List.of(constants.getEnumConstants())), help);
    }

    /** {@return a setting that is a whole number within limits, both allowed} */
    public static Setting<Integer> integer(String name, int least, int most, String help) {
        return of(name, Values.integer(least, most), help);
    }

    /** {@return a setting that is a whole number within limits, both allowed} */
    public static Setting<Long> longInteger(String name, long least, long most, String help) {
        return of(name, Values.whole(least, most), help);
    }

    /** {@return a setting like 4096, 64KiB, 8MiB or 1GiB within limits in bytes, both allowed} */
    public static Setting<Long> bytes(String name, long least, long most, String help) {
        return of(name, Values.bytes(least, most), help);
    }

    /** {@return a setting like 50us, 250ms, 1.5s, 2m or 1h within limits, both allowed} */
    public static Setting<Duration> duration(String name, Duration least, Duration most,
            String help) {
        return of(name, Values.duration(least, most), help);
    }

    /** {@return this setting with a value for when it is absent; it must be an allowed one} */
    public Setting<T> defaultTo(T value) {
        return new Setting<>(name, values, help, Objects.requireNonNull(value), false, changeable);
    }

    /** {@return this setting as one that must be there, and not be blank} */
    public Setting<T> required() {
        return new Setting<>(name, values, help, null, true, changeable);
    }

    /** {@return this setting as one that may change while what it belongs to lives} */
    public Setting<T> changeable() {
        return new Setting<>(name, values, help, absent, required, true);
    }

    /**
     * Narrows what is allowed.
     *
     * @param narrower true for a value that can be used
     * @param expected what can, in the words of a message: "a table's name"
     * @return this setting with both
     */
    public Setting<T> where(Predicate<T> narrower, String expected) {
        return new Setting<>(name, values.where(narrower, expected), help, absent, required,
                changeable);
    }

    /** Whether this setting's value comes from a property. */
    boolean takes(String property) {
        return isGroup() ? property.startsWith(name) && property.length() > name.length()
                         : property.equals(name);
    }

    /**
     * Reads the value.
     *
     * @param texts as configured, by name
     * @return the value, the default, or null
     * @throws IllegalArgumentException saying in words what is wrong; it shows no secret
     */
    T read(Map<String, String> texts) {
        Map<String, String> members = members(texts);
        String text = members.isEmpty() ? null : isGroup() ? "" + members : members.get("");
        if (required && (text == null || text.isBlank())) {
            throw new IllegalArgumentException("missing property \"" + name + "\": " + help + " ("
                    + allowed() + ")");
        }
        if (text == null) {
            return absent;
        }
        T value = isGroup() ? group(members) : values.parse(text);
        if (value == null || !values.test().test(value)) {
            throw new IllegalArgumentException(
                    "property \"" + name + "\" " + values.rejection(text));
        }
        return value;
    }

    /** The texts under what their names have beyond this one: nothing, but for a group. */
    private Map<String, String> members(Map<String, String> texts) {
        Map<String, String> found = new TreeMap<>();
        texts.keySet().stream().filter(this::takes).forEach(
                property -> found.put(property.substring(name.length()), texts.get(property)));
        return Collections.unmodifiableMap(found);
    }

    @SuppressWarnings("unchecked") // Groups are made by group() alone: there T is this map.
    private T group(Map<String, String> members) {
        return (T) members;
    }

    private boolean isGroup() {
        return name.endsWith(".");
    }

    /** What may be set, for the host's tools. */
    Values<T> values() {
        return values;
    }

    /** @return the property's name */
    public String name() {
        return name;
    }

    /** @return what its value may be, in words */
    public String allowed() {
        return values.expected();
    }

    /** @return what it is for */
    public String help() {
        return help;
    }

    /** @return the default as it would be configured; null when there is none */
    public String defaultText() {
        return absent == null || isGroup() ? null : values.format().apply(absent);
    }

    /** @return whether it must be there */
    public boolean isRequired() {
        return required;
    }

    /** @return whether it may change while what it belongs to lives */
    public boolean isChangeable() {
        return changeable;
    }

    /** @return the name */
    @Override
    public String toString() {
        return name;
    }
}
