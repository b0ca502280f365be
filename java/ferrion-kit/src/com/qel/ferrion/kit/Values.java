package com.qel.ferrion.kit;

import java.nio.file.Path;
import java.time.Duration;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.Objects;
import java.util.function.Function;
import java.util.function.LongFunction;
import java.util.function.Predicate;
import java.util.function.ToLongFunction;

/**
 * What the values of a setting are: how one is read and printed, and which are allowed. Immutable.
 *
 * @param kind as the host knows it
 * @param low the smallest number, size in bytes or duration in nanoseconds; 0 for other kinds
 * @param high the largest
 * @param words what a choice may be; empty for other kinds
 * @param expected what is allowed, in the words of a message: "a path"
 * @param parser reads a text; rejects one by null, IllegalArgumentException or ArithmeticException
 * @param format prints a value as one would configure it
 * @param test whether a value is allowed
 */
record Values<T>(Kind kind, long low, long high, List<String> words, String expected,
        Function<String, ? extends T> parser, Function<T, String> format, Predicate<T> test) {
    /** What the host makes no difference within; in the host's order. */
    enum Kind { TEXT, SECRET, PATH, FLAG, CHOICE, WHOLE, BYTES, DURATION, GROUP }

    private static <T> Values<T> of(Kind kind, String expected,
            Function<String, ? extends T> parser, Predicate<T> test) {
        return new Values<>(kind, 0, 0, List.of(), expected, parser, String::valueOf, test);
    }

    static Values<String> text() {
        return of(Kind.TEXT, "a text", text -> text, text -> true);
    }

    static Values<Secret> secret() {
        return of(Kind.SECRET, "a secret", Secret::new, secret -> true);
    }

    static Values<Path> path() {
        return of(Kind.PATH, "a path", Path::of, path -> !path.toString().isBlank());
    }

    /** The texts of a group come without a parser: they are several properties. */
    static Values<Map<String, String>> group() {
        return of(Kind.GROUP, "a text each", text -> Map.of(), texts -> true);
    }

    static Values<Boolean> flag() {
        return of(Kind.FLAG, "true or false", Map.of("true", true, "false", false)::get,
                Objects::nonNull);
    }

    static <T> Values<T> choice(Function<T, String> word, List<T> values) {
        Map<String, T> known = new LinkedHashMap<>();
        values.forEach(value -> known.put(word.apply(value), value));
        return new Values<>(Kind.CHOICE, 0, 0, List.copyOf(known.keySet()),
                "one of " + String.join(", ", known.keySet()), known::get, word, Objects::nonNull);
    }

    static Values<Long> whole(long low, long high) {
        return limited(Kind.WHOLE, Quantity.WHOLE, low, high, Long::valueOf, Long::longValue);
    }

    static Values<Integer> integer(int low, int high) {
        return limited(Kind.WHOLE, Quantity.WHOLE, low, high, Math::toIntExact, Integer::longValue);
    }

    static Values<Long> bytes(long low, long high) {
        return limited(Kind.BYTES, Quantity.BYTES, low, high, Long::valueOf, Long::longValue);
    }

    static Values<Duration> duration(Duration low, Duration high) {
        return limited(Kind.DURATION, Quantity.DURATION, low.toNanos(), high.toNanos(),
                Duration::ofNanos, Duration::toNanos);
    }

    private static <T> Values<T> limited(Kind kind, Quantity quantity, long low, long high,
            LongFunction<T> value, ToLongFunction<T> number) {
        return new Values<>(kind, low, high, List.of(), quantity.expected(low, high),
                text -> value.apply(quantity.parse(text)),
                each -> quantity.format(number.applyAsLong(each)),
                each -> number.applyAsLong(each) >= low && number.applyAsLong(each) <= high);
    }

    /** These values, but only those that pass another test. */
    Values<T> where(Predicate<T> narrower, String those) {
        return new Values<>(kind, low, high, words, those, parser, format, test.and(narrower));
    }

    /** {@return the value of a text, which the test may still reject; null when it has none} */
    T parse(String text) {
        try {
            return parser.apply(text);
        } catch (IllegalArgumentException | ArithmeticException unreadable) {
            return null;
        }
    }

    /** What a complaint about a rejected text says behind the property's name. */
    String rejection(String text) {
        if (kind == Kind.SECRET) {
            return "is not usable (its value is not shown)";
        }
        return "must be " + expected + ", not \"" + text + "\"" + Names.suggestion(text, words);
    }
}
