package com.qel.ferrion.adapters.file;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.Kind;
import com.qel.ferrion.kit.BadRow;
import com.qel.ferrion.kit.Names;

/** Scalar values and their text, exact in both directions. Any thread. */
final class Scalars {
    private Scalars() {}

    /**
     * Sets a scalar, enum or string from its text in a table cell.
     *
     * @throws BadRow when the text is no value of that kind, or out of its range
     */
    static void set(Value value, DynamicData data, String cell) throws BadRow {
        if (value.kind == Kind.STRING) {
            data.setString(value.place, cell);
            return;
        }
        if (value.kind == Kind.CHAR) {
            setChar(value, data, cell.isEmpty() ? "\0" : cell);
            return;
        }
        String text = cell.strip();
        switch (value.kind) {
        case FLOAT:
            data.setFloat(value.place, text.isEmpty() ? Float.NaN : floatOf(text));
            break;
        case DOUBLE:
            data.setDouble(value.place, text.isEmpty() ? Double.NaN : doubleOf(text));
            break;
        case BOOLEAN:
            data.setBoolean(value.place, booleanOf(text));
            break;
        case ENUM:
            data.setInt(value.place, enumOf(value, text));
            break;
        default:
            setInteger(value, data, integerOf(value.kind, text));
            break;
        }
    }

    /** Sets a one-byte character from a text of exactly one. */
    static void setChar(Value value, DynamicData data, String text) throws BadRow {
        if (text.length() != 1 || text.charAt(0) > 0xFF) {
            throw new BadRow(BadRow.quote(text) + " is not one ISO 8859-1 character");
        }
        data.setChar(value.place, text.charAt(0));
    }

    /** Sets an integer that {@link #checkRange} or {@link #integerOf} has found in range. */
    static void setInteger(Value value, DynamicData data, long number) {
        data.setLong(value.place, number);
    }

    /** An integer of any width; an unsigned 64-bit one as its bits. */
    static long integerOf(Kind kind, String text) throws BadRow {
        try {
            if (kind == Kind.ULONGLONG) {
                return Long.parseUnsignedLong(text);
            }
            return checkRange(kind, Long.parseLong(text));
        } catch (NumberFormatException notThat) {
            boolean digits = text.matches("[+-]?[0-9]+");
            throw new BadRow(BadRow.quote(text) + (digits ? " is out of range for " + range(kind)
                                                          : " is not a whole number"));
        }
    }

    /** Checks a number against the kind's range; an unsigned 64-bit kind takes from 0 up. */
    static long checkRange(Kind kind, long number) throws BadRow {
        if (!isInRange(kind, number)) {
            throw new BadRow(number + " is out of range for " + range(kind));
        }
        return number;
    }

    static boolean isInRange(Kind kind, long number) {
        return number >= least(kind) && number <= most(kind);
    }

    private static long least(Kind kind) {
        switch (kind) {
        case INT8:
            return Byte.MIN_VALUE;
        case SHORT:
            return Short.MIN_VALUE;
        case LONG:
            return Integer.MIN_VALUE;
        case LONGLONG:
            return Long.MIN_VALUE;
        default:
            return 0;
        }
    }

    private static long most(Kind kind) {
        switch (kind) {
        case INT8:
            return Byte.MAX_VALUE;
        case OCTET:
            return 0xFF;
        case SHORT:
            return Short.MAX_VALUE;
        case USHORT:
            return 0xFFFF;
        case LONG:
            return Integer.MAX_VALUE;
        case ULONG:
            return 0xFFFF_FFFFL;
        default:
            return Long.MAX_VALUE;
        }
    }

    private static String range(Kind kind) {
        return kind == Kind.ULONGLONG ? "0 to 18446744073709551615"
                                      : least(kind) + " to " + most(kind);
    }

    /** A decimal number, NaN, Infinity or -Infinity; nothing else that Java would take. */
    static double doubleOf(String text) throws BadRow {
        checkReal(text);
        try {
            return checkFinite(Double.parseDouble(text), text);
        } catch (NumberFormatException notANumber) {
            throw notReal(text);
        }
    }

    /** The same for single precision, rounded once. */
    static float floatOf(String text) throws BadRow {
        checkReal(text);
        try {
            float number = Float.parseFloat(text);
            checkFinite(number, text);
            return number;
        } catch (NumberFormatException notANumber) {
            throw notReal(text);
        }
    }

    /** Keeps out what Java's parsers take beyond decimal numbers: "1d", "0x1p3" and the like. */
    private static void checkReal(String text) throws BadRow {
        for (int i = 0; i < text.length(); i++) {
            char c = text.charAt(i);
            boolean decimal = (c >= '0' && c <= '9') || c == '.' || c == '-' || c == '+'
                    || c == 'e' || c == 'E';
            if (!decimal && !isWord(text)) {
                throw notReal(text);
            }
        }
    }

    private static BadRow notReal(String text) {
        return new BadRow(BadRow.quote(text) + " is not a number");
    }

    /** What JSON and CSV call the values no decimal number stands for. */
    static boolean isWord(String text) {
        return text.equals("NaN") || text.equals("Infinity") || text.equals("-Infinity");
    }

    private static double checkFinite(double number, String text) throws BadRow {
        if (Double.isInfinite(number) && !isWord(text)) {
            throw new BadRow(BadRow.quote(text) + " is beyond the largest number of its kind");
        }
        return number;
    }

    private static boolean booleanOf(String text) throws BadRow {
        if (text.equals("1") || text.equalsIgnoreCase("true")) {
            return true;
        }
        if (text.equals("0") || text.equalsIgnoreCase("false")) {
            return false;
        }
        throw new BadRow(BadRow.quote(text) + " is not true, false, 1 or 0");
    }

    /** An enumerator by name or by a value that the enum has. */
    static int enumOf(Value value, String text) throws BadRow {
        Integer found = value.enumValue(text);
        if (found != null) {
            return found;
        }
        if (text.matches("-?[0-9]{1,10}")) {
            long number = Long.parseLong(text);
            if (number == (int) number && value.enumName((int) number) != null) {
                return (int) number;
            }
        }
        throw new BadRow(BadRow.quote(text) + " is no enumerator"
                + Names.suggestion(text, value.enumNames()));
    }

    /** Appends the text of a sample's number or boolean, which reads back as the same value. */
    interface Appender {
        /** @return null; or the Java text of a number that is not finite: nothing was appended */
        String append(DynamicData data, Decimals decimals, Bytes out);
    }

    /** The one of a number's or boolean's kind. */
    static Appender appender(Value value) {
        switch (value.kind) {
        case BOOLEAN:
            return (data, decimals, out) ->
                    finite(data.getBoolean(value.place) ? "true" : "false", out);
        case FLOAT:
            return (data, decimals, out) -> {
                float number = data.getFloat(value.place);
                return decimals.format(number) ? finite(decimals, out)
                        : Float.isFinite(number) ? finite(Float.toString(number), out)
                        : Float.toString(number);
            };
        case DOUBLE:
            return (data, decimals, out) -> {
                double number = data.getDouble(value.place);
                return decimals.format(number) ? finite(decimals, out)
                        : Double.isFinite(number) ? finite(Double.toString(number), out)
                        : Double.toString(number);
            };
        case ULONGLONG:
            return (data, decimals, out) ->
                    finite(Long.toUnsignedString(data.getLong(value.place)), out);
        default:
            return (data, decimals, out) -> {
                decimals.format(data.getLong(value.place));
                return finite(decimals, out);
            };
        }
    }

    private static String finite(String text, Bytes out) {
        out.plain(text);
        return null;
    }

    private static String finite(Decimals number, Bytes out) {
        out.plain(number);
        return null;
    }
}
