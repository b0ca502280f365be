package com.qel.dds.units;

import static org.junit.Assert.assertEquals;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.dynamicdata.MemberPath;
import com.qel.dds.typecode.Kind;
import com.qel.dds.typecode.TypeCode;
import java.util.Random;
import java.util.function.Supplier;
import java.util.stream.Collectors;

/** Changes a Java sample and a native one at random places in the same way. */
final class RandomWalk {
    private static final String[] PIECES = {"a", "é", "漢", "😀", "xyz", ""};

    private final Random random;
    private final DynamicData java;
    private final Peer peer;
    /** What was done last, for messages. */
    String last = "nothing";

    RandomWalk(Random random, DynamicData java, Peer peer) {
        this.random = random;
        this.java = java;
        this.peer = peer;
    }

    /** One change. Says whether both took it, and fails when only one did. */
    boolean step() {
        String path = "";
        TypeCode type = java.type().resolve();
        while (true) {
            switch (type.kind()) {
            case STRUCT:
                var member = type.members().get(random.nextInt(type.members().size()));
                path += (path.isEmpty() ? "" : ".") + member.name();
                type = member.type().resolve();
                break;
            case ARRAY:
                for (int dimension : type.dimensions()) {
                    path += "[" + random.nextInt(dimension) + "]";
                }
                type = type.content().resolve();
                break;
            case SEQUENCE:
                int length = java.getLength(path);
                if (length == 0 || random.nextInt(3) == 0) {
                    return resize(path);
                }
                path += "[" + random.nextInt(length) + "]";
                type = type.content().resolve();
                break;
            default:
                return set(path, type);
            }
        }
    }

    private boolean resize(String path) {
        int count = random.nextInt(7);
        return both(path, count, peer.setNumber(path, Kind.SEQUENCE, count),
                () -> java.setLength(path, count), () -> java.getLength(path));
    }

    private boolean set(String path, TypeCode type) {
        MemberPath place = MemberPath.of(java.type(), path);
        Kind kind = type.kind();
        long bits = kind == Kind.ENUM
                ? type.enumerators().get(random.nextInt(type.enumerators().size())).value()
                : random.nextLong();
        float number = (float) random.nextGaussian();
        switch (kind) {
        case STRING:
            String text = random.ints(random.nextInt(6), 0, PIECES.length)
                    .mapToObj(i -> PIECES[i]).collect(Collectors.joining());
            return both(path, text, peer.setString(path, text),
                    () -> java.setString(path, text), () -> java.getString(place));
        case FLOAT:
        case DOUBLE:
            return both(path, (double) number, peer.setNumber(path, kind, kind == Kind.FLOAT
                    ? Float.floatToIntBits(number) : Double.doubleToLongBits(number)),
                    () -> java.setDouble(place, number), () -> java.getDouble(path));
        case BOOLEAN:
            return both(path, bits > 0, peer.setNumber(path, kind, bits > 0 ? 1 : 0),
                    () -> java.setBoolean(place, bits > 0), () -> java.getBoolean(path));
        case CHAR:
            char character = (char) (bits & 0xFF);
            return both(path, character, peer.setNumber(path, kind, character),
                    () -> java.setChar(path, character), () -> java.getChar(place));
        default:
            long value = fitted(kind, bits);
            return both(path, value, peer.setNumber(path, kind, value),
                    () -> java.setLong(place, value), () -> java.getLong(path));
        }
    }

    private static long fitted(Kind kind, long bits) {
        return switch (kind) {
        case OCTET -> bits & 0xFF;
        case INT8 -> (byte) bits;
        case SHORT -> (short) bits;
        case USHORT -> bits & 0xFFFF;
        case LONG -> (int) bits;
        case ULONG -> bits & 0xFFFFFFFFL;
        default -> bits;
        };
    }

    /** Changes the Java sample as the native one has been changed. Says whether both took it. */
    private boolean both(String path, Object value, boolean peerTook, Runnable change,
            Supplier<Object> found) {
        last = path + " = " + value;
        boolean javaTook = true;
        try {
            change.run();
            assertEquals(last, value, found.get());
        } catch (IllegalArgumentException rejected) {
            javaTook = false;
        }
        assertEquals(last + ": taken by one only; by Java", peerTook, javaTook);
        return javaTook;
    }
}
