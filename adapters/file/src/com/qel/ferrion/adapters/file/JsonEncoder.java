package com.qel.ferrion.adapters.file;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.Kind;
import java.nio.charset.StandardCharsets;

/**
 * Samples to JSON lines. Numbers are written so that they read back exactly; NaN becomes null, and
 * the infinities, which JSON has no number for, "Infinity" and "-Infinity".
 *
 * <p>Written without a library: what a record needs of JSON is little, its names are encoded once,
 * and a library's generator would keep a state that a sample which fails half-way leaves behind.
 */
final class JsonEncoder implements RowEncoder {
    /** Characters of a string that room is made for at a time. */
    private static final int PIECE = 4096;
    /** Bytes that a character takes at most: as an escape. */
    private static final int LONGEST = 6;
    private static final String NAMED = "\"\\\b\f\n\r\t";
    private static final String NAMES = "\"\\bfnrt";
    private static final byte[] HEX = "0123456789ABCDEF".getBytes(StandardCharsets.ISO_8859_1);

    private final Value root;
    private final Decimals decimals = new Decimals();

    JsonEncoder(Value root) {
        this.root = root;
    }

    @Override
    public byte[] header() {
        return new byte[0];
    }

    @Override
    public void encode(DynamicData data, Bytes out) {
        write(root, data, out);
        out.write('\n');
    }

    /** Appends the JSON text of a place. What a throw leaves of it is the caller's to cut off. */
    void write(Value value, DynamicData data, Bytes out) {
        switch (value.kind) {
        case STRUCT:
            for (int i = 0; i < value.ordered.length; i++) {
                byte[] lead = value.ordered[i].jsonLead;
                out.write(lead, 0, lead.length);
                write(value.ordered[i], data, out);
            }
            out.write('}');
            break;
        case SEQUENCE:
        case ARRAY:
            int length = value.kind == Kind.ARRAY ? value.size : data.getLength(value.place);
            out.write('[');
            for (int i = 0; i < length; i++) {
                if (i > 0) {
                    out.write(',');
                }
                write(value.element(i), data, out);
            }
            out.write(']');
            break;
        case STRING:
            quote(data.getString(value.place), out);
            break;
        case CHAR:
            quote(String.valueOf(data.getChar(value.place)), out);
            break;
        case ENUM:
            int ordinal = data.getInt(value.place);
            String name = value.enumName(ordinal);
            if (name == null) {
                out.plain(Integer.toString(ordinal));
            } else {
                quote(name, out);
            }
            break;
        default:
            String odd = value.scalar.append(data, decimals, out);
            if (odd != null) {
                out.plain(odd.equals("NaN") ? "null" : '"' + odd + '"');
            }
            break;
        }
    }

    /** Appends a string of whole characters as JSON and UTF-8. */
    static void quote(String text, Bytes out) {
        out.write('"');
        for (int i = 0; i < text.length();) {
            int end = Math.min(text.length(), i + PIECE);
            byte[] to = out.room((end - i) * LONGEST);
            int at = out.size();
            while (i < end) {
                char c = text.charAt(i++);
                if (c >= ' ' && c < 0x80 && c != '"' && c != '\\') {
                    to[at++] = (byte) c;
                } else if (c < 0x80) {
                    at = escape(c, to, at);
                } else if (c < 0x800) {
                    to[at++] = (byte) (0xC0 | c >> 6);
                    to[at++] = continuation(c);
                } else if (!Character.isSurrogate(c)) {
                    to[at++] = (byte) (0xE0 | c >> 12);
                    to[at++] = continuation(c >> 6);
                    to[at++] = continuation(c);
                } else {
                    int point = Character.toCodePoint(c, text.charAt(i++));
                    to[at++] = (byte) (0xF0 | point >> 18);
                    to[at++] = continuation(point >> 12);
                    to[at++] = continuation(point >> 6);
                    to[at++] = continuation(point);
                }
            }
            out.setSize(at);
        }
        out.write('"');
    }

    private static byte continuation(int bits) {
        return (byte) (0x80 | bits & 0x3F);
    }

    private static int escape(char c, byte[] to, int start) {
        int at = start;
        to[at++] = '\\';
        int named = NAMED.indexOf(c);
        if (named >= 0) {
            to[at++] = (byte) NAMES.charAt(named);
        } else {
            to[at++] = 'u';
            to[at++] = '0';
            to[at++] = '0';
            to[at++] = HEX[c >> 4];
            to[at++] = HEX[c & 15];
        }
        return at;
    }
}
