package com.qel.dds.dynamicdata;

import com.qel.dds.TypeException;
import com.qel.dds.typecode.Kind;
import java.util.Arrays;

/** Reads and writes single numbers, booleans, characters and enums in a sample's bytes. */
final class Scalars {
    private static final int FLOAT_BITS = 24;
    private static final int DOUBLE_BITS = 53;

    private Scalars() {}

    static boolean getBoolean(SampleBuffer buffer, MemberPath path) {
        return buffer.bytes[locate(buffer, path, Kind.BOOLEAN, "boolean")] != 0;
    }

    static void setBoolean(SampleBuffer buffer, MemberPath path, boolean value) {
        buffer.bytes[locate(buffer, path, Kind.BOOLEAN, "boolean")] = (byte) (value ? 1 : 0);
    }

    static char getChar(SampleBuffer buffer, MemberPath path) {
        return (char) (buffer.bytes[locate(buffer, path, Kind.CHAR, "char")] & 0xFF);
    }

    static void setChar(SampleBuffer buffer, MemberPath path, char value) {
        int at = locate(buffer, path, Kind.CHAR, "char");
        if (value > 0xFF) {
            throw outOfRange(path, "character " + (int) value, "0 to 255");
        }
        buffer.bytes[at] = (byte) value;
    }

    static byte getByte(SampleBuffer buffer, MemberPath path) {
        return buffer.bytes[locateByte(buffer, path)];
    }

    static void setByte(SampleBuffer buffer, MemberPath path, byte value) {
        if (path.target.scalarSize != 1) {
            setInteger(buffer, path, value);
        } else {
            buffer.bytes[locateByte(buffer, path)] = value;
        }
    }

    private static int locateByte(SampleBuffer buffer, MemberPath path) {
        Kind kind = path.target.kind;
        if (kind != Kind.OCTET && kind != Kind.INT8 && kind != Kind.CHAR) {
            throw wrongKind(path, "byte");
        }
        return buffer.locateWhole(path);
    }

    /** An integer or enum, of a kind whose values all fit into so many bits. */
    static long getInteger(SampleBuffer buffer, MemberPath path, int bits, String wanted) {
        TypeLayout layout = path.target;
        if (layout.integerBits == 0 || layout.integerBits > bits) {
            throw wrongKind(path, wanted);
        }
        int at = buffer.locateWhole(path);
        byte[] bytes = buffer.bytes;
        switch (layout.kind) {
        case OCTET:
            return bytes[at] & 0xFF;
        case INT8:
            return bytes[at];
        case SHORT:
            return (short) Cdr.SHORT.get(bytes, at);
        case USHORT:
            return (short) Cdr.SHORT.get(bytes, at) & 0xFFFF;
        case ULONG:
            return (int) Cdr.INT.get(bytes, at) & 0xFFFFFFFFL;
        case LONGLONG:
        case ULONGLONG:
            return (long) Cdr.LONG.get(bytes, at);
        default:
            return (int) Cdr.INT.get(bytes, at);
        }
    }

    /** Sets an integer or enum after checking its range. */
    static void setInteger(SampleBuffer buffer, MemberPath path, long value) {
        TypeLayout layout = path.target;
        if (layout.kind == Kind.ENUM) {
            if (Arrays.binarySearch(layout.enumValues, (int) value) < 0 || value != (int) value) {
                throw outOfRange(path, value, "an enumerator of " + layout.type);
            }
        } else if (layout.integerBits == 0) {
            throw wrongKind(path, "integer");
        } else if (value < layout.integerMin() || value > layout.integerMax()) {
            throw outOfRange(path, value, layout.integerMin() + " to "
                    + (layout.kind == Kind.ULONGLONG ? "18446744073709551615"
                                                     : Long.toString(layout.integerMax())));
        }
        store(buffer, path, value);
    }

    /** Sets an integer or enum; an unsigned one of 64 bits takes any value as its bits. */
    static void setLong(SampleBuffer buffer, MemberPath path, long value) {
        if (path.target.kind == Kind.ULONGLONG) {
            store(buffer, path, value);
        } else {
            setInteger(buffer, path, value);
        }
    }

    private static void store(SampleBuffer buffer, MemberPath path, long value) {
        int at = buffer.locateWhole(path);
        switch (path.target.scalarSize) {
        case 1:
            buffer.bytes[at] = (byte) value;
            break;
        case 2:
            Cdr.SHORT.set(buffer.bytes, at, (short) value);
            break;
        case 4:
            Cdr.INT.set(buffer.bytes, at, (int) value);
            break;
        default:
            Cdr.LONG.set(buffer.bytes, at, value);
            break;
        }
    }

    static float getFloat(SampleBuffer buffer, MemberPath path) {
        if (path.target.kind != Kind.FLOAT) {
            return getInteger(buffer, path, FLOAT_BITS, "float");
        }
        return Float.intBitsToFloat((int) Cdr.INT.get(buffer.bytes, buffer.locateWhole(path)));
    }

    static double getDouble(SampleBuffer buffer, MemberPath path) {
        switch (path.target.kind) {
        case DOUBLE:
            return Double.longBitsToDouble(
                    (long) Cdr.LONG.get(buffer.bytes, buffer.locateWhole(path)));
        case FLOAT:
            return Float.intBitsToFloat((int) Cdr.INT.get(buffer.bytes, buffer.locateWhole(path)));
        default:
            return getInteger(buffer, path, DOUBLE_BITS, "double");
        }
    }

    static void setFloat(SampleBuffer buffer, MemberPath path, float value) {
        if (path.target.kind == Kind.DOUBLE) {
            setDouble(buffer, path, value);
        } else {
            Cdr.INT.set(buffer.bytes, locate(buffer, path, Kind.FLOAT, "float"),
                    Float.floatToRawIntBits(value));
        }
    }

    /** A member of single precision takes the nearest value, unless that is infinite. */
    static void setDouble(SampleBuffer buffer, MemberPath path, double value) {
        if (path.target.kind == Kind.FLOAT) {
            if (Float.isInfinite((float) value) && !Double.isInfinite(value)) {
                throw outOfRange(path, value, -Float.MAX_VALUE + " to " + Float.MAX_VALUE);
            }
            setFloat(buffer, path, (float) value);
        } else {
            Cdr.LONG.set(buffer.bytes, locate(buffer, path, Kind.DOUBLE, "double"),
                    Double.doubleToRawLongBits(value));
        }
    }

    private static int locate(SampleBuffer buffer, MemberPath path, Kind kind, String wanted) {
        if (path.target.kind != kind) {
            throw wrongKind(path, wanted);
        }
        return buffer.locateWhole(path);
    }

    static TypeException wrongKind(MemberPath path, String wanted) {
        return new TypeException(path + " is of type " + path.target.type
                + ", which cannot be accessed as " + wanted);
    }

    private static IllegalArgumentException outOfRange(MemberPath path, Object value,
            String range) {
        return new IllegalArgumentException(path + ": " + value + " is out of range: " + range);
    }
}
