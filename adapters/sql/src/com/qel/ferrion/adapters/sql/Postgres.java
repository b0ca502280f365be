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
        return switch (field.kind) {
            case BOOLEAN -> "BOOLEAN";
            case INT8, OCTET, SHORT -> "SMALLINT";
            case USHORT, LONG -> "INTEGER";
            case ULONG, LONGLONG -> "BIGINT";
            case ULONGLONG -> "NUMERIC(20, 0)";
            case FLOAT -> "REAL";
            case DOUBLE -> "DOUBLE PRECISION";
            default -> "TEXT";
        };
    }

    @Override
    String idlType(Column column) {
        return switch (column.typeName()) {
            case "bool" -> "boolean";
            case "int2" -> "short";
            case "int4", "serial" -> "long";
            case "int8", "bigserial", "timestamp", "timestamptz" -> "long long";
            case "float4" -> "float";
            case "float8" -> "double";
            case "bytea" -> "sequence<octet>";
            default -> column.isInteger() ? "long long" : "string";
        };
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

    /** A crash leaves the start time as it is, but none of the server's own processes. */
    @Override
    String server(Connection connection) throws SQLException {
        return one(connection, "SELECT pg_postmaster_start_time()::text || ' ' || "
                + "string_agg(pid::text, ' ' ORDER BY pid) FROM pg_stat_activity "
                + "WHERE datid IS NULL AND usesysid IS NULL");
    }

    @Override
    String transaction(Connection connection) throws SQLException {
        return one(connection, "SELECT txid_current()::text");
    }

    @Override
    boolean wasCommitted(Connection connection, String transaction) throws SQLException {
        String status = one(connection, "SELECT txid_status(" + transaction + ")");
        if ("in progress".equals(status)) {
            throw new SQLException("transaction " + transaction + " is still in progress");
        }
        return "committed".equals(status);
    }

    private static String one(Connection connection, String query) throws SQLException {
        try (Statement statement = connection.createStatement();
                ResultSet row = statement.executeQuery(query)) {
            row.next();
            return row.getString(1);
        }
    }
}
