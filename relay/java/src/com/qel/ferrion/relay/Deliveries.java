package com.qel.ferrion.relay;

import com.qel.ferrion.kit.AdapterSettings;
import com.qel.ferrion.kit.AdapterSettings.Role;
import com.qel.ferrion.kit.Delivery;
import java.nio.charset.StandardCharsets;
import java.util.Properties;

/** What an adapter's class declares of its deliveries. */
final class Deliveries {
    private Deliveries() {}

    /**
     * Asks a class that has been found for its adapter, or is everybody's.
     *
     * @param question name of the adapter (empty for one of the installation), name of the class,
     *     role, and names and values of properties, with zeros between
     * @return the bits in decimal digits; 0 when nothing is known
     */
    static byte[] answer(byte[] question) {
        String[] parts = new String(question, StandardCharsets.UTF_8).split("\0", -1);
        Properties properties = new Properties();
        for (int i = 3; i + 1 < parts.length; i += 2) {
            properties.setProperty(parts[i], parts[i + 1]);
        }
        int bits = bits(IsolatedAdapter.type(parts[0], parts[1]), Role.valueOf(parts[2]),
                properties);
        return Integer.toString(bits).getBytes(StandardCharsets.UTF_8);
    }

    /** The function is the adapter's: it may throw anything. */
    private static int bits(Class<?> type, Role role, Properties properties) {
        try {
            AdapterSettings declared = type == null ? null : AdapterSettings.of(type);
            return declared == null ? 0 : declared.deliveries(role, properties).stream()
                    .mapToInt(Delivery::bit).sum();
        } catch (Exception | LinkageError unknown) {
            return 0;
        }
    }
}
