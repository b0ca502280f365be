package com.qel.dds.dynamicdata;

import com.qel.dds.TypeException;
import java.nio.ByteBuffer;
import java.nio.charset.CharacterCodingException;
import java.nio.charset.StandardCharsets;

/**
 * Strings as the bytes of a sample. Strict in both directions: what has no UTF-8 is rejected
 * instead of replaced, as replacements would be written on as if they had been the data.
 */
final class Utf8 {
    private Utf8() {}

    /**
     * Bytes that a text takes, or the reason why it cannot be in a sample.
     *
     * @throws IllegalArgumentException for a NUL, which would end the text for native readers, and
     *     for half of a surrogate pair
     */
    static long length(String text, MemberPath path) {
        long length = text.length();
        for (int i = 0; i < text.length(); i++) {
            char c = text.charAt(i);
            if (c < 0x80) {
                if (c == 0) {
                    throw new IllegalArgumentException(path + ": NUL character at position " + i);
                }
            } else if (c < 0x800) {
                length += 1;
            } else if (!Character.isSurrogate(c)) {
                length += 2;
            } else if (Character.isHighSurrogate(c) && i + 1 < text.length()
                    && Character.isLowSurrogate(text.charAt(i + 1))) {
                length += 2;
                i++;
            } else {
                throw new IllegalArgumentException(path + ": half of a surrogate pair at position "
                        + i);
            }
        }
        return length;
    }

    /** Writes a text that {@link #length} has accepted; returns the position behind it. */
    static int encode(String text, byte[] bytes, int start) {
        int at = start;
        for (int i = 0; i < text.length(); i++) {
            char c = text.charAt(i);
            if (c < 0x80) {
                bytes[at++] = (byte) c;
            } else if (c < 0x800) {
                bytes[at++] = (byte) (0xC0 | c >> 6);
                bytes[at++] = continuation(c);
            } else if (!Character.isSurrogate(c)) {
                bytes[at++] = (byte) (0xE0 | c >> 12);
                bytes[at++] = continuation(c >> 6);
                bytes[at++] = continuation(c);
            } else {
                int point = Character.toCodePoint(c, text.charAt(++i));
                bytes[at++] = (byte) (0xF0 | point >> 18);
                bytes[at++] = continuation(point >> 12);
                bytes[at++] = continuation(point >> 6);
                bytes[at++] = continuation(point);
            }
        }
        return at;
    }

    private static byte continuation(int bits) {
        return (byte) (0x80 | bits & 0x3F);
    }

    /**
     * @throws TypeException when the bytes are not UTF-8
     */
    static String decode(byte[] bytes, int start, int length, MemberPath path) {
        String text = new String(bytes, start, length, StandardCharsets.UTF_8);
        if (text.indexOf('\uFFFD') >= 0) {
            // Either the text has this character, or the bytes are wrong.
            try {
                StandardCharsets.UTF_8.newDecoder().decode(ByteBuffer.wrap(bytes, start, length));
            } catch (CharacterCodingException e) {
                throw new TypeException(path + ": the string is not UTF-8: " + e.getMessage());
            }
        }
        return text;
    }
}
