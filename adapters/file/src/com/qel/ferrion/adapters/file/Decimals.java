package com.qel.ferrion.adapters.file;

import com.qel.dds.dynamicdata.DynamicData;

/**
 * The short way between numbers and their text, taken by nearly all of them: no object is made, and
 * a quotient of two exact numbers, which is rounded once, is the number that the text stands for.
 * What needs more care than that is left to Java's own conversions. Used on one thread at a time.
 */
final class Decimals {
    /** Powers of ten, all exact in double precision; in single those up to 10. */
    private static final double[] POWERS = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10,
        1e11, 1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18};
    private static final int EXACT_FLOAT_POWER = 10;
    private static final int LONG_DIGITS = 18;
    /** Up to here a number of so many digits is the only one that reads back as its value. */
    private static final long UNIQUE_DOUBLE = 1_000_000_000_000_000L;
    private static final long UNIQUE_FLOAT = 1_000_000L;
    /** Digits behind the point that are tried; a number that needs more is likely to need many. */
    private static final int MOST_PLACES = 6;

    private final byte[] text = new byte[24];
    private int start;

    /**
     * Sets a number or boolean from a cell of its plainest form: a sign, digits and a point, or a
     * lower-case word.
     *
     * @return false when nothing was set, whether the cell is wrong or only less plain
     */
    static boolean set(Value value, DynamicData data, byte[] bytes, int from, int to) {
        switch (value.kind) {
        case CHAR:
        case ENUM:
        case STRING:
        case SEQUENCE:
        case ARRAY:
            return false;
        case BOOLEAN:
            boolean yes = isWord("true", bytes, from, to);
            if (!yes && !isWord("false", bytes, from, to)) {
                return false;
            }
            data.setBoolean(value.place, yes);
            return true;
        default:
            return setNumber(value, data, bytes, from, to);
        }
    }

    private static boolean setNumber(Value value, DynamicData data, byte[] bytes, int from,
            int to) {
        int at = from;
        boolean negative = at < to && bytes[at] == '-';
        at += negative ? 1 : 0;
        int point = to;
        int digits = 0;
        long number = 0;
        for (; at < to; at++) {
            int digit = bytes[at] - '0';
            if (digit >= 0 && digit <= 9) {
                number = 10 * number + digit;
                digits++;
            } else if (bytes[at] == '.' && point == to) {
                point = at;
            } else {
                return false;
            }
        }
        if (digits == 0 || digits > LONG_DIGITS) {
            return false;
        }
        int places = Math.max(0, to - point - 1);
        switch (value.kind) {
        case DOUBLE:
            if (number > 1L << 53) {
                return false;
            }
            double wide = number / POWERS[places];
            data.setDouble(value.place, negative ? -wide : wide);
            return true;
        case FLOAT:
            if (number > 1L << 24 || places > EXACT_FLOAT_POWER) {
                return false;
            }
            float narrow = (float) number / (float) POWERS[places];
            data.setFloat(value.place, negative ? -narrow : narrow);
            return true;
        default:
            long whole = negative ? -number : number;
            if (point != to || !Scalars.isInRange(value.kind, whole)) {
                return false;
            }
            Scalars.setInteger(value, data, whole);
            return true;
        }
    }

    private static boolean isWord(String word, byte[] bytes, int from, int to) {
        boolean same = to - from == word.length();
        for (int i = 0; same && i < word.length(); i++) {
            same = bytes[from + i] == word.charAt(i);
        }
        return same;
    }

    /** Makes the shortest text of a number. @return whether it did; {@link #text} then has it */
    boolean format(double number) {
        double size = Math.abs(number);
        for (int places = 0; places <= MOST_PLACES && isPlain(size); places++) {
            long scaled = (long) Math.rint(size * POWERS[places]);
            if (scaled < UNIQUE_DOUBLE && scaled / POWERS[places] == size) {
                lay(scaled, places, number < 0);
                return true;
            }
        }
        return false;
    }

    /** The same for single precision. */
    boolean format(float number) {
        float size = Math.abs(number);
        for (int places = 0; places <= MOST_PLACES && isPlain(size); places++) {
            long scaled = (long) Math.rint(size * POWERS[places]);
            if (scaled < UNIQUE_FLOAT && (float) scaled / (float) POWERS[places] == size) {
                lay(scaled, places, number < 0);
                return true;
            }
        }
        return false;
    }

    /** Makes the text of a whole number. */
    void format(long number) {
        int at = text.length;
        long left = number;
        do {
            text[--at] = (byte) ('0' + Math.abs(left % 10));
            left /= 10;
        } while (left != 0);
        if (number < 0) {
            text[--at] = '-';
        }
        start = at;
    }

    /** Java gives the others an exponent. */
    private static boolean isPlain(double size) {
        return size >= 1e-3 && size < 1e7;
    }

    /** Lays out the digits from the end on, one of them at least on both sides of the point. */
    private void lay(long scaled, int places, boolean negative) {
        long left = scaled;
        int at = text.length;
        if (places == 0) {
            text[--at] = '0';
        }
        for (int i = 0; i < places; i++, left /= 10) {
            text[--at] = (byte) ('0' + left % 10);
        }
        text[--at] = '.';
        do {
            text[--at] = (byte) ('0' + left % 10);
            left /= 10;
        } while (left > 0);
        if (negative) {
            text[--at] = '-';
        }
        start = at;
    }

    /** The characters of the number formatted last, from {@link #start} to the end. */
    byte[] text() {
        return text;
    }

    int start() {
        return start;
    }

    int length() {
        return text.length - start;
    }
}
