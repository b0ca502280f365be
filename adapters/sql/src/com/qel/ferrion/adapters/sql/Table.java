package com.qel.ferrion.adapters.sql;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.Names;
import java.sql.Connection;
import java.sql.DatabaseMetaData;
import java.sql.ResultSet;
import java.sql.ResultSetMetaData;
import java.sql.SQLException;
import java.sql.Statement;
import java.util.ArrayList;
import java.util.HashSet;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Locale;
import java.util.Map;
import java.util.Set;
import java.util.StringJoiner;
import java.util.TreeMap;

/** A table, view or query as the database describes it. Used on one thread at a time. */
final class Table {
    /** What the table or query is called in statements and messages. */
    final String source;
    /** What stands behind FROM, with the alias {@code t}. */
    final String from;
    final List<Column> columns;
    /** Names of the primary key's columns in their order; empty where there is none. */
    final List<String> key;
    final boolean isTable;
    private Map<String, Column> identifiers;

    private Table(String source, String from, List<Column> columns, List<String> key,
            boolean isTable) {
        this.source = source;
        this.from = from + " AS t";
        this.columns = columns;
        this.key = key;
        this.isTable = isTable;
    }

    /** What a table is called in statements. */
    static String qualified(String schema, String name) {
        return (schema == null ? "" : Dialect.quote(schema) + ".") + Dialect.quote(name);
    }

    /** Names of all tables and views, each with whether it is a table that can be written. */
    static Map<String, Boolean> list(Connection connection, String schema) throws SQLException {
        Map<String, Boolean> found = new TreeMap<>();
        DatabaseMetaData catalog = connection.getMetaData();
        String where = schema == null ? connection.getSchema() : schema;
        // A pattern to the driver, in which '_' is any sign.
        String escape = catalog.getSearchStringEscape().replace("\\", "\\\\");
        String exactly = where == null ? null : where.replaceAll("[_%\\\\]", escape + "$0");
        try (ResultSet rows = catalog.getTables(null, exactly, "%",
                new String[] {"TABLE", "PARTITIONED TABLE", "FOREIGN TABLE", "VIEW",
                    "MATERIALIZED VIEW"})) {
            while (rows.next()) {
                found.put(rows.getString("TABLE_NAME"),
                        rows.getString("TABLE_TYPE").endsWith("TABLE"));
            }
        }
        return found;
    }

    /**
     * Looks at a table.
     *
     * @return null when it is not there
     */
    static Table find(Connection connection, String schema, String name) throws SQLException {
        Boolean isTable = list(connection, schema).get(name);
        return isTable == null ? null : describe(connection, schema, name, isTable);
    }

    /** Looks at a table or view that {@link #list} has found. */
    static Table describe(Connection connection, String schema, String name, boolean isTable)
            throws SQLException {
        Map<Short, String> key = new TreeMap<>();
        String where = schema == null ? connection.getSchema() : schema;
        try (ResultSet rows = connection.getMetaData().getPrimaryKeys(null, where, name)) {
            while (rows.next()) {
                key.put(rows.getShort("KEY_SEQ"), rows.getString("COLUMN_NAME"));
            }
        }
        String source = qualified(schema, name);
        return new Table(source, source, columns(connection, source), List.copyOf(key.values()),
                isTable);
    }

    /** The error for a table that is not there. */
    static AdapterException missing(Connection connection, String schema, String name)
            throws SQLException {
        return new AdapterException("there is no table \"" + name + "\""
                + Names.suggestion(name, list(connection, schema).keySet()));
    }

    static Table ofQuery(Connection connection, String query) throws SQLException {
        String from = "(" + query.strip().replaceFirst(";$", "") + "\n)";
        return new Table("the query", from, columns(connection, from), List.of(), false);
    }

    private static List<Column> columns(Connection connection, String from)
            throws SQLException {
        List<Column> columns = new ArrayList<>();
        try (Statement statement = connection.createStatement();
                ResultSet none = statement.executeQuery(
                        "SELECT * FROM " + from + " AS t WHERE 1 = 0")) {
            ResultSetMetaData all = none.getMetaData();
            for (int i = 1; i <= all.getColumnCount(); i++) {
                columns.add(new Column(all.getColumnLabel(i), all.getColumnTypeName(i),
                        all.getColumnType(i), all.getPrecision(i), all.getScale(i),
                        all.isNullable(i) != ResultSetMetaData.columnNoNulls));
            }
        }
        return columns;
    }

    /**
     * The names that columns have in IDL, each its own: signs that IDL's names cannot have are
     * {@code _}, {@code c} stands in front of what does not begin with a letter, and {@code _}
     * behind what is a word of IDL, the name of another column or, but for case, that of a column
     * before.
     */
    Map<String, Column> identifiers() {
        if (identifiers == null) {
            identifiers = new LinkedHashMap<>();
            List<String> names = columns.stream().map(Column::name).toList();
            Set<String> used = new HashSet<>();
            for (Column column : columns) {
                identifiers.put(Column.identifier(column.name(), free ->
                        (names.contains(free) && !free.equals(column.name()))
                        || !used.add(free.toLowerCase(Locale.ROOT))), column);
            }
        }
        return identifiers;
    }

    /**
     * A column by its name; or by the name that it has in IDL; or by one of them but for case.
     *
     * @return null if there is none
     * @throws AdapterException when several are called so but for case
     */
    Column column(String name) throws AdapterException {
        for (Column column : columns) {
            if (column.name().equals(name)) {
                return column;
            }
        }
        if (identifiers().containsKey(name)) {
            return identifiers().get(name);
        }
        Column found = null;
        for (Map.Entry<String, Column> each : identifiers().entrySet()) {
            Column column = each.getValue();
            if (each.getKey().equalsIgnoreCase(name) || column.name().equalsIgnoreCase(name)) {
                if (found != null) {
                    throw new AdapterException("\"" + name + "\" may be column \"" + found.name()
                            + "\" or \"" + column.name() + "\" of " + source);
                }
                found = column;
            }
        }
        return found;
    }

    /**
     * Whether a column may hold NULL. SQLite lets keys do so, but for a single one of integers,
     * which is the row's own number.
     */
    boolean mayBeNull(Column column) {
        return column.nullable() && !(key.equals(List.of(column.name()))
                && column.typeName().equalsIgnoreCase("INTEGER"));
    }

    /** A column that somebody named. */
    Column named(String name) throws AdapterException {
        Column found = column(name);
        if (found == null) {
            throw new AdapterException(source + " has no column \"" + name + "\""
                    + Names.suggestion(name, columns.stream().map(Column::name).toList()));
        }
        return found;
    }

    /**
     * Finds the columns of members.
     *
     * @param given names of columns by member, where they are not the member's
     * @return the members that have a column, in their order
     * @throws AdapterException when a name that was given is wrong, or two members share a column
     */
    Map<Field, Column> bind(List<Field> fields, Map<String, String> given, Dialect dialect)
            throws AdapterException {
        Map<Field, Column> bound = new LinkedHashMap<>();
        for (Field field : fields) {
            String name = given.get(field.path);
            Column column = name == null ? column(field.columnName()) : named(name);
            if (column != null && bound.containsValue(column)) {
                throw new AdapterException("member \"" + field.path + "\" and another one have the "
                        + "same column \"" + column.name() + "\" of " + source);
            }
            if (column != null) {
                field.requireCarried();
                if (field.octets && !dialect.hasBytes(column)) {
                    throw new AdapterException("member \"" + field.path + "\" is of bytes, and "
                            + "column \"" + column.name() + "\" of " + source + " is "
                            + column.typeName());
                }
                bound.put(field, column);
            }
        }
        return bound;
    }

    /** Rejects names of members that the type does not have. */
    static void checkMembers(List<Field> fields, Iterable<String> names) throws AdapterException {
        List<String> paths = fields.stream().map(field -> field.path).toList();
        for (String name : names) {
            if (!paths.contains(name)) {
                throw new AdapterException("the stream's type has no member \"" + name + "\""
                        + Names.suggestion(name, paths));
            }
        }
    }

    /** The statement that makes a table for members. */
    static String creation(Dialect dialect, String source, List<Field> fields,
            Map<String, String> given, boolean keyed, String mark) {
        StringJoiner parts = new StringJoiner(", ", "CREATE TABLE IF NOT EXISTS " + source + " (",
                ")");
        StringJoiner key = new StringJoiner(", ", "PRIMARY KEY (", ")").setEmptyValue("");
        for (Field field : fields) {
            String column = Dialect.quote(given.getOrDefault(field.path, field.columnName()));
            // NaN, which says that there is no value, is NULL in a table.
            parts.add(column + " " + dialect.columnType(field)
                    + (field.isReal() && !field.key ? "" : " NOT NULL"));
            if (field.key) {
                key.add(column);
            }
        }
        if (mark != null) {
            parts.add(Dialect.quote(mark) + " BOOLEAN NOT NULL DEFAULT FALSE");
        }
        if (keyed && key.length() > 0) {
            parts.add(key.toString());
        }
        return parts.toString();
    }
}
