package com.qel.ferrion.adapters.sql;

import java.nio.file.Path;
import java.sql.Connection;
import java.sql.PreparedStatement;
import java.sql.ResultSet;
import java.sql.SQLException;
import java.time.Duration;
import java.time.OffsetDateTime;
import java.util.List;
import java.util.Properties;

/** What differs from one kind of database to the next. Stateless; any thread. */
abstract class Dialect {
    private static final List<Dialect> ALL = List.of(new Sqlite(), new Postgres());

    /** The dialect that a JDBC URL asks for, or null. */
    static Dialect of(String url) {
        return ALL.stream().filter(each -> url.startsWith(each.prefix())).findFirst().orElse(null);
    }

    abstract String prefix();

    abstract String driver();

    abstract String packageName();

    /** The file that the database is, or null. */
    abstract Path file(String url);

    /** Sets what we need of the driver; the user's own properties come after these. */
    abstract void configure(Properties driver, Database.Use use, Duration connect,
            Duration network);

    /** Whether a statement failed over the values of a row, and would fail again with them. */
    abstract boolean isAboutData(SQLException failure);

    /** Whether a failure is a matter of configuration: with the server as it is it would stay. */
    abstract boolean isPermanent(SQLException failure);

    /** The column that identifies a row of a table without a primary key, or null. */
    abstract String rowId();

    /** A column as an item of a select list that gives its value exactly. */
    abstract String exact(String column);

    /** What {@link #exact} gave, as an object of the four kinds that a position is made of. */
    abstract Object position(ResultSet row, int index) throws SQLException;

    /** Binds a value of a position for a comparison with its column. */
    abstract void bindPosition(PreparedStatement statement, int index, Object value)
            throws SQLException;

    /** The type of a column for members of some IDL type; null when there is none. */
    abstract String columnType(Field field);

    /** The IDL type that loses nothing of a column. */
    abstract String idlType(Column column);

    /** Binds an unsigned number beyond the signed range. */
    abstract void bindLarge(PreparedStatement statement, int index, long bits)
            throws SQLException, BadRow;

    abstract void bindTime(PreparedStatement statement, int index, Column column,
            OffsetDateTime time) throws SQLException;

    /** A point in time from a column whose type is one. */
    abstract OffsetDateTime time(ResultSet row, int index, Column column) throws SQLException;

    /** Makes the database check now what it may leave until the commit. */
    abstract void checkNow(Connection connection) throws SQLException;

    /**
     * Which run of which server this is: another one when it has been down in between, be it for a
     * moment. A server that crashes may give out numbers of transactions again that it has lost.
     */
    abstract String server(Connection connection) throws SQLException;

    /** A name by which {@link #wasCommitted} finds this transaction again, or null. */
    abstract String transaction(Connection connection) throws SQLException;

    /**
     * Whether a transaction of this run of the server was committed whose commit gave no answer.
     *
     * @throws SQLException also while its outcome is still open
     */
    abstract boolean wasCommitted(Connection connection, String transaction) throws SQLException;

    static String quote(String name) {
        return '"' + name.replace("\"", "\"\"") + '"';
    }
}
