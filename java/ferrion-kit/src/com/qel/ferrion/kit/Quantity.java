package com.qel.ferrion.kit;

import java.math.BigDecimal;
import java.util.LinkedHashMap;
import java.util.Map;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/**
 * How whole numbers, sizes and durations are written. The host and native adapters read and print
 * them in the same way. Blanks around a quantity count nothing, and none goes beyond 64 bits.
 *
 * <p>The readers throw IllegalArgumentException or ArithmeticException for a text that is no such
 * quantity.
 */
final class Quantity {
    private static final Pattern WHOLE = Pattern.compile("\\s*(-?\\d+)\\s*");
    private static final Pattern BYTES = Pattern.compile("\\s*(\\d+)(|KiB|MiB|GiB)\\s*");
    /** No more digits than a result of 64 bits can have; zeros around them count nothing. */
    private static final Pattern DURATION =
            Pattern.compile("\\s*0*(\\d{1,19})(?:\\.(\\d{1,13}?)0*)?(us|ms|s|m|h)\\s*");
    /** In bytes; the largest first. */
    private static final Map<String, Long> SIZES = new LinkedHashMap<>();
    /** In nanoseconds; the largest first. */
    private static final Map<String, Long> TIMES = new LinkedHashMap<>();

    static {
        SIZES.put("GiB", 1L << 30);
        SIZES.put("MiB", 1L << 20);
        SIZES.put("KiB", 1L << 10);
        SIZES.put("", 1L);
        TIMES.put("h", 3_600_000_000_000L);
        TIMES.put("m", 60_000_000_000L);
        TIMES.put("s", 1_000_000_000L);
        TIMES.put("ms", 1_000_000L);
        TIMES.put("us", 1_000L);
    }

    private Quantity() {}

    private static Matcher parts(Pattern pattern, String text) {
        Matcher parts = pattern.matcher(text);
        if (!parts.matches()) {
            throw new IllegalArgumentException(text);
        }
        return parts;
    }

    /** {@return the value of a text like -5} */
    static long whole(String text) {
        return Long.parseLong(parts(WHOLE, text).group(1));
    }

    /** {@return the bytes of a text like 4096 or 8MiB} */
    static long bytes(String text) {
        Matcher parts = parts(BYTES, text);
        return Math.multiplyExact(Long.parseLong(parts.group(1)), SIZES.get(parts.group(2)));
    }

    /** {@return the nanoseconds of a text like 1.5s, which must be a whole number of them} */
    static long nanos(String text) {
        Matcher parts = parts(DURATION, text);
        String fraction = parts.group(2) == null ? "0" : parts.group(2);
        return new BigDecimal(parts.group(1) + "." + fraction)
                .multiply(BigDecimal.valueOf(TIMES.get(parts.group(3)))).longValueExact();
    }

    /** {@return bytes in the largest unit that leaves no rest} */
    static String bytesText(long bytes) {
        return bytes == 0 ? "0" : inLargest(bytes, SIZES);
    }

    /** {@return nanoseconds in the largest unit that leaves no rest; less than 1us as 0.5us} */
    static String nanosText(long nanos) {
        if (nanos == 0) {
            return "0s";
        }
        return nanos % TIMES.get("us") == 0 ? inLargest(nanos, TIMES)
                : BigDecimal.valueOf(nanos, 3).stripTrailingZeros().toPlainString() + "us";
    }

    private static String inLargest(long value, Map<String, Long> units) {
        return units.entrySet().stream().filter(unit -> value % unit.getValue() == 0).findFirst()
                .map(unit -> value / unit.getValue() + unit.getKey()).orElseThrow();
    }
}
