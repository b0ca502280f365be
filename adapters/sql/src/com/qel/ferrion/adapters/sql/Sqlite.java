package com.qel.ferrion.adapters.sql;

import com.qel.dds.typecode.Kind;
import com.qel.ferrion.kit.BadRow;
import java.nio.charset.StandardCharsets;
import java.nio.file.InvalidPathException;
import java.nio.file.Path;
import java.sql.Connection;
import java.sql.DriverPropertyInfo;
import java.sql.PreparedStatement;
import java.sql.ResultSet;
import java.sql.SQLException;
import java.sql.Statement;
import java.sql.Types;
import java.time.Duration;
import java.time.OffsetDateTime;
import java.time.ZoneOffset;
import java.time.format.DateTimeFormatter;
import java.util.Arrays;
import java.util.Map;
import java.util.Properties;
import java.util.Set;

/** SQLite: a file, opened by the host's own process. Columns hold whatever is put into them. */
final class Sqlite extends Dialect {
    /** SQLITE_TOOBIG, SQLITE_CONSTRAINT and SQLITE_MISMATCH. */
    private static final Set<Integer> ABOUT_DATA = Set.of(18, 19, 20);
    /** SQLITE_ERROR, SQLITE_READONLY, SQLITE_CANTOPEN and SQLITE_NOTADB. */
    private static final Set<Integer> PERMANENT = Set.of(1, 8, 14, 26);
    private static final int OUT_OF_MEMORY = 7;
    private static final String OPEN_READ_ONLY = "1";
    private static final String HURRIED_MILLIS = "200";
    private static final char REPLACEMENT = '\uFFFD';

    @Override
    String prefix() {
        return "jdbc:sqlite:";
    }

    @Override
    String driver() {
        return "org.sqlite.JDBC";
    }

    @Override
    String packageName() {
        return "libxerial-sqlite-jdbc-java";
    }

    @Override
    Path file(String url) {
        String name = url.substring(prefix().length()).replaceFirst("\\?.*", "");
        try {
            return name.isEmpty() || name.startsWith(":") || name.startsWith("file:") ? null
                    : Path.of(name).toAbsolutePath();
        } catch (InvalidPathException e) {
            return null;
        }
    }

    @Override
    void configure(Properties driver, Database.Use use, Duration connect, Duration network) {
        driver.setProperty("busy_timeout", Long.toString(network.toMillis()));
        if (use == Database.Use.READ) {
            // A name that was mistyped must not become an empty database.
            driver.setProperty("open_mode", OPEN_READ_ONLY);
        }
    }

    @Override
    boolean hasUserInfo(String url) {
        return false;
    }

    /** The driver's lists of words are not whole. */
    @Override
    boolean isWrong(DriverPropertyInfo property) {
        return false;
    }

    @Override
    void hurry(Properties driver) {
        driver.setProperty("busy_timeout", HURRIED_MILLIS);
    }

    @Override
    void begin(Connection connection, String zone) {
        // Nothing here depends on a zone.
    }

    @Override
    String lockWait(boolean usual, Duration network, Map<String, String> driver) {
        return "PRAGMA busy_timeout = " + (usual ? driver.getOrDefault("busy_timeout",
                Long.toString(network.toMillis())) : HURRIED_MILLIS);
    }

    @Override
    boolean isAboutData(SQLException failure) {
        return ABOUT_DATA.contains(failure.getErrorCode() & 0xFF);
    }

    @Override
    boolean isPermanent(SQLException failure) {
        return failure.getSQLState() != null || PERMANENT.contains(failure.getErrorCode() & 0xFF);
    }

    @Override
    boolean isDisconnected(SQLException failure) {
        return false;
    }

    @Override
    boolean isOutdated(SQLException failure) {
        return false; // Statements are prepared anew by themselves.
    }

    @Override
    boolean isTooLarge(SQLException failure) {
        return (failure.getErrorCode() & 0xFF) == OUT_OF_MEMORY;
    }

    @Override
    String withoutKey() {
        return "row ids change with VACUUM, and those of deleted rows are used again";
    }

    @Override
    String exact(String column) {
        return column;
    }

    @Override
    String item(String quoted, Column column, Field field) {
        return quoted;
    }

    @Override
    String size(String quoted, Column column) {
        return "length(CAST(" + quoted + " AS BLOB))";
    }

    /** Rows come one by one. */
    @Override
    boolean isEager() {
        return false;
    }

    /** SQLite writes reals with 15 digits, and takes any bytes for a text. */
    @Override
    String text(ResultSet row, int index, Object value) throws SQLException, BadRow {
        String text = value instanceof String ? (String) value : row.getString(index);
        if (value instanceof Double && Double.parseDouble(text) != (Double) value) {
            return value.toString();
        }
        if (text.indexOf(REPLACEMENT) >= 0
                && !Arrays.equals(text.getBytes(StandardCharsets.UTF_8), row.getBytes(index))) {
            throw new BadRow("a text that is not UTF-8");
        }
        return text;
    }

    @Override
    boolean hasBytes(Column column) {
        return true; // What a value is only the row says.
    }

    @Override
    Object position(ResultSet row, int index) throws SQLException {
        return row.getObject(index);
    }

    @Override
    boolean givesExactly() {
        return true;
    }

    @Override
    void bindPosition(PreparedStatement statement, int index, Object value) throws SQLException {
        statement.setObject(index, value);
    }

    @Override
    String columnType(Field field) {
        return field.octets ? "BLOB" : field.kind == Kind.BOOLEAN ? "BOOLEAN"
                : field.isReal() ? "REAL" : field.isText() ? "TEXT" : "INTEGER";
    }

    @Override
    String idlType(Column column) {
        return switch (column.jdbcType()) {
        case Types.BOOLEAN -> "boolean";
        case Types.REAL, Types.FLOAT, Types.DOUBLE -> "double";
        case Types.BLOB, Types.BINARY, Types.VARBINARY -> "sequence<octet>";
        default -> column.isInteger() ? "long long" : "string";
        };
    }

    @Override
    void bindLarge(PreparedStatement statement, int index, long bits) throws BadRow {
        throw new BadRow(Long.toUnsignedString(bits) + " is beyond SQLite's largest integer");
    }

    @Override
    void bindTime(PreparedStatement statement, int index, Column column, OffsetDateTime time)
            throws SQLException {
        statement.setString(index, DateTimeFormatter.ISO_LOCAL_DATE_TIME.format(
                time.withOffsetSameInstant(ZoneOffset.UTC)).replace('T', ' '));
    }

    @Override
    OffsetDateTime time(ResultSet row, int index, Column column) throws SQLException {
        // Only texts are points in time: of a number nobody can tell the unit.
        Object value = row.getObject(index);
        return value instanceof String ? Cell.parseTime((String) value) : null;
    }

    /** The lock of a writer is what only a file that can be written gives. */
    @Override
    void requireWritable(Connection connection) throws SQLException {
        int version;
        try (Statement statement = connection.createStatement();
                ResultSet row = statement.executeQuery("PRAGMA user_version")) {
            version = row.getInt(1);
        }
        try (Statement statement = connection.createStatement()) {
            statement.execute("PRAGMA user_version = " + version);
        }
    }

    @Override
    void checkNow(Connection connection) {
        // Deferred foreign keys are checked by the commit; they are off unless asked for.
    }

    @Override
    String server(Connection connection) {
        return "";
    }

    @Override
    String transaction(Connection connection) {
        return null; // A commit always gives an answer here.
    }

    @Override
    boolean wasCommitted(Connection connection, String transaction) {
        return false;
    }
}
