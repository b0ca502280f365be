package com.qel.ferrion.adapters.sql;

import com.qel.dds.typecode.Kind;
import java.math.BigDecimal;
import java.nio.file.Path;
import java.sql.Connection;
import java.sql.DriverPropertyInfo;
import java.sql.PreparedStatement;
import java.sql.ResultSet;
import java.sql.SQLException;
import java.sql.Statement;
import java.sql.Types;
import java.time.Duration;
import java.time.LocalDateTime;
import java.time.OffsetDateTime;
import java.time.ZoneOffset;
import java.time.format.DateTimeFormatter;
import java.time.format.DateTimeFormatterBuilder;
import java.time.format.SignStyle;
import java.time.temporal.ChronoField;
import java.util.Arrays;
import java.util.Locale;
import java.util.Map;
import java.util.Properties;
import java.util.Set;

/** PostgreSQL, from version 10 on. */
final class Postgres extends Dialect {
    /** Data, integrity, program limits, check options, errors that triggers raise. */
    private static final Set<String> ABOUT_DATA = Set.of("22", "23", "44", "54", "P0");
    /**
     * A driver's property or an object that cannot be what it was given as, not
     * authorised, no such database, wrong statement or no right to it.
     */
    private static final Set<String> PERMANENT = Set.of("22", "28", "3D", "3F", "42");
    /** The driver's word for a server that does not do what its properties ask for: SSL. */
    private static final String REJECTED = "08004";
    private static final String UNSUPPORTED = "0A000";
    private static final DateTimeFormatter TIME = new DateTimeFormatterBuilder()
            .appendValue(ChronoField.YEAR_OF_ERA, 4, 9, SignStyle.NEVER)
            .appendPattern("-MM-dd HH:mm:ss.SSSSSSSSS").toFormatter(Locale.ROOT);
    private static final String READ_ONLY = "25006";
    private static final String OUT_OF_MEMORY = "53200";
    /** Types whose texts the driver has as the server writes them, and whose size is known. */
    private static final Set<String> TEXTS = Set.of("text", "varchar", "name");
    private static final Set<String> SMALL = Set.of("bool", "int2", "int4", "int8", "float4",
            "float8", "serial", "bigserial", "smallserial", "oid", "date", "time", "timetz",
            "timestamp", "timestamptz", "interval", "uuid", "money", "macaddr", "macaddr8", "inet",
            "cidr", "point", "line", "lseg", "box", "circle", "name", "char", "pg_lsn");

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

    /** What stands before the database's name holds host and port only. */
    @Override
    boolean hasUserInfo(String url) {
        return url.replaceFirst("\\?.*", "").indexOf('@') >= 0;
    }

    @Override
    boolean isWrong(DriverPropertyInfo property) {
        return property.choices != null && property.value != null
                && Arrays.stream(property.choices).noneMatch(property.value::equalsIgnoreCase);
    }

    @Override
    void hurry(Properties driver) {
        // Nothing is locked while a connection is made.
    }

    /** The driver would have the server use the process's zone, which options cannot change. */
    @Override
    void begin(Connection connection, String zone) throws SQLException {
        try (Statement statement = connection.createStatement()) {
            statement.execute("SET TIME ZONE '" + zone.replace("'", "''") + "'");
        }
    }

    @Override
    String lockWait(boolean usual, Duration network, Map<String, String> driver) {
        return usual ? "RESET lock_timeout" : "SET lock_timeout = '200ms'";
    }

    @Override
    boolean isAboutData(SQLException failure) {
        return ABOUT_DATA.contains(stateClass(failure));
    }

    @Override
    boolean isPermanent(SQLException failure) {
        return PERMANENT.contains(stateClass(failure)) || REJECTED.equals(failure.getSQLState());
    }

    @Override
    boolean isDisconnected(SQLException failure) {
        return Set.of("08", "57").contains(stateClass(failure));
    }

    /** "Cached plan must not change result type". */
    @Override
    boolean isOutdated(SQLException failure) {
        return UNSUPPORTED.equals(failure.getSQLState());
    }

    @Override
    boolean isTooLarge(SQLException failure) {
        return OUT_OF_MEMORY.equals(failure.getSQLState());
    }

    private static String stateClass(SQLException failure) {
        String state = failure.getSQLState();
        return state == null || state.length() != 5 ? "" : state.substring(0, 2);
    }

    @Override
    String withoutKey() {
        return "the server does not number them";
    }

    @Override
    String exact(String column) {
        return column + "::text";
    }

    /**
     * What becomes a text the server makes one: the driver's change with the way that values come,
     * which is another one from a statement's fifth use on.
     */
    @Override
    String item(String quoted, Column column, Field field) {
        return field.octets || !field.isText() || TEXTS.contains(column.typeName())
                || (field.kind == Kind.ENUM && column.isInteger()) ? quoted : exact(quoted);
    }

    /** Sizes of texts and bytes are known to the server without looking at the values. */
    @Override
    String size(String quoted, Column column) {
        String type = column.typeName();
        return SMALL.contains(type) ? null
                : (TEXTS.contains(type) || type.equals("bytea") || type.equals("bpchar")
                        ? "octet_length(" : "pg_column_size(") + quoted + ")";
    }

    @Override
    boolean isEager() {
        return true;
    }

    @Override
    String text(ResultSet row, int index, Object value) throws SQLException {
        return value instanceof String ? (String) value : row.getString(index);
    }

    @Override
    boolean hasBytes(Column column) {
        return column.typeName().equals("bytea") || TEXTS.contains(column.typeName());
    }

    @Override
    Object position(ResultSet row, int index) throws SQLException {
        return row.getString(index);
    }

    @Override
    boolean givesExactly() {
        return false;
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
        LocalDateTime utc = time.withOffsetSameInstant(ZoneOffset.UTC).toLocalDateTime();
        // As a text: the driver shifts what the process's own zone leaves out in spring.
        statement.setObject(index, TIME.format(utc) + (withZone(column) ? "+00" : "")
                + (utc.getYear() > 0 ? "" : " BC"), Types.OTHER);
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
    void requireWritable(Connection connection) throws SQLException {
        if (!"off".equals(one(connection, "SHOW transaction_read_only"))) {
            throw new SQLException("the server takes no writes: transactions are read-only",
                    READ_ONLY);
        }
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
