package com.qel.dds.dynamicdata;

import com.qel.dds.TypeException;
import com.qel.dds.typecode.Kind;
import com.qel.dds.typecode.Member;

/** A sample as text for people: {@code weather::Point{name: "a", values: [1, 2]}}. */
final class SampleText {
    private static final int MAX_ELEMENTS = 32;

    private final SampleBuffer buffer;
    private final StringBuilder out = new StringBuilder();

    private SampleText(SampleBuffer buffer) {
        this.buffer = buffer;
    }

    static String of(DynamicData data) {
        SampleText text = new SampleText(data.buffer);
        text.out.append(data.type());
        try {
            text.members(data.buffer.root, "");
        } catch (TypeException malformed) {
            text.out.append("...: ").append(malformed.getMessage());
        }
        return text.out.toString();
    }

    private void members(TypeLayout struct, String prefix) {
        String separator = "{";
        for (Member member : struct.type.members()) {
            out.append(separator).append(member.name()).append(": ");
            value(buffer.root.path(prefix + member.name()));
            separator = ", ";
        }
        out.append('}');
    }

    private void value(MemberPath path) {
        switch (path.target.kind) {
        case STRUCT:
            members(path.target, path + ".");
            break;
        case SEQUENCE:
        case ARRAY:
            elements(path);
            break;
        case STRING:
            out.append('"').append(Variable.getString(buffer, path)).append('"');
            break;
        case CHAR:
            out.append('\'').append(Scalars.getChar(buffer, path)).append('\'');
            break;
        case BOOLEAN:
            out.append(Scalars.getBoolean(buffer, path));
            break;
        case FLOAT:
            out.append(Scalars.getFloat(buffer, path));
            break;
        case DOUBLE:
            out.append(Scalars.getDouble(buffer, path));
            break;
        case ENUM:
            out.append(Variable.getString(buffer, path));
            break;
        default:
            integer(path);
            break;
        }
    }

    private void integer(MemberPath path) {
        long value = Scalars.getInteger(buffer, path, Long.SIZE, "long");
        out.append(path.target.kind == Kind.ULONGLONG ? Long.toUnsignedString(value)
                                                      : Long.toString(value));
    }

    private void elements(MemberPath path) {
        int length = Variable.getLength(buffer, path);
        out.append('[');
        for (int i = 0; i < length && i < MAX_ELEMENTS; i++) {
            out.append(i == 0 ? "" : ", ");
            value(path.at(i));
        }
        out.append(length > MAX_ELEMENTS ? ", and " + (length - MAX_ELEMENTS) + " more]" : "]");
    }
}
