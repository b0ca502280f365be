package com.qel.ferrion.kit;

import java.util.Properties;

/**
 * A host that only tries a configuration, as {@code ferry check} does: it makes everything, moves
 * no sample, and deletes everything again.
 */
public final class Check {
    /** The host's property that says so, on connections, sessions, readers and writers. */
    public static final String PROPERTY = Setting.HOST_PREFIX + "check";

    private Check() {}

    /**
     * For adapters that do without the kit's base classes, which call {@code probe()} by
     * themselves.
     *
     * @param properties as the host gave them; may be null
     * @return whether the host only tries
     */
    public static boolean isOn(Properties properties) {
        return properties != null && "true".equals(properties.getProperty(PROPERTY));
    }

    /**
     * Takes the last step of a creation. When it throws, what was made is ended at once: the host
     * never gets to see it, and so never deletes it.
     */
    static void complete(Guard.Step last, Guard.Step end) throws Exception {
        try {
            last.run();
        } catch (Throwable failure) {
            try {
                end.run();
            } catch (Throwable second) {
                failure.addSuppressed(second);
            }
            throw failure;
        }
    }
}
