package com.qel.ferrion.adapters.file;

import java.io.OutputStream;
import java.nio.ByteBuffer;
import java.util.Arrays;

/**
 * Encoded records of one batch, kept in one array from batch to batch. Used on one thread at a
 * time, and so without the lock that the JDK's own would take for every record.
 */
final class Bytes extends OutputStream {
    private byte[] buffer = new byte[1 << 16];
    private int count;

    @Override
    public void write(int b) {
        reserve(1);
        buffer[count++] = (byte) b;
    }

    @Override
    public void write(byte[] from, int offset, int length) {
        reserve(length);
        System.arraycopy(from, offset, buffer, count, length);
        count += length;
    }

    private void reserve(int more) {
        if (more > buffer.length - count) {
            int wanted = Math.addExact(count, more);
            buffer = Arrays.copyOf(buffer, Math.max(wanted, (int) Math.min(2L * buffer.length,
                    Integer.MAX_VALUE - 8)));
        }
    }

    int size() {
        return count;
    }

    void reset() {
        count = 0;
    }

    /** Cuts back to an earlier size: what followed was no whole record. */
    void cut(int size) {
        count = size;
    }

    /** A part of what has been written, without copying it. */
    ByteBuffer slice(int from, int to) {
        return ByteBuffer.wrap(buffer, from, to - from);
    }
}
