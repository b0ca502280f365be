package com.qel.ferrion.kit;

/**
 * Why a row cannot become a sample, or a sample no row. Thrown to whoever knows the row's place. It
 * carries no stack trace, because a source may hold millions of such rows.
 */
public final class BadRow extends Exception {
    private static final long serialVersionUID = 1L;
    private static final int LONGEST = 200;

    private final String member;
    private final String reason;

    /**
     * @param reason what is wrong with the row as a whole, or with a member that the caller knows
     */
    public BadRow(String reason) {
        this("", reason);
    }

    /**
     * @param member path of the member, or name of the column, whose value is wrong; empty when the
     *     row as a whole is
     * @param reason what is wrong
     */
    public BadRow(String member, String reason) {
        super(member.isEmpty() ? reason : member + ": " + reason, null, false, false);
        this.member = member;
        this.reason = reason;
    }

    /**
     * @param member as of {@link #BadRow(String, String)}
     * @param rejection what a sample threw; its text may begin with the member that it was given
     * @return what is wrong with the row
     */
    public static BadRow rejected(String member, RuntimeException rejection) {
        String text = String.valueOf(rejection.getMessage());
        boolean named = !member.isEmpty() && text.startsWith(member + ": ");
        return new BadRow(member, named ? text.substring(member.length() + 2) : text);
    }

    /** @return this with the member, unless it names one already */
    public BadRow in(String place) {
        return member.isEmpty() ? new BadRow(place, reason) : this;
    }

    /** @return path of the member, or name of the column; empty when the row as a whole is wrong */
    public String member() {
        return member;
    }

    /** @return what is wrong, without the member */
    public String reason() {
        return reason;
    }

    /** @return a value in quotes, shortened for a message */
    public static String quote(String value) {
        return value.length() <= 60 ? "\"" + value + "\"" : "\"" + value.substring(0, 57) + "...\"";
    }

    /** @return a text for people, who do not read a value of a megabyte */
    public static String shortened(String text) {
        return text.length() <= LONGEST ? text
                : text.substring(0, LONGEST) + "... (" + text.length() + " characters)";
    }
}
