package com.qel.ferrion.kit;

import java.nio.file.Path;
import java.time.Duration;
import java.util.Collections;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.Objects;
import java.util.StringJoiner;
import java.util.TreeMap;
import java.util.function.Function;
import java.util.function.Predicate;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

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

    private static final Pattern DURATION = Pattern.compile("(\\d{1,18})(ms|s|m|h)");
    /** In milliseconds. */
    private static final Map<String, Long> UNITS = Map.of("h", 3_600_000L, "m", 60_000L, "s",
            1000L, "ms", 1L);

    /** A value's text to the value; an IllegalArgumentException or ArithmeticException refuses. */
    private final Function<String, ? extends T> parser;
    private final Function<T, String> format;
    private final Predicate<T> test;
    private final String name;
    private final String allowed;
    private final String help;
    private final T absent;
    private final boolean required;
    private final boolean changeable;

    private Setting(String name, String allowed, String help, Function<String, ? extends T> parser,
            Function<T, String> format, Predicate<T> test, T absent, boolean required,
            boolean changeable) {
        if (name.isBlank() || name.startsWith(HOST_PREFIX)) {
            throw new IllegalArgumentException("no name for a setting: '" + name + "'");
        }
        if (absent != null && !test.test(absent)) {
            throw new IllegalArgumentException("the default of '" + name + "' is "
                    + format.apply(absent) + ", which is not " + allowed);
        }
        this.name = name;
        this.allowed = allowed;
        this.help = Objects.requireNonNull(help);
        this.parser = parser;
        this.format = format;
        this.test = test;
        this.absent = absent;
        this.required = required;
        this.changeable = changeable;
    }

    private static <T> Setting<T> of(String name, String allowed, String help,
            Function<String, ? extends T> parser, Function<T, String> format, Predicate<T> test) {
        if (name.endsWith(".")) {
            throw new IllegalArgumentException("'" + name + "' names a group of properties");
        }
        return new Setting<>(name, allowed, help, parser, format, test, null, false, false);
    }

    /**
     * {@return a setting for all properties whose names begin alike: their texts under the rest of
     * their names}
     *
     * @param prefix with a dot at its end: "columns."
     */
    public static Setting<Map<String, String>> group(String prefix, String help) {
        if (!prefix.endsWith(".")) {
            throw new IllegalArgumentException("'" + prefix + "' ends without a dot");
        }
        return new Setting<>(prefix, "a text each", help, null, Map::toString, texts -> true, Map.of(),
                false, false);
    }

    /** {@return a setting whose value is any text} */
    public static Setting<String> text(String name, String help) {
        return of(name, "a text", help, text -> text, text -> text, text -> true);
    }

    /** {@return a setting whose value is a text that is not shown} */
    public static Setting<Secret> secret(String name, String help) {
        return of(name, "a secret", help, Secret::new, Secret::toString, secret -> true);
    }

    /** {@return a setting that is a path; a relative one starts where the process works} */
    public static Setting<Path> path(String name, String help) {
        return of(name, "a path", help, Path::of, Path::toString,
                path -> !path.toString().isBlank());
    }

    /** {@return a setting that is {@code true} or {@code false}} */
    public static Setting<Boolean> flag(String name, String help) {
        return words(name, help, String::valueOf, List.of(true, false));
    }

    /** {@return a setting that is one of an enumeration's constants, in small letters} */
    public static <E extends Enum<E>> Setting<E> choice(String name, Class<E> constants,
            String help) {
        return words(name, help, value -> value.name().toLowerCase(Locale.ROOT),
                List.of(constants.getEnumConstants()));
    }

    private static <T> Setting<T> words(String name, String help, Function<T, String> word,
            List<T> values) {
        Map<String, T> known = new TreeMap<>();
        StringJoiner list = new StringJoiner(", ", "one of ", "");
        values.forEach(value -> {
            known.put(word.apply(value), value);
            list.add(word.apply(value));
        });
        return of(name, list.toString(), help, known::get, word, Objects::nonNull);
    }

    /** {@return a setting that is a whole number within limits, both allowed} */
    public static Setting<Integer> integer(String name, int least, int most, String help) {
        return of(name, range("a whole number", least, most), help,
                text -> Integer.parseInt(text.strip()), String::valueOf,
                number -> number >= least && number <= most);
    }

    /** {@return a setting that is a whole number within limits, both allowed} */
    public static Setting<Long> longInteger(String name, long least, long most, String help) {
        return of(name, range("a whole number", least, most), help,
                text -> Long.parseLong(text.strip()), String::valueOf,
                number -> number >= least && number <= most);
    }

    /** {@return a setting like 250ms, 5s, 2m or 1h within limits, both allowed} */
    public static Setting<Duration> duration(String name, Duration least, Duration most,
            String help) {
        return of(name, range("a duration like 250ms, 5s, 2m or 1h", text(least), text(most)), help,
                Setting::parseDuration, Setting::text,
                value -> value.compareTo(least) >= 0 && value.compareTo(most) <= 0);
    }

    private static String range(String what, Object least, Object most) {
        return what + " from " + least + " to " + most;
    }

    private static Duration parseDuration(String text) {
        Matcher parts = DURATION.matcher(text.strip());
        if (!parts.matches()) {
            throw new IllegalArgumentException(text);
        }
        return Duration.ofMillis(
                Math.multiplyExact(Long.parseLong(parts.group(1)), UNITS.get(parts.group(2))));
    }

    /** A duration as a setting would have it, in the largest unit that leaves no rest. */
    private static String text(Duration duration) {
        long millis = duration.toMillis();
        for (String unit : new String[] {"h", "m", "s"}) {
            if (millis != 0 && millis % UNITS.get(unit) == 0) {
                return millis / UNITS.get(unit) + unit;
            }
        }
        return millis + "ms";
    }

    /** {@return this setting with a value for when it is absent; it must be an allowed one} */
    public Setting<T> defaultTo(T value) {
        return new Setting<>(name, allowed, help, parser, format, test,
                Objects.requireNonNull(value), false, changeable);
    }

    /** {@return this setting as one that must be there, and not be blank} */
    public Setting<T> required() {
        return new Setting<>(name, allowed, help, parser, format, test, null, true, changeable);
    }

    /** {@return this setting as one that may change while what it belongs to lives} */
    public Setting<T> changeable() {
        return new Setting<>(name, allowed, help, parser, format, test, absent, required, true);
    }

    /**
     * Narrows what is allowed.
     *
     * @param narrower true for a value that can be used
     * @param expected what can, in the words of a message: "a table's name"
     * @return this setting with both
     */
    public Setting<T> where(Predicate<T> narrower, String expected) {
        return new Setting<>(name, expected, help, parser, format, test.and(narrower), absent,
                required, changeable);
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
        String text = texts.get(name);
        if (required && (text == null || text.isBlank())) {
            throw new IllegalArgumentException("property '" + name + "' is missing: " + help + " ("
                    + allowed + ")");
        }
        if (text == null && !isGroup()) {
            return absent;
        }
        T value = null;
        try {
            value = isGroup() ? members(texts) : parser.apply(text);
        } catch (IllegalArgumentException | ArithmeticException unreadable) {
            // Told below, like a value out of its limits.
        }
        if (value == null || !test.test(value)) {
            throw new IllegalArgumentException("property '" + name + "' is "
                    + (value instanceof Secret ? "not usable (its value is not shown)"
                                               : "'" + (isGroup() ? value : text) + "'")
                    + ", expected " + allowed);
        }
        return value;
    }

    @SuppressWarnings("unchecked") // Groups are made by group() alone: there T is this map.
    private T members(Map<String, String> texts) {
        Map<String, String> found = new TreeMap<>();
        texts.forEach((property, text) -> {
            if (takes(property)) {
                found.put(property.substring(name.length()), text);
            }
        });
        return (T) Collections.unmodifiableMap(found);
    }

    private boolean isGroup() {
        return name.endsWith(".");
    }

    /** @return the property's name */
    public String name() {
        return name;
    }

    /** @return what its value may be, in words */
    public String allowed() {
        return allowed;
    }

    /** @return what it is for */
    public String help() {
        return help;
    }

    /** @return the default as it would be configured; null when there is none */
    public String defaultText() {
        return absent == null || isGroup() ? null : format.apply(absent);
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
