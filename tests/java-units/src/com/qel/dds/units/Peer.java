package com.qel.dds.units;

import com.qel.dds.typecode.Kind;
import com.qel.dds.typecode.TypeCode;
import java.nio.charset.StandardCharsets;

/** A native sample, and the test library's other natives. */
final class Peer implements AutoCloseable {
    /** Something of everything, with variable sizes in front, between and behind. */
    static final TypeCode ALL = TypeCode.fromIdl("module units {"
            + " enum Color { @value(5) RED, GREEN, @value(2) BLUE };"
            + " struct Inner { octet o; double d; string s; };"
            + " struct Flat { char c; double d; short s; boolean b; long long l; float f; int8 i;"
            + "   unsigned short us; Color col; unsigned long ul; unsigned long long ull; };"
            + " struct Base { @key long id; octet before; string<12> tag; };"
            + " typedef sequence<string> Words;"
            + " struct All : Base { sequence<Inner> inners; Flat flats[2]; sequence<double> ds;"
            + "   sequence<Words> nested; Inner grid[2][2]; sequence<Flat, 5> bounded;"
            + "   sequence<octet> blob; string last; octet end; }; };", "units::All");

    static {
        System.loadLibrary("javaunits");
    }

    final long address;

    Peer(TypeCode type) {
        this(type, 0);
    }

    Peer(TypeCode type, int limit) {
        address = create(type.get_native_typecode(), limit);
    }

    @Override
    public void close() {
        delete(address);
    }

    byte[] cdr() {
        return cdr(address);
    }

    boolean setCdr(byte[] bytes) {
        return setCdr(address, bytes) == 0;
    }

    /** Bytes that nobody checks. */
    void loan(byte[] bytes) {
        loan(address, bytes);
    }

    boolean setString(String path, String text) {
        return setString(address, path(path), text.getBytes(StandardCharsets.UTF_8)) == 0;
    }

    /** Sets a scalar by its bits, or a sequence's length. */
    boolean setNumber(String path, Kind kind, long bits) {
        return setNumber(address, path(path), kind.ordinal() + 1, bits) == 0;
    }

    private static byte[] path(String path) {
        return path.getBytes(StandardCharsets.UTF_8);
    }

    private static native long create(long type, int limit);

    private static native void delete(long data);

    private static native byte[] cdr(long data);

    private static native int setCdr(long data, byte[] bytes);

    private static native void loan(long data, byte[] bytes);

    private static native int setString(long data, byte[] path, byte[] text);

    private static native int setNumber(long data, byte[] path, int kind, long bits);

    /** A new native sample info, which has these words. */
    static native long createInfo(int[] words);

    /** The words of a native sample info, which is deleted. */
    static native int[] takeInfo(long info);
}
