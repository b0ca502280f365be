package com.qel.ferrion.adapters.file;

/**
 * Why a row cannot become a sample. Thrown from decoding to the reader, which adds file and line;
 * it carries no stack trace, because a file may hold millions of them.
 */
final class BadRow extends Exception {
    private static final long serialVersionUID = 1L;

    BadRow(String reason) {
        super(reason, null, false, false);
    }

    /** A value shortened for a message. */
    static String quote(String value) {
        return value.length() <= 60 ? "'" + value + "'" : "'" + value.substring(0, 57) + "...'";
    }
}
