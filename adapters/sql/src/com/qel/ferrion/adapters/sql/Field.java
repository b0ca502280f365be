package com.qel.ferrion.adapters.sql;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.dynamicdata.MemberPath;
import com.qel.dds.typecode.Kind;
import com.qel.dds.typecode.Member;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.BadRow;
import java.util.ArrayList;
import java.util.HexFormat;
import java.util.List;

/**
 * A member of samples that a column can hold: structs are taken apart, a sequence or array of bytes
 * is one. Used on one thread at a time.
 */
final class Field {
    private static final int KEPT_ELEMENTS = 1024;

    final String path;
    final Kind kind;
    final boolean key;
    /** Whether this is a sequence or array of octets. */
    final boolean octets;
    final MemberPath place;
    private final TypeCode declared;
    /** Length of an array of octets; -1 for a sequence. */
    private final int length;
    private final List<MemberPath> elements = new ArrayList<>();

    private Field(TypeCode root, TypeCode declared, String path, boolean key) {
        TypeCode type = declared.resolve();
        this.declared = declared;
        this.path = path;
        this.key = key;
        this.place = MemberPath.of(root, path);
        boolean array = type.kind() == Kind.ARRAY && type.dimensions().length == 1;
        this.octets = (array || type.kind() == Kind.SEQUENCE)
                && type.content().resolve().kind() == Kind.OCTET;
        this.kind = octets ? Kind.OCTET : type.kind();
        this.length = array ? type.dimensions()[0] : -1;
    }

    /** All members of a struct, in their order, also those that no column can hold. */
    static List<Field> of(TypeCode type) {
        List<Field> fields = new ArrayList<>();
        add(fields, type, type.resolve(), "", false);
        return fields;
    }

    /** A struct that is a key has its own key members in the key, or else all of them. */
    private static void add(List<Field> fields, TypeCode root, TypeCode struct, String prefix,
            boolean inKey) {
        for (Member member : struct.members()) {
            String path = prefix + member.name();
            TypeCode type = member.type().resolve();
            boolean key = prefix.isEmpty() ? member.key()
                    : inKey && (member.key() || !struct.keyed());
            if (type.kind() == Kind.STRUCT) {
                add(fields, root, type, path + ".", key);
            } else {
                fields.add(new Field(root, member.type(), path, key));
            }
        }
    }

    boolean isCarried() {
        return octets || (kind != Kind.SEQUENCE && kind != Kind.ARRAY);
    }

    /** @throws AdapterException for a collection of anything but octets */
    void requireCarried() throws AdapterException {
        if (!isCarried()) {
            throw new AdapterException("member \"" + path + "\" is " + declared
                    + "; of sequences and arrays columns hold those of octets only");
        }
    }

    boolean isReal() {
        return kind == Kind.FLOAT || kind == Kind.DOUBLE;
    }

    boolean isText() {
        return kind == Kind.STRING || kind == Kind.CHAR || kind == Kind.ENUM;
    }

    /** The name of its column where no other one was given. */
    String columnName() {
        return path.replace('.', '_');
    }

    byte[] bytes(DynamicData data) {
        byte[] bytes = new byte[data.getLength(place)];
        for (int i = 0; i < bytes.length; i++) {
            bytes[i] = data.getByte(element(i));
        }
        return bytes;
    }

    void setBytes(DynamicData data, byte[] bytes) throws BadRow {
        if (length < 0) {
            data.setLength(place, bytes.length);
        } else if (length != bytes.length) {
            throw new BadRow(bytes.length + " bytes, but the array has " + length);
        }
        for (int i = 0; i < bytes.length; i++) {
            data.setByte(element(i), bytes[i]);
        }
    }

    private MemberPath element(int index) {
        if (index >= KEPT_ELEMENTS) {
            return place.at(index);
        }
        while (elements.size() <= index) {
            elements.add(place.at(elements.size()));
        }
        return elements.get(index);
    }

    /** The value for people. */
    String text(DynamicData data) {
        if (octets) {
            return HexFormat.of().formatHex(bytes(data));
        }
        return switch (kind) {
        case STRING, ENUM -> data.getString(place);
        case CHAR -> String.valueOf(data.getChar(place));
        case BOOLEAN -> String.valueOf(data.getBoolean(place));
        case FLOAT -> String.valueOf(data.getFloat(place));
        case DOUBLE -> String.valueOf(data.getDouble(place));
        case ULONGLONG -> Long.toUnsignedString(data.getLong(place));
        default -> String.valueOf(data.getLong(place));
        };
    }
}
