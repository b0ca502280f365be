package com.qel.ferrion.adapters.sql;

import java.math.BigDecimal;
import java.nio.file.Path;
import java.sql.Connection;
import java.sql.PreparedStatement;
import java.sql.ResultSet;
import java.sql.SQLException;
import java.sql.Statement;
import java.sql.Types;
import java.time.Duration;
import java.time.LocalDateTime;
import java.time.OffsetDateTime;
import java.time.ZoneOffset;
import java.util.Properties;
import java.util.Set;

/** PostgreSQL, from version 10 on. */
final class Postgres extends Dialect {
    /** Data, integrity, program limits, check options, errors that triggers raise. */
    private static final Set<String> ABOUT_DATA = Set.of("22", "23", "44", "54", "P0");
    /** Not supported, not authorised, no such database, wrong statement or no right to it. */
    private static final Set<String> PERMANENT = Set.of("0A", "28", "3D", "42");

    @Override
    String prefix() {
        return "jdbc:postgresql:";
    }

    @Override
    String driver() {
        return "org.postgresql.Driver";
    }

    @Override
    String packageName() {
        return "libpostgresql-jdbc-java";
    }

    @Override
    Path file(String url) {
        return null;
    }

    @Override
    void configure(Properties driver, Database.Use use, Duration connect, Duration network) {
        driver.setProperty("connectTimeout", Long.toString(connect.toSeconds()));
        driver.setProperty("loginTimeout", Long.toString(connect.toSeconds()));
        driver.setProperty("socketTimeout", Long.toString(network.toSeconds()));
        driver.setProperty("tcpKeepAlive", "true");
        driver.setProperty("ApplicationName", "ferry");
        // The server finds out by the column what a text stands for: a date, a UUID, JSON.
        driver.setProperty("stringtype", "unspecified");
        if (use == Database.Use.INSERT_ONLY) {
            // Not for upserts: one statement must not meet the same key twice.
            driver.setProperty("reWriteBatchedInserts", "true");
        }
    }

    @Override
    boolean isAboutData(SQLException failure) {
        return ABOUT_DATA.contains(stateClass(failure));
    }

    @Override
    boolean isPermanent(SQLException failure) {
        return PERMANENT.contains(stateClass(failure));
    }

    private static String stateClass(SQLException failure) {
        String state = failure.getSQLState();
        return state == null || state.length() != 5 ? "" : state.substring(0, 2);
    }

    @Override
    String rowId() {
        return null;
    }

    @Override
    String exact(String column) {
        return column + "::text";
    }

    @Override
    Object position(ResultSet row, int index) throws SQLException {
        return row.getString(index);
    }

    @Override
    void bindPosition(PreparedStatement statement, int index, Object value) throws SQLException {
        statement.setObject(index, value, Types.OTHER);
    }

    @Override
    String columnType(Field field) {
        if (field.octets) {
            return "BYTEA";
        }
        switch (field.kind) {
        case BOOLEAN:
            return "BOOLEAN";
        case INT8:
        case OCTET:
        case SHORT:
            return "SMALLINT";
        case USHORT:
        case LONG:
            return "INTEGER";
        case ULONG:
        case LONGLONG:
            return "BIGINT";
        case ULONGLONG:
            return "NUMERIC(20, 0)";
        case FLOAT:
            return "REAL";
        case DOUBLE:
            return "DOUBLE PRECISION";
        default:
            return "TEXT";
        }
    }

    @Override
    String idlType(Column column) {
        switch (column.jdbcType()) {
        case Types.BIT:
            return column.typeName().equals("bool") ? "boolean" : "string";
        case Types.SMALLINT:
            return "short";
        case Types.INTEGER:
            return "long";
        case Types.BIGINT:
            return column.typeName().equals("oid") ? "unsigned long" : "long long";
        case Types.REAL:
            return "float";
        case Types.DOUBLE:
            return column.typeName().equals("money") ? "string" : "double";
        case Types.BINARY:
            return "sequence<octet>";
        case Types.TIMESTAMP:
            return "long long";
        case Types.NUMERIC:
            return column.isInteger() ? "long long" : "string";
        default:
            return "string";
        }
    }

    @Override
    void bindLarge(PreparedStatement statement, int index, long bits) throws SQLException {
        statement.setBigDecimal(index, new BigDecimal(Long.toUnsignedString(bits)));
    }

    @Override
    void bindTime(PreparedStatement statement, int index, Column column, OffsetDateTime time)
            throws SQLException {
        OffsetDateTime utc = time.withOffsetSameInstant(ZoneOffset.UTC);
        statement.setObject(index, withZone(column) ? (Object) utc : utc.toLocalDateTime());
    }

    @Override
    OffsetDateTime time(ResultSet row, int index, Column column) throws SQLException {
        if (withZone(column)) {
            return row.getObject(index, OffsetDateTime.class);
        }
        LocalDateTime time = row.getObject(index, LocalDateTime.class);
        return time == null ? null : time.atOffset(ZoneOffset.UTC);
    }

    private static boolean withZone(Column column) {
        return column.typeName().equals("timestamptz");
    }

    @Override
    void checkNow(Connection connection) throws SQLException {
        try (Statement statement = connection.createStatement()) {
            statement.execute("SET CONSTRAINTS ALL IMMEDIATE");
        }
    }

    @Override
    String transaction(Connection connection) throws SQLException {
        try (Statement statement = connection.createStatement();
                ResultSet row = statement.executeQuery("SELECT txid_current()::text")) {
            row.next();
            return row.getString(1);
        }
    }

    @Override
    boolean wasCommitted(Connection connection, String transaction) throws SQLException {
        try (Statement statement = connection.createStatement();
                ResultSet row = statement.executeQuery(
                        "SELECT txid_status(" + transaction + ")")) {
            row.next();
            String status = row.getString(1);
            if ("in progress".equals(status)) {
                throw new SQLException("transaction " + transaction + " is still in progress");
            }
            return "committed".equals(status);
        }
    }
}
