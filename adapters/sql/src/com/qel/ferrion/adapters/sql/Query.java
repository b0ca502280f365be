package com.qel.ferrion.adapters.sql;

import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.lang.System.Logger.Level;
import java.sql.PreparedStatement;
import java.sql.ResultSet;
import java.sql.SQLException;
import java.util.ArrayList;
import java.util.LinkedHashSet;
import java.util.List;
import java.util.Map;
import java.util.Set;
import java.util.stream.Collectors;

/**
 * The statements that read a stream, once it is known what its table looks like. Immutable but for
 * the cells; the statements themselves belong to the link that prepares them.
 */
final class Query {
    final Table table;
    /** In the order of the select list, from the first on. */
    final List<Cell> cells = new ArrayList<>();
    /** Names of the columns that give rows their order; their values are a position. */
    final List<String> order;
    /** Whether no two rows have the same position. */
    final boolean unique;
    private final Dialect dialect;
    private final String items;
    private final String exact;
    private final String sorted;
    private final String noNulls;
    private final String after;
    private final String upTo;
    private final String nulls;

    /**
     * Binds a type to a table.
     *
     * @param wanted order columns as configured; empty for the primary key
     * @throws AdapterException when there is no order, or the type does not go with the table
     */
    Query(Table table, Dialect dialect, TypeCode type, List<String> wanted,
            Map<String, String> columns, Cell.TimeUnit unit, String owner)
            throws AdapterException {
        this.table = table;
        this.dialect = dialect;
        List<Field> fields = Field.of(type);
        Table.checkMembers(fields, columns.keySet());
        Map<Field, Column> bound = table.bind(fields, columns);
        bound.forEach((field, column) -> cells.add(new Cell(field, column, dialect, unit)));
        String without = fields.stream().filter(field -> !bound.containsKey(field))
                .map(field -> field.path).collect(Collectors.joining(", "));
        if (bound.isEmpty()) {
            throw new AdapterException(table.source + " has no column for any member");
        }
        if (!without.isEmpty()) {
            Link.LOG.log(Level.INFO, owner + ": members without a column keep their default: "
                    + without);
        }

        Set<String> names = new LinkedHashSet<>();
        boolean nullable = false;
        for (String name : wanted) {
            Column column = table.named(name);
            names.add(column.name());
            nullable |= column.nullable() && !table.key.contains(column.name());
        }
        List<String> ties = !table.key.isEmpty() ? table.key
                : table.isTable && dialect.rowId() != null ? List.of(dialect.rowId()) : List.of();
        names.addAll(ties);
        if (names.isEmpty()) {
            throw new AdapterException(table.source + " has no primary key: property 'order_by' "
                    + "has to name the columns that give its rows an order");
        }
        order = List.copyOf(names);
        unique = !ties.isEmpty();

        List<String> quoted = order.stream().map(Dialect::quote).toList();
        String list = String.join(", ", quoted);
        String values = "(" + "?, ".repeat(order.size() - 1) + "?)";
        // A row with a NULL behind its first columns would be greater, and no position.
        after = " AND (" + list + ") > " + values;
        upTo = " AND (" + list + ") <= " + values;
        List<String> named = new ArrayList<>();
        for (String each : quoted) {
            // With a name of its own: rows are sorted by the column, not by what is made of it.
            named.add(dialect.exact(each) + " AS \"ferry." + named.size() + '"');
        }
        exact = String.join(", ", named);
        items = cells.stream().map(cell -> cell.column.quoted()).collect(Collectors.joining(", "))
                + ", " + exact;
        sorted = " ORDER BY " + list;
        noNulls = quoted.stream().map(each -> each + " IS NOT NULL")
                .collect(Collectors.joining(" AND "));
        nulls = nullable ? "SELECT count(*) FROM " + table.source + " WHERE NOT (" + noNulls + ")"
                : null;
    }

    private PreparedStatement prepare(Link link, String selected, List<Object> position, String end)
            throws SQLException {
        PreparedStatement statement = link.prepare("SELECT " + selected + " FROM " + table.source
                + " WHERE " + noNulls + (position == null ? "" : after) + end);
        bind(statement, 1, position);
        return statement;
    }

    /**
     * The rows behind a position, or from the start where that is null.
     *
     * @param end the last position to be read, or null
     * @param limit most rows
     */
    ResultSet rows(Link link, List<Object> position, List<Object> end, long limit)
            throws SQLException {
        PreparedStatement statement = prepare(link, items, position,
                (end == null ? "" : upTo) + sorted + " LIMIT ?");
        int index = bind(statement, position == null ? 1 : 1 + order.size(), end);
        statement.setLong(index, limit);
        return statement.executeQuery();
    }

    /**
     * The position of the row that is so many behind a position; null when there are fewer. What is
     * the same position only the database can say: 1.0 is 1.00, and to some 'a' is 'A'.
     */
    List<Object> end(Link link, List<Object> position, int count) throws SQLException {
        PreparedStatement statement = prepare(link, exact, position, sorted + " LIMIT 1 OFFSET ?");
        statement.setInt(position == null ? 1 : 1 + order.size(), count - 1);
        try (ResultSet row = statement.executeQuery()) {
            return row.next() ? position(row, 1) : null;
        }
    }

    /** Whether there is a row behind a position. */
    boolean hasMore(Link link, List<Object> position) throws SQLException {
        try (ResultSet row = prepare(link, "1", position, " LIMIT 1").executeQuery()) {
            return row.next();
        }
    }

    private int bind(PreparedStatement statement, int from, List<Object> position)
            throws SQLException {
        int index = from;
        if (position != null) {
            for (Object value : position) {
                dialect.bindPosition(statement, index++, value);
            }
        }
        return index;
    }

    /** How many rows have no place in the order, and so are never read. */
    long withoutOrder(Link link) throws SQLException {
        if (nulls == null) {
            return 0;
        }
        try (ResultSet row = link.prepare(nulls).executeQuery()) {
            row.next();
            return row.getLong(1);
        }
    }

    /** The position of the row that a result of {@link #rows} stands at. */
    List<Object> position(ResultSet row) throws SQLException {
        return position(row, cells.size() + 1);
    }

    private List<Object> position(ResultSet row, int from) throws SQLException {
        List<Object> values = new ArrayList<>(order.size());
        for (int i = 0; i < order.size(); i++) {
            values.add(dialect.position(row, from + i));
        }
        return values;
    }
}
