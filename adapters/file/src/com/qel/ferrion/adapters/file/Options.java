package com.qel.ferrion.adapters.file;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.util.Arrays;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.Properties;
import java.util.TreeMap;

/**
 * One property list, checked: every name in it is known, every value is of its kind.
 *
 * <p>Names that begin with "qel.ferrion." belong to the host and its bridge and are left alone.
 */
final class Options {
    private static final String HOST_PREFIX = "qel.ferrion.";

    private final String owner;
    private final String[] known;
    private final Map<String, String> values = new TreeMap<>();

    /**
     * Takes a property list.
     *
     * @param owner what the list belongs to, for messages
     * @param properties the list, or null for an empty one
     * @param known names that may appear; one that ends with '.' stands for all names it begins
     * @throws AdapterException for a name that is not known
     */
    Options(String owner, Properties properties, String... known) throws AdapterException {
        this.owner = owner;
        this.known = known;
        if (properties == null) {
            return;
        }
        List<String> names = Arrays.asList(known);
        for (String name : properties.stringPropertyNames()) {
            if (name.startsWith(HOST_PREFIX)) {
                continue;
            }
            if (!isKnown(name, names)) {
                throw new AdapterException(owner + ": unknown property '" + name + "'"
                        + Names.suggestion(name, names) + " (known: "
                        + (names.isEmpty() ? "none" : String.join(", ", names)) + ")");
            }
            values.put(name, properties.getProperty(name));
        }
    }

    /**
     * These properties with others laid over them. A list for an update may hold all properties or
     * those that change.
     *
     * @param changeable names that may have other values than before
     * @throws AdapterException for a name that is not known, or another value for one that is fixed
     */
    Options updated(Properties properties, String... changeable) throws AdapterException {
        Options merged = new Options(owner, properties, known);
        for (Map.Entry<String, String> entry : merged.values.entrySet()) {
            String name = entry.getKey();
            if (!entry.getValue().equals(values.get(name))
                    && !Arrays.asList(changeable).contains(name)) {
                throw new AdapterException(owner + ": property '" + name + "' cannot be changed "
                        + "while in use" + (changeable.length == 0 ? ""
                                : " (those that can: " + String.join(", ", changeable) + ")"));
            }
        }
        values.forEach(merged.values::putIfAbsent);
        return merged;
    }

    private static boolean isKnown(String name, List<String> known) {
        for (String candidate : known) {
            boolean prefix = candidate.endsWith(".") && name.length() > candidate.length();
            if (prefix ? name.startsWith(candidate) : name.equals(candidate)) {
                return true;
            }
        }
        return false;
    }

    /** The value as it stands, or null when the property is absent. */
    String text(String name) {
        return values.get(name);
    }

    /** All properties that begin with a prefix, under the rest of their names. */
    Map<String, String> below(String prefix) {
        Map<String, String> found = new LinkedHashMap<>();
        values.forEach((name, value) -> {
            if (name.startsWith(prefix)) {
                found.put(name.substring(prefix.length()), value);
            }
        });
        return found;
    }

    /** A switch: true or false. */
    boolean flag(String name, boolean absent) throws AdapterException {
        return choice(name, absent ? "true" : "false", "true", "false").equals("true");
    }

    /** One of a few words. */
    String choice(String name, String absent, String... words) throws AdapterException {
        String value = values.get(name);
        if (value == null) {
            return absent;
        }
        if (!Arrays.asList(words).contains(value)) {
            throw refused(name, "one of " + String.join(", ", words));
        }
        return value;
    }

    /** A whole number within limits. */
    long number(String name, long absent, long least, long most) throws AdapterException {
        String value = values.get(name);
        if (value == null) {
            return absent;
        }
        try {
            long number = Long.parseLong(value.strip());
            if (number >= least && number <= most) {
                return number;
            }
        } catch (NumberFormatException notANumber) {
            // Reported below, like a number out of its limits.
        }
        throw refused(name, "a whole number from " + least + " to " + most);
    }

    /** The error for a value that cannot be used. */
    AdapterException refused(String name, String expected) {
        return new AdapterException(owner + ": property '" + name + "' is '" + values.get(name)
                + "', expected " + expected);
    }
}
