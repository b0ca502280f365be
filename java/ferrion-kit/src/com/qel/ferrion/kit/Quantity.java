package com.qel.ferrion.kit;

import java.math.BigDecimal;
import java.util.List;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/**
 * How whole numbers, sizes in bytes and durations in nanoseconds are written. The host and native
 * adapters read and print them in the same way. Blanks around a quantity count nothing, and none
 * goes beyond 64 bits.
 */
enum Quantity {
    WHOLE("a whole number", "", new Unit("", 1)),
    BYTES("a number of bytes", ", such as 4096, 64KiB or 8MiB", new Unit("GiB", 1L << 30),
            new Unit("MiB", 1L << 20), new Unit("KiB", 1L << 10), new Unit("", 1)),
    DURATION("a duration", ", such as 100ms, 1.5s or 5m", new Unit("h", 3_600_000_000_000L),
            new Unit("m", 60_000_000_000L), new Unit("s", 1_000_000_000), new Unit("ms", 1_000_000),
            new Unit("us", 1_000));

    private record Unit(String name, long factor) {}

    /** No more digits than a result of 64 bits can have; zeros around them count nothing. */
    private static final Pattern PARTS =
            Pattern.compile("\\s*(-?)0*(\\d{1,19})(?:\\.(\\d{1,13}?)0*)?([A-Za-z]*)\\s*");

    private final String what;
    private final String examples;
    /** The largest first. */
    private final List<Unit> units;

    Quantity(String what, String examples, Unit... units) {
        this.what = what;
        this.examples = examples;
        this.units = List.of(units);
    }

    /**
     * {@return the value of a text}
     *
     * @throws IllegalArgumentException or ArithmeticException for a text that is no such quantity
     */
    long parse(String text) {
        Matcher parts = PARTS.matcher(text);
        if (!parts.matches() || !parts.group(1).isEmpty() && this != WHOLE
                || parts.group(3) != null && this != DURATION) {
            throw new IllegalArgumentException(text);
        }
        long factor = units.stream().filter(unit -> unit.name.equals(parts.group(4))).findFirst()
                .orElseThrow(() -> new IllegalArgumentException(text)).factor;
        String decimals = parts.group(3) == null ? "0" : parts.group(3);
        return new BigDecimal(parts.group(1) + parts.group(2) + "." + decimals)
                .multiply(BigDecimal.valueOf(factor)).longValueExact();
    }

    /** {@return a value in the largest unit that leaves no rest; less than 1us as 0.5us} */
    String format(long value) {
        if (value == 0) {
            return this == DURATION ? "0s" : "0";
        }
        Unit unit = units.stream().filter(each -> value % each.factor == 0).findFirst()
                .orElse(units.get(units.size() - 1));
        return BigDecimal.valueOf(value).divide(BigDecimal.valueOf(unit.factor))
                .stripTrailingZeros().toPlainString() + unit.name;
    }

    /** {@return what a value within limits is, in the words of a message} */
    String expected(long low, long high) {
        return what + " from " + format(low) + " to " + format(high) + examples;
    }
}
