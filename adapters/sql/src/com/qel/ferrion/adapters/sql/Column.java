package com.qel.ferrion.adapters.sql;

import java.sql.Types;
import java.util.Locale;

/**
 * A column of a table or query.
 *
 * @param name as the database writes it
 * @param typeName what the database calls its type
 * @param jdbcType what {@link Types} does
 * @param precision digits, where that means something
 * @param scale digits behind the point
 * @param nullable whether it may hold NULL, as far as the driver knows
 */
record Column(String name, String typeName, int jdbcType, int precision, int scale,
        boolean nullable) {
    /** Whether all its values are whole numbers of up to 64 bits. */
    boolean isInteger() {
        return switch (jdbcType) {
            case Types.TINYINT, Types.SMALLINT, Types.INTEGER, Types.BIGINT -> true;
            default -> isNumeric() && scale == 0 && precision > 0 && precision <= 18;
        };
    }

    boolean isNumeric() {
        return jdbcType == Types.NUMERIC || jdbcType == Types.DECIMAL;
    }

    boolean isTime() {
        return jdbcType == Types.TIMESTAMP || typeName.equalsIgnoreCase("datetime");
    }

    String quoted() {
        return Dialect.quote(name);
    }

    /** A name as IDL can have it, but for words of its own. */
    static String identifier(String name) {
        return name.replaceAll("[^A-Za-z0-9]", "_").replaceFirst("^(?![A-Za-z])", "c");
    }

    /**
     * What is left of a name when the rules of SQL and IDL for names do not count: two names that
     * agree in it are taken for each other.
     */
    static String plain(String name) {
        return identifier(name).replaceFirst("_+$", "").toLowerCase(Locale.ROOT);
    }
}
