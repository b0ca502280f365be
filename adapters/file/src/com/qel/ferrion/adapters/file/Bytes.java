package com.qel.ferrion.adapters.file;

import java.io.ByteArrayOutputStream;
import java.nio.ByteBuffer;

/** Encoded records of one batch, kept in one array from batch to batch. */
final class Bytes extends ByteArrayOutputStream {
    Bytes() {
        super(1 << 16);
    }

    /** Cuts back to an earlier size: what followed was no whole record. */
    void cut(int size) {
        count = size;
    }

    /** A part of what has been written, without copying it. */
    ByteBuffer slice(int from, int to) {
        return ByteBuffer.wrap(buf, from, to - from);
    }
}
