package com.qel.ferrion.adapters.sql;

import com.qel.dds.TypeException;
import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.Kind;
import com.qel.ferrion.kit.BadRow;
import java.math.BigDecimal;
import java.math.BigInteger;
import java.sql.PreparedStatement;
import java.sql.ResultSet;
import java.sql.SQLException;
import java.sql.Types;
import java.time.DateTimeException;
import java.time.Instant;
import java.time.LocalDateTime;
import java.time.OffsetDateTime;
import java.time.ZoneOffset;

/**
 * Where a member and a column meet: values go over in both directions unchanged, or the row is bad.
 * Used on one thread at a time.
 */
final class Cell {
    /** What a value of a fixed size counts, and what stands for NULL in its place. */
    private static final int SMALL = 16;
    private static final int NULL = -1;

    final Field field;
    final Column column;
    private final Dialect dialect;
    private final TimeUnit unit;
    private final Setter setter;
    private boolean remembers;
    private Object last;

    /** Sets the member to a value, which is neither NULL nor a blob. */
    private interface Setter {
        /** @return about how many bytes the value takes */
        int set(ResultSet row, int index, Object value, DynamicData data)
                throws SQLException, BadRow;
    }

    /** What an integer counts that stands for a point in time. */
    enum TimeUnit {
        S(1), MS(1_000), US(1_000_000), NS(1_000_000_000);

        private final long perSecond;

        TimeUnit(long perSecond) {
            this.perSecond = perSecond;
        }

        long of(OffsetDateTime time) {
            return Math.addExact(Math.multiplyExact(time.toEpochSecond(), perSecond),
                    time.getNano() / (1_000_000_000 / perSecond));
        }

        OffsetDateTime time(long count) {
            return Instant.ofEpochSecond(Math.floorDiv(count, perSecond),
                    Math.floorMod(count, perSecond) * (1_000_000_000 / perSecond))
                    .atOffset(ZoneOffset.UTC);
        }
    }

    Cell(Field field, Column column, Dialect dialect, TimeUnit unit) {
        this.field = field;
        this.column = column;
        this.dialect = dialect;
        this.unit = unit;
        setter = setter();
    }

    /**
     * Sets the member from a row.
     *
     * @param nulls whether NULL stands for the member's default
     * @return about how many bytes the value takes
     * @throws BadRow when the value is none of the member's, or the driver cannot give it
     * @throws SQLException when the connection has failed
     */
    int read(ResultSet row, int index, DynamicData data, boolean nulls)
            throws SQLException, BadRow {
        try {
            int bytes = field.octets ? readBytes(row, index, data) : readScalar(row, index, data);
            if (bytes == NULL && !nulls) {
                throw new BadRow("NULL, for which a " + (field.octets ? "sequence" : field.kind
                        .name().toLowerCase(java.util.Locale.ROOT)) + " has no value");
            }
            return Math.max(bytes, SMALL);
        } catch (NumberFormatException e) {
            throw bad("no number: " + e.getMessage());
        } catch (IllegalArgumentException | ArithmeticException | DateTimeException
                | TypeException | BadRow e) {
            throw bad(e.getMessage());
        } catch (SQLException e) {
            if (dialect.isDisconnected(e) || dialect.isTooLarge(e)) {
                throw e;
            }
            throw bad(Secrets.text(e));
        }
    }

    private BadRow bad(String reason) {
        return new BadRow(column.name(), BadRow.shortened(String.valueOf(reason)));
    }

    private int readBytes(ResultSet row, int index, DynamicData data)
            throws SQLException, BadRow {
        Object value = row.getObject(index);
        if (value == null) {
            return NULL;
        }
        if (value instanceof Number) {
            throw new BadRow("a number, and no bytes");
        }
        byte[] bytes = value instanceof byte[] ? (byte[]) value : row.getBytes(index);
        field.setBytes(data, bytes);
        return bytes.length;
    }

    /** Whether the driver's object is the value itself, and no blob. */
    boolean isScalar() {
        return !field.octets && !column.isTime();
    }

    /** From now on the driver's object for the row read last is kept. */
    void remember() {
        remembers = true;
    }

    Object remembered() {
        return last;
    }

    /** NaN has no other form in a table than NULL. */
    private int readScalar(ResultSet row, int index, DynamicData data)
            throws SQLException, BadRow {
        boolean text = field.kind == Kind.STRING || field.kind == Kind.CHAR;
        OffsetDateTime time = column.isTime() && !text ? dialect.time(row, index, column) : null;
        Object value = time != null ? (Object) unit.of(time) : row.getObject(index);
        if (remembers) {
            last = value;
        }
        if (value == null) {
            if (field.isReal()) {
                data.setDouble(field.place, Double.NaN);
            }
            return field.isReal() ? SMALL : NULL;
        }
        if (value instanceof byte[]) {
            throw new BadRow("a blob");
        }
        return setter.set(row, index, value, data);
    }

    /** By the member's kind: one method for all of them takes the VM seconds to compile. */
    private Setter setter() {
        return switch (field.kind) {
        case STRING -> (row, index, value, data) -> {
            String text = dialect.text(row, index, value);
            data.setString(field.place, text);
            return text.length();
        };
        case CHAR -> (row, index, value, data) -> {
            String one = dialect.text(row, index, value);
            if (one.length() > 1) {
                throw new BadRow("\"" + one + "\" is more than one character");
            }
            data.setChar(field.place, one.isEmpty() ? '\0' : one.charAt(0));
            return SMALL;
        };
        case ENUM -> (row, index, value, data) -> {
            if (value instanceof Number) {
                data.setLong(field.place, whole(value));
            } else {
                data.setString(field.place, dialect.text(row, index, value));
            }
            return SMALL;
        };
        case BOOLEAN -> (row, index, value, data) -> {
            data.setBoolean(field.place, truth(value));
            return SMALL;
        };
        case FLOAT -> (row, index, value, data) -> {
            double number = real(value);
            if (Float.isInfinite((float) number) && !Double.isInfinite(number)) {
                throw new BadRow(number + " is beyond the largest float");
            }
            data.setFloat(field.place, (float) number);
            return SMALL;
        };
        case DOUBLE -> (row, index, value, data) -> {
            data.setDouble(field.place, real(value));
            return SMALL;
        };
        case ULONGLONG -> (row, index, value, data) -> {
            data.setLong(field.place, unsigned(value));
            return SMALL;
        };
        default -> (row, index, value, data) -> {
            data.setLong(field.place, whole(value));
            return SMALL;
        };
        };
    }

    private static double real(Object value) {
        return value instanceof Number ? ((Number) value).doubleValue()
                : Double.parseDouble(value.toString());
    }

    static boolean truth(Object value) throws BadRow {
        return switch (value.toString()) {
        case "1", "true", "t" -> true;
        case "0", "false", "f" -> false;
        default -> throw new BadRow("\"" + value + "\" is neither true nor false");
        };
    }

    private static long whole(Object value) {
        if (value instanceof Long || value instanceof Integer) {
            return ((Number) value).longValue();
        }
        if (value instanceof Boolean) {
            return (Boolean) value ? 1 : 0;
        }
        return new BigDecimal(value.toString()).longValueExact();
    }

    private static long unsigned(Object value) throws BadRow {
        BigInteger number = new BigDecimal(value.toString()).toBigIntegerExact();
        if (number.signum() < 0 || number.bitLength() > Long.SIZE) {
            throw new BadRow(number + " is out of range for 0 to 18446744073709551615");
        }
        return number.longValue();
    }

    /** A point in time as SQLite's own functions write it; without a zone it is UTC. */
    static OffsetDateTime parseTime(String text) {
        String iso = text.strip().replace(' ', 'T');
        iso = iso.length() == 10 ? iso + "T00:00" : iso;
        return iso.matches(".*T.*(Z|[+-].*)") ? OffsetDateTime.parse(iso)
                : LocalDateTime.parse(iso).atOffset(ZoneOffset.UTC);
    }

    /**
     * Binds the member's value to a parameter.
     *
     * @return about how many bytes the value takes
     * @throws BadRow when the column cannot hold it
     */
    int bind(PreparedStatement statement, int index, DynamicData data)
            throws SQLException, BadRow {
        try {
            if (field.octets) {
                byte[] bytes = field.bytes(data);
                statement.setBytes(index, bytes);
                return SMALL + bytes.length;
            }
            return bindScalar(statement, index, data);
        } catch (IllegalArgumentException | ArithmeticException | DateTimeException
                | TypeException e) {
            throw new BadRow(field.path, BadRow.shortened(String.valueOf(e.getMessage())));
        }
    }

    private int bindScalar(PreparedStatement statement, int index, DynamicData data)
            throws SQLException, BadRow {
        switch (field.kind) {
        case STRING -> {
            String text = data.getString(field.place);
            statement.setString(index, text);
            return SMALL + text.length();
        }
        case CHAR -> {
            char one = data.getChar(field.place);
            statement.setString(index, one == '\0' ? "" : String.valueOf(one));
        }
        case ENUM -> {
            if (column.isInteger()) {
                statement.setInt(index, data.getInt(field.place));
            } else {
                statement.setString(index, data.getString(field.place));
            }
        }
        case BOOLEAN -> {
            if (column.isInteger()) {
                statement.setInt(index, data.getBoolean(field.place) ? 1 : 0);
            } else {
                statement.setBoolean(index, data.getBoolean(field.place));
            }
        }
        case FLOAT, DOUBLE -> bindReal(statement, index, data);
        default -> bindWhole(statement, index, data.getLong(field.place));
        }
        return SMALL;
    }

    private void bindReal(PreparedStatement statement, int index, DynamicData data)
            throws SQLException {
        double number = data.getDouble(field.place);
        if (Double.isNaN(number)) {
            statement.setNull(index, Types.DOUBLE);
        } else if (column.isNumeric()) {
            // With the digits that the number is known by, not those of its binary fraction.
            statement.setBigDecimal(index, new BigDecimal(field.text(data)));
        } else if (field.kind == Kind.FLOAT) {
            statement.setFloat(index, (float) number);
        } else {
            statement.setDouble(index, number);
        }
    }

    private void bindWhole(PreparedStatement statement, int index, long number)
            throws SQLException, BadRow {
        if (column.isTime()) {
            dialect.bindTime(statement, index, column, unit.time(number));
        } else if (field.kind == Kind.ULONGLONG && number < 0) {
            dialect.bindLarge(statement, index, number);
        } else if (column.jdbcType() == Types.BIT || column.jdbcType() == Types.BOOLEAN) {
            if (number != 0 && number != 1) {
                throw new BadRow(field.path, number + " is neither true nor false");
            }
            statement.setBoolean(index, number == 1);
        } else {
            statement.setLong(index, number);
        }
    }
}
