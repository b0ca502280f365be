package com.qel.dds.units;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.dynamicdata.MemberPath;
import com.qel.dds.typecode.Enumerator;
import com.qel.dds.typecode.Kind;
import com.qel.dds.typecode.TypeCode;
import java.util.List;
import java.util.Random;

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
        int length = random.nextInt(7);
        boolean taken = attempt(path, "length " + length, () -> java.setLength(path, length),
                peer.setLength(path, length));
        return taken && expect(length, java.getLength(path));
    }

    private boolean set(String path, TypeCode type) {
        MemberPath place = MemberPath.of(java.type(), path);
        switch (type.kind()) {
        case STRING:
            StringBuilder built = new StringBuilder();
            for (int i = random.nextInt(6); i > 0; i--) {
                built.append(PIECES[random.nextInt(PIECES.length)]);
            }
            String text = built.toString();
            return attempt(path, text, () -> java.setString(path, text),
                    peer.setString(path, text)) && expect(text, java.getString(place));
        case FLOAT:
        case DOUBLE:
            double number = (float) random.nextGaussian();
            return attempt(path, number, () -> java.setDouble(place, number),
                    peer.setReal(path, type.kind() == Kind.FLOAT, number))
                    && expect(number, java.getDouble(path));
        case BOOLEAN:
            boolean flag = random.nextBoolean();
            return attempt(path, flag, () -> java.setBoolean(place, flag),
                    peer.setInteger(path, type.kind(), flag ? 1 : 0))
                    && expect(flag, java.getBoolean(path));
        case CHAR:
            char character = (char) random.nextInt(256);
            return attempt(path, character, () -> java.setChar(path, character),
                    peer.setInteger(path, type.kind(), character))
                    && expect(character, java.getChar(place));
        default:
            long value = integer(type);
            return attempt(path, value, () -> java.setLong(place, value),
                    peer.setInteger(path, type.kind(), value))
                    && expect(value, java.getLong(path));
        }
    }

    private long integer(TypeCode type) {
        long bits = random.nextLong();
        switch (type.kind()) {
        case OCTET:
            return bits & 0xFF;
        case INT8:
            return (byte) bits;
        case SHORT:
            return (short) bits;
        case USHORT:
            return bits & 0xFFFF;
        case LONG:
            return (int) bits;
        case ULONG:
            return bits & 0xFFFFFFFFL;
        case ENUM:
            List<Enumerator> all = type.enumerators();
            return all.get(random.nextInt(all.size())).value();
        default:
            return bits;
        }
    }

    private boolean attempt(String path, Object value, Runnable javaChange, boolean peerTook) {
        last = path + " = " + value;
        boolean javaTook = true;
        try {
            javaChange.run();
        } catch (IllegalArgumentException refused) {
            javaTook = false;
        }
        if (javaTook != peerTook) {
            throw new AssertionError(last + ": taken by " + (javaTook ? "Java" : "native")
                    + " only");
        }
        return javaTook;
    }

    private boolean expect(Object wanted, Object found) {
        if (!wanted.equals(found)) {
            throw new AssertionError(last + " reads as " + found);
        }
        return true;
    }
}
