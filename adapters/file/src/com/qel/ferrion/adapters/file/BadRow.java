package com.qel.ferrion.adapters.file;

/**
 * Why a row cannot become a sample. Thrown from decoding to the reader, which adds file and line;
 * it carries no stack trace, because a file may hold millions of them.
 */
final class BadRow extends Exception {
    private static final long serialVersionUID = 1L;

    /** Path of the member whose value is wrong; empty when the row as a whole is. */
    final String member;
    final String reason;

    /** A row that is wrong as a whole, or at a place that the caller knows. */
    BadRow(String reason) {
        this("", reason);
    }

    BadRow(String member, String reason) {
        super(member.isEmpty() ? reason : member + ": " + reason, null, false, false);
        this.member = member;
        this.reason = reason;
    }

    /** What a sample has refused; its text may begin with the member that it was given. */
    static BadRow refused(String member, RuntimeException refused) {
        String text = String.valueOf(refused.getMessage());
        boolean named = !member.isEmpty() && text.startsWith(member + ": ");
        return new BadRow(member, named ? text.substring(member.length() + 2) : text);
    }

    /** This, with the member, unless it names one already. */
    BadRow in(String place) {
        return member.isEmpty() ? new BadRow(place, reason) : this;
    }

    /** A value shortened for a message. */
    static String quote(String value) {
        return value.length() <= 60 ? "\"" + value + "\"" : "\"" + value.substring(0, 57) + "...\"";
    }
}
