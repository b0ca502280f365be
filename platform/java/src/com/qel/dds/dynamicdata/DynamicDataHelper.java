package com.qel.dds.dynamicdata;

import com.qel.dds.TypeException;
import com.qel.dds.typecode.TypeCode;

/** Copies samples between Java objects and native ones: one call, which moves the bytes. */
public final class DynamicDataHelper {
    private static final int OTHER_TYPE = -1;
    private static final int NO_ROOM = -2;

    private DynamicDataHelper() {}

    /**
     * Copies from Java to native. Called by native code.
     *
     * @param data not null
     * @param address of a native DDS_DynamicData of the same type
     * @throws TypeException when the types differ
     * @throws IllegalArgumentException when the native sample may not become as large
     */
    public static void push_to_nativeI(DynamicData data, long address) {
        requireBoth(data, address);
        SampleBuffer buffer = data.buffer.complete();
        int result = push(address, buffer.root.type.get_native_typecode(), buffer.bytes,
                buffer.size);
        if (result == OTHER_TYPE) {
            throw otherType(data, address);
        }
        if (result == NO_ROOM) {
            throw new IllegalArgumentException("a sample of " + data.type() + " of " + buffer.size
                    + " bytes: the native sample has no room for it");
        }
    }

    /**
     * Copies from native to Java. Called by native code.
     *
     * @param data not null
     * @param address of a native DDS_DynamicData of the same type
     * @throws TypeException when the types differ
     * @throws IllegalArgumentException when the Java sample may not become as large
     */
    public static void pull_from_nativeI(DynamicData data, long address) {
        requireBoth(data, address);
        SampleBuffer buffer = data.buffer;
        long type = buffer.root.type.get_native_typecode();
        byte[] tried = buffer.bytes;
        int size = pull(address, type, tried, tried.length);
        if (size == OTHER_TYPE) {
            throw otherType(data, address);
        }
        buffer.replace(size);
        if (buffer.bytes != tried) {
            pull(address, type, buffer.bytes, buffer.bytes.length);
        }
    }

    private static void requireBoth(DynamicData data, long address) {
        if (data == null) {
            throw new NullPointerException("the Java sample is null");
        }
        if (address == 0) {
            throw new NullPointerException("the native sample is null");
        }
    }

    private static TypeException otherType(DynamicData data, long address) {
        return new TypeException("the Java sample is of type " + data.type()
                + ", the native one of type " + TypeCode.create_from_native(typeOf(address)));
    }

    /** Copies bytes to a native sample. Returns 0, OTHER_TYPE or NO_ROOM. */
    private static native int push(long address, long type, byte[] bytes, int size);

    /**
     * Copies the bytes of a native sample, if they fit into the room, which is the array's.
     * Returns their number, or OTHER_TYPE.
     */
    private static native int pull(long address, long type, byte[] bytes, int room);

    private static native long typeOf(long address);
}
