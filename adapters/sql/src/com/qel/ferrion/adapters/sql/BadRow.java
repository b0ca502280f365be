package com.qel.ferrion.adapters.sql;

/** A row or sample that cannot be carried; the message says why, its place is added elsewhere. */
final class BadRow extends Exception {
    private static final long serialVersionUID = 1L;
    private static final int LONGEST = 200;

    BadRow(String reason) {
        super(shortened(String.valueOf(reason)), null, false, false);
    }

    /** A text for people, who do not read a value of a megabyte. */
    static String shortened(String text) {
        return text.length() <= LONGEST ? text
                : text.substring(0, LONGEST) + "... (" + text.length() + " characters)";
    }
}
