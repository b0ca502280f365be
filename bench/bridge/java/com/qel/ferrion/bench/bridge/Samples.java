package com.qel.ferrion.bench.bridge;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.dynamicdata.MemberPath;
import com.qel.dds.typecode.TypeCode;
import java.lang.invoke.MethodHandles;
import java.lang.invoke.VarHandle;
import java.nio.ByteOrder;
import java.util.HexFormat;

/** The platform's samples, and bytes handled without it, for native code that measures both. */
public final class Samples {
    private static final VarHandle LONG =
            MethodHandles.byteArrayViewVarHandle(long[].class, ByteOrder.LITTLE_ENDIAN);
    private static final int OCTETS = 8;

    private final byte[] bytes;
    private final DynamicData data;
    private final MemberPath number;
    private final MemberPath[] octets = new MemberPath[OCTETS];

    /** Of a type of an IDL, with the bytes of a sample in hexadecimal. */
    public Samples(String idl, String type, String content) {
        TypeCode code = TypeCode.fromIdl(idl, type);
        bytes = HexFormat.of().parseHex(content);
        data = new DynamicData(code, null);
        data.fromCdr(bytes);
        number = MemberPath.of(code, "number");
        for (int i = 0; i < OCTETS && !type.equals("Nested"); i++) {
            octets[i] = MemberPath.of(code, "bytes[" + i + "]");
        }
    }

    public DynamicData data() {
        return data;
    }

    /** What the least helper does: the bytes to native memory, and back. */
    public static void push(Samples samples, long address) {
        put(address, samples.bytes, samples.bytes.length);
    }

    public static void pull(Samples samples, long address) {
        get(address, samples.bytes, samples.bytes.length);
    }

    private static native void put(long address, byte[] bytes, int size);

    private static native void get(long address, byte[] bytes, int size);

    /** Sets and gets nine members, again and again; the result is for nobody to leave it out. */
    public long byPath(int rounds) {
        long sum = 0;
        for (int round = 0; round < rounds; round++) {
            data.setLong(number, round);
            for (MemberPath octet : octets) {
                data.setByte(octet, (byte) round);
            }
            sum += data.getLong(number);
            for (MemberPath octet : octets) {
                sum += data.getByte(octet);
            }
        }
        return sum;
    }

    /** The same in the bytes, at places known beforehand. */
    public long byHand(int rounds) {
        long sum = 0;
        for (int round = 0; round < rounds; round++) {
            LONG.set(bytes, 0, (long) round);
            for (int i = 0; i < OCTETS; i++) {
                bytes[8 + i] = (byte) round;
            }
            sum += (long) LONG.get(bytes, 0);
            for (int i = 0; i < OCTETS; i++) {
                sum += bytes[8 + i];
            }
        }
        return sum;
    }
}
