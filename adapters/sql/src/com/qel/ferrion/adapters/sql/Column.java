package com.qel.ferrion.adapters.sql;

import com.qel.dds.TypeException;
import com.qel.dds.typecode.TypeCode;
import java.sql.Types;
import java.util.function.Predicate;

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

    /** A name that IDL can have and nothing else has, made of any name. */
    static String identifier(String name, Predicate<String> isTaken) {
        String free = name.replaceAll("[^A-Za-z0-9]", "_").replaceFirst("^(?![A-Za-z])", "c");
        while (isKeyword(free) || isTaken.test(free)) {
            free += "_";
        }
        return free;
    }

    /** Which words are IDL's own only its parser knows. */
    private static boolean isKeyword(String word) {
        try {
            TypeCode.fromIdl("struct x__ { long " + word + "; };", null);
            return false;
        } catch (TypeException e) {
            return true;
        }
    }
}
