package com.qel.ferrion.adapters.file;

import java.io.IOException;
import java.io.OutputStream;
import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;
import java.util.Arrays;

/**
 * Encoded records of one batch, kept in one array from batch to batch. Used on one thread at a
 * time, and so without the lock that the JDK's own would take for every record.
 */
final class Bytes extends OutputStream {
    private static final int KEPT = 1 << 16;
    /** A longer array is kept while what it is used for takes this part of it. */
    private static final int SPARSE = 4;

    private byte[] buffer = new byte[KEPT];
    private int count;

    @Override
    public void write(int b) {
        room(1);
        buffer[count++] = (byte) b;
    }

    @Override
    public void write(byte[] from, int offset, int length) {
        room(length);
        System.arraycopy(from, offset, buffer, count, length);
        count += length;
    }

    /** Appends a text of ASCII characters. */
    void plain(String text) {
        byte[] to = room(text.length());
        for (int i = 0; i < text.length(); i++) {
            to[count++] = (byte) text.charAt(i);
        }
    }

    /** Appends a text of whole characters. */
    void utf8(String text) {
        byte[] bytes = text.getBytes(StandardCharsets.UTF_8);
        write(bytes, 0, bytes.length);
    }

    /** Appends the number formatted last. */
    void plain(Decimals number) {
        int length = number.length();
        System.arraycopy(number.text(), number.start(), room(length), count, length);
        count += length;
    }

    /** Makes room behind what has been written. @return where that is to be put, from size on */
    byte[] room(int more) {
        if (more > buffer.length - count) {
            int wanted = Math.addExact(count, more);
            buffer = Arrays.copyOf(buffer, Math.max(wanted, (int) Math.min(2L * buffer.length,
                    Integer.MAX_VALUE - 8)));
        }
        return buffer;
    }

    int size() {
        return count;
    }

    /** Forgets what has been written, and an array that was far too long for it. */
    void reset() {
        if (buffer.length > KEPT && count < buffer.length / SPARSE) {
            buffer = new byte[KEPT];
        }
        count = 0;
    }

    /** Forgets what has been written, and gives its memory back. */
    void release() {
        buffer = new byte[KEPT];
        count = 0;
    }

    void writeTo(OutputStream out) throws IOException {
        out.write(buffer, 0, count);
    }

    /** Sets the size: behind what was put into the room, or back to before an incomplete record. */
    void setSize(int size) {
        count = size;
    }

    /** The whole as text. */
    String text() {
        return new String(buffer, 0, count, StandardCharsets.UTF_8);
    }

    /** A part of what has been written, without copying it. */
    ByteBuffer slice(int from, int to) {
        return ByteBuffer.wrap(buffer, from, to - from);
    }
}
