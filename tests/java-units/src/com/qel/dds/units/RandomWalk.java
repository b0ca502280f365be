package com.qel.dds.units;

import static org.junit.Assert.assertEquals;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.dynamicdata.MemberPath;
import com.qel.dds.typecode.Kind;
import com.qel.dds.typecode.TypeCode;
import java.util.Random;
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
        return attempt(path, "length " + count, () -> java.setLength(path, count),
                peer.setNumber(path, Kind.SEQUENCE, count)) && expect(count, java.getLength(path));
    }

    private boolean set(String path, TypeCode type) {
        MemberPath place = MemberPath.of(java.type(), path);
        switch (type.kind()) {
        case STRING:
            String text = random.ints(random.nextInt(6), 0, PIECES.length)
                    .mapToObj(i -> PIECES[i]).collect(Collectors.joining());
            return attempt(path, text, () -> java.setString(path, text),
                    peer.setString(path, text)) && expect(text, java.getString(place));
        case FLOAT:
        case DOUBLE:
            float number = (float) random.nextGaussian();
            return attempt(path, number, () -> java.setDouble(place, number),
                    peer.setNumber(path, type.kind(), type.kind() == Kind.FLOAT
                            ? Float.floatToIntBits(number) : Double.doubleToLongBits(number)))
                    && expect((double) number, java.getDouble(path));
        case BOOLEAN:
            boolean flag = random.nextBoolean();
            return attempt(path, flag, () -> java.setBoolean(place, flag),
                    peer.setNumber(path, type.kind(), flag ? 1 : 0))
                    && expect(flag, java.getBoolean(path));
        case CHAR:
            char character = (char) random.nextInt(256);
            return attempt(path, character, () -> java.setChar(path, character),
                    peer.setNumber(path, type.kind(), character))
                    && expect(character, java.getChar(place));
        default:
            long value = integer(type);
            return attempt(path, value, () -> java.setLong(place, value),
                    peer.setNumber(path, type.kind(), value))
                    && expect(value, java.getLong(path));
        }
    }

    private long integer(TypeCode type) {
        if (type.kind() == Kind.ENUM) {
            var all = type.enumerators();
            return all.get(random.nextInt(all.size())).value();
        }
        long bits = random.nextLong();
        return switch (type.kind()) {
            case OCTET -> bits & 0xFF;
            case INT8 -> (byte) bits;
            case SHORT -> (short) bits;
            case USHORT -> bits & 0xFFFF;
            case LONG -> (int) bits;
            case ULONG -> bits & 0xFFFFFFFFL;
            default -> bits;
        };
    }

    private boolean attempt(String path, Object value, Runnable javaChange, boolean peerTook) {
        last = path + " = " + value;
        boolean javaTook = true;
        try {
            javaChange.run();
        } catch (IllegalArgumentException refused) {
            javaTook = false;
        }
        assertEquals(last + ": taken by one only; by Java", peerTook, javaTook);
        return javaTook;
    }

    private boolean expect(Object wanted, Object found) {
        assertEquals(last, wanted, found);
        return true;
    }
}
