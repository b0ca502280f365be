package com.qel.ferrion.adapters.sql;

/** A row or sample that cannot be carried; the message says why, its place is added elsewhere. */
final class BadRow extends Exception {
    private static final long serialVersionUID = 1L;

    BadRow(String reason) {
        super(reason, null, false, false);
    }
}
