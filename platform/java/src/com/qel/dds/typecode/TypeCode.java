package com.qel.dds.typecode;

import com.qel.dds.TypeException;
import java.nio.file.Path;
import java.util.HashMap;
import java.util.List;
import java.util.Map;

/**
 * A type. Immutable; any thread.
 *
 * <p>Native and Java code know the same type by one native address: equal types are one object here
 * as there, {@code ==} says whether two types are the same, and neither is ever freed. Names are
 * scoped with "::".
 */
public final class TypeCode {
    private final long address;
    private final Kind kind;
    private final String name;
    private final TypeCode resolved;
    private final TypeCode content;
    private final TypeCode base;
    private final boolean appendable;
    private final boolean keyed;
    private final int bound;
    private final int[] dimensions;
    private final List<Member> members;
    private final Map<String, Member> membersByName = new HashMap<>();
    private final List<Enumerator> enumerators;

    TypeCode(long address) {
        this.address = address;
        kind = TypeNatives.kind(address);
        name = TypeNatives.name(address);
        TypeCode target = create_from_native(TypeNatives.content(address));
        content = target;
        resolved = kind == Kind.ALIAS ? target.resolved : this;
        base = create_from_native(TypeNatives.base(address));
        appendable = TypeNatives.isAppendable(address);
        keyed = TypeNatives.isKeyed(address);
        bound = TypeNatives.bound(address);
        dimensions = TypeNatives.dimensions(address);
        members = kind == Kind.STRUCT ? TypeNatives.members(address) : List.of();
        enumerators = kind == Kind.ENUM ? TypeNatives.enumerators(address) : List.of();
        for (Member member : members) {
            membersByName.put(member.name(), member);
        }
    }

    /**
     * The object of a native type. Called by native code.
     *
     * @param address of a native type code; anything else ends the process
     * @return always the same object for one address; null for 0
     */
    public static TypeCode create_from_native(long address) {
        return address == 0 ? null : TypeNatives.intern(address);
    }

    /** @return the address of the native type code, never 0 */
    public long get_native_typecode() {
        return address;
    }

    /**
     * Reads types from IDL. There is no file beside it that it could include.
     *
     * @param idl the text; everything it uses is in it
     * @param typeName scoped name of the type wanted, or null for the struct declared last
     * @return the type
     * @throws TypeException when the text is wrong or uses what is not carried, with line and
     *     column ("idl:3:9: ..."), or has no such type
     */
    public static TypeCode fromIdl(String idl, String typeName) {
        return create_from_native(TypeNatives.parse(idl, false, typeName));
    }

    /**
     * Reads types from an IDL file. What it includes is in its folder or below.
     *
     * @param file a text in UTF-8
     * @param typeName scoped name of the type wanted, or null for the struct declared last
     * @return the type
     * @throws TypeException when the file cannot be read, and as {@link #fromIdl}, with the file's
     *     path in front of the line
     */
    public static TypeCode fromIdlFile(Path file, String typeName) {
        return create_from_native(TypeNatives.parse(file.toString(), true, typeName));
    }

    /** @return what kind of type this is */
    public Kind kind() {
        return kind;
    }

    /** @return scoped name of a struct, enum or alias ("weather::Observation"), else null */
    public String name() {
        return name;
    }

    /** @return the type without its aliases; those of its members and elements stay */
    public TypeCode resolve() {
        return resolved;
    }

    /** @return the element of a sequence or array, the target of an alias, else null */
    public TypeCode content() {
        return content;
    }

    /** @return the struct that this one is derived from, or null */
    public TypeCode base() {
        return base;
    }

    /** @return true for a struct that may grow at its end, false for a final one */
    public boolean appendable() {
        return appendable;
    }

    /** @return true for a struct with key members, its own or its base's */
    public boolean keyed() {
        return keyed;
    }

    /** @return most bytes of a string, most elements of a sequence; 0 where there is no bound */
    public int bound() {
        return bound;
    }

    /** @return dimensions of an array, outermost first; empty for other kinds */
    public int[] dimensions() {
        return dimensions.clone();
    }

    /** @return members of a struct, those of its base first; empty for other kinds */
    public List<Member> members() {
        return members;
    }

    /**
     * @param memberName name of a member of this struct or its base
     * @return the member, or null
     */
    public Member member(String memberName) {
        return membersByName.get(memberName);
    }

    /**
     * @param index of a member of this struct
     * @return the value that a new sample has there, as CDR (little endian, no padding in front);
     *     null where it is that of the member's type
     */
    public byte[] memberDefault(int index) {
        return TypeNatives.memberDefault(address, index);
    }

    /** @return enumerators of an enum in their order; empty for other kinds */
    public List<Enumerator> enumerators() {
        return enumerators;
    }

    /** @return IDL of this type and of all named types it uses; reading it gives this type again */
    public String toIdl() {
        return TypeNatives.idl(address);
    }

    /** @return the name, or for types without one what IDL calls them ({@code sequence<long>}) */
    @Override
    public String toString() {
        switch (kind) {
        case STRING:
            return bound == 0 ? "string" : "string<" + bound + ">";
        case SEQUENCE:
            return "sequence<" + content + (bound == 0 ? ">" : ", " + bound + ">");
        case ARRAY:
            StringBuilder text = new StringBuilder(content.toString());
            for (int dimension : dimensions) {
                text.append('[').append(dimension).append(']');
            }
            return text.toString();
        default:
            return name != null ? name : kind.idlName();
        }
    }
}
