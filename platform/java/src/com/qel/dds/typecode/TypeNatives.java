package com.qel.dds.typecode;

import com.qel.dds.TypeException;
import com.qel.dds.internal.NativeLibrary;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.ConcurrentHashMap;

/**
 * Looks at native type codes, and keeps the one Java object that each of them has. Texts cross as
 * UTF-8 bytes. Any thread.
 */
final class TypeNatives {
    private static final ConcurrentHashMap<Long, TypeCode> TYPES = new ConcurrentHashMap<>();

    private TypeNatives() {}

    /** Types contain no cycles, so making one may make those it is built of first. */
    static TypeCode intern(long address) {
        TypeCode known = TYPES.get(address);
        if (known != null) {
            return known;
        }
        NativeLibrary.require();
        TypeCode made = new TypeCode(address);
        TypeCode first = TYPES.putIfAbsent(address, made);
        return first != null ? first : made;
    }

    static Kind kind(long address) {
        return Kind.fromNative(kind0(address));
    }

    static String name(long address) {
        return text(name0(address));
    }

    static List<Member> members(long address) {
        List<Member> members = new ArrayList<>();
        for (int i = 0; i < memberCount(address); i++) {
            members.add(new Member(text(memberName(address, i)),
                    intern(memberType(address, i)), isMemberKey(address, i)));
        }
        return List.copyOf(members);
    }

    static List<Enumerator> enumerators(long address) {
        List<Enumerator> enumerators = new ArrayList<>();
        for (int i = 0; i < memberCount(address); i++) {
            enumerators.add(new Enumerator(text(memberName(address, i)),
                    memberValue(address, i)));
        }
        return List.copyOf(enumerators);
    }

    static String idl(long address) {
        return text(idl0(address));
    }

    /** Address of the type wanted from IDL, a text or the path of a file. */
    static long parse(String source, boolean isFile, String typeName) {
        NativeLibrary.require();
        byte[][] error = new byte[1][];
        long address = parse0(bytes(source), isFile, typeName != null ? bytes(typeName) : null,
                error);
        if (address == 0) {
            throw new TypeException(text(error[0]));
        }
        return address;
    }

    /** UTF-8 with a NUL behind it. */
    private static byte[] bytes(String text) {
        if (text.indexOf('\0') >= 0) {
            throw new TypeException("a NUL character at position " + text.indexOf('\0'));
        }
        return (text + '\0').getBytes(StandardCharsets.UTF_8);
    }

    private static String text(byte[] bytes) {
        return bytes != null ? new String(bytes, StandardCharsets.UTF_8) : null;
    }

    private static native int kind0(long address);

    private static native byte[] name0(long address);

    static native long content(long address);

    static native long base(long address);

    static native boolean isAppendable(long address);

    static native boolean isKeyed(long address);

    static native int bound(long address);

    static native int[] dimensions(long address);

    private static native int memberCount(long address);

    private static native byte[] memberName(long address, int index);

    private static native long memberType(long address, int index);

    private static native boolean isMemberKey(long address, int index);

    static native byte[] memberDefault(long address, int index);

    private static native int memberValue(long address, int index);

    private static native byte[] idl0(long address);

    private static native long parse0(byte[] source, boolean isFile, byte[] typeName,
            byte[][] error);
}
