package com.qel.ferrion.adapters.sql;

import com.qel.ferrion.kit.BadRow;
import java.nio.file.Path;
import java.sql.Connection;
import java.sql.DriverPropertyInfo;
import java.sql.PreparedStatement;
import java.sql.ResultSet;
import java.sql.SQLException;
import java.time.Duration;
import java.time.OffsetDateTime;
import java.util.List;
import java.util.Map;
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

    /** Whether a URL has something before an '@', where other URLs have user and password. */
    abstract boolean hasUserInfo(String url);

    /** Whether a driver's property has a value that it cannot have. */
    abstract boolean isWrong(DriverPropertyInfo property);

    /** Sets what we need of the driver; the user's own properties come after these. */
    abstract void configure(Properties driver, Database.Use use, Duration connect,
            Duration network);

    /** Has a connection made that does not wait for locks while it is made. */
    abstract void hurry(Properties driver);

    /** Gives a new connection what the driver has no property for. */
    abstract void begin(Connection connection, String zone) throws SQLException;

    /**
     * The statement that sets how long others wait for locks.
     *
     * @param usual as long as configured, or else next to not at all
     * @param driver the user's own properties
     */
    abstract String lockWait(boolean usual, Duration network, Map<String, String> driver);

    /** Whether a statement failed over the values of a row, and would fail again with them. */
    abstract boolean isAboutData(SQLException failure);

    /** Whether a failure is a matter of configuration: with the server as it is it would stay. */
    abstract boolean isPermanent(SQLException failure);

    /** Whether a failure is one of the connection, so that others of the server have it, too. */
    abstract boolean isDisconnected(SQLException failure);

    /** Whether a prepared statement is of a table that has changed: a new one may do. */
    abstract boolean isOutdated(SQLException failure);

    /** Whether memory did not suffice for what a statement gave. */
    abstract boolean isTooLarge(SQLException failure);

    /** Why rows of a table without a primary key have no order by themselves. */
    abstract String withoutKey();

    /** A column as an item of a select list that gives its value exactly. */
    abstract String exact(String column);

    /** A column as an item of a select list for a member. */
    abstract String item(String quoted, Column column, Field field);

    /** An expression for about how many bytes a value takes; null where they are always few. */
    abstract String size(String quoted, Column column);

    /** Whether the database hands over all rows of a result at once, however large they are. */
    abstract boolean isEager();

    /** What the driver gave as an object, not null, as a text. */
    abstract String text(ResultSet row, int index, Object value) throws SQLException, BadRow;

    /** Whether a column's values have bytes that an octet sequence can be. */
    abstract boolean hasBytes(Column column);

    /** What {@link #exact} gave, as an object of the four kinds that a position is made of. */
    abstract Object position(ResultSet row, int index) throws SQLException;

    /** Whether what the driver gives for a member as an object is what it gives for a position. */
    abstract boolean givesExactly();

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

    /** @throws SQLException when the database takes no writes at all; leaves a transaction open */
    abstract void requireWritable(Connection connection) throws SQLException;

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
