package com.qel.ferrion.adapters.file;

import com.fasterxml.jackson.core.JsonFactory;
import com.fasterxml.jackson.core.JsonGenerator;
import com.fasterxml.jackson.core.io.SerializedString;
import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.Kind;
import java.io.IOException;
import java.io.StringWriter;

/**
 * Samples to JSON lines. Numbers are written so that they read back exactly; NaN becomes null, and
 * the infinities, which JSON has no number for, "Infinity" and "-Infinity".
 */
final class JsonEncoder implements RowEncoder {
    private final Value root;
    private final JsonFactory factory = new JsonFactory();
    private final Decimals decimals = new Decimals();
    private JsonGenerator generator;

    JsonEncoder(Value root) {
        this.root = root;
    }

    @Override
    public byte[] header() {
        return new byte[0];
    }

    @Override
    public void encode(DynamicData data, Bytes out) throws IOException {
        if (generator == null) {
            generator = factory.createGenerator(out);
            generator.setRootValueSeparator(new SerializedString(""));
        }
        JsonGenerator used = generator;
        generator = null;
        write(used, root, data, decimals);
        used.writeRaw('\n');
        used.flush();
        // After a failure the generator stands inside a record: only then is it not used again.
        generator = used;
    }

    /** The JSON text of a sequence or array, as a table cell holds it. */
    static String cell(JsonFactory factory, Value value, DynamicData data, Decimals decimals)
            throws IOException {
        StringWriter text = new StringWriter();
        try (JsonGenerator generator = factory.createGenerator(text)) {
            write(generator, value, data, decimals);
        }
        return text.toString();
    }

    private static void write(JsonGenerator out, Value value, DynamicData data, Decimals decimals)
            throws IOException {
        switch (value.kind) {
        case STRUCT:
            out.writeStartObject();
            for (Value member : value.members.values()) {
                out.writeFieldName(member.jsonName);
                write(out, member, data, decimals);
            }
            out.writeEndObject();
            break;
        case SEQUENCE:
        case ARRAY:
            int length = value.kind == Kind.ARRAY ? value.size : data.getLength(value.place);
            out.writeStartArray();
            for (int i = 0; i < length; i++) {
                write(out, value.element(i), data, decimals);
            }
            out.writeEndArray();
            break;
        default:
            writeScalar(out, value, data, decimals);
            break;
        }
    }

    private static void writeScalar(JsonGenerator out, Value value, DynamicData data,
            Decimals decimals) throws IOException {
        switch (value.kind) {
        case STRING:
            out.writeString(data.getString(value.place));
            break;
        case CHAR:
            out.writeString(String.valueOf(data.getChar(value.place)));
            break;
        case BOOLEAN:
            out.writeBoolean(data.getBoolean(value.place));
            break;
        case FLOAT:
            float single = data.getFloat(value.place);
            if (decimals.format(single)) {
                out.writeNumber(decimals.text(), decimals.start(), decimals.length());
            } else if (Float.isFinite(single)) {
                out.writeNumber(single);
            } else {
                writeWord(out, single);
            }
            break;
        case DOUBLE:
            double number = data.getDouble(value.place);
            if (decimals.format(number)) {
                out.writeNumber(decimals.text(), decimals.start(), decimals.length());
            } else if (Double.isFinite(number)) {
                out.writeNumber(number);
            } else {
                writeWord(out, number);
            }
            break;
        case ULONGLONG:
            long bits = data.getLong(value.place);
            if (bits >= 0) {
                out.writeNumber(bits);
            } else {
                out.writeNumber(Long.toUnsignedString(bits));
            }
            break;
        case ENUM:
            int ordinal = data.getInt(value.place);
            String name = value.enumName(ordinal);
            if (name == null) {
                out.writeNumber(ordinal);
            } else {
                out.writeString(name);
            }
            break;
        default:
            out.writeNumber(data.getLong(value.place));
            break;
        }
    }

    private static void writeWord(JsonGenerator out, double number) throws IOException {
        if (Double.isNaN(number)) {
            out.writeNull();
        } else {
            out.writeString(Double.toString(number));
        }
    }
}
