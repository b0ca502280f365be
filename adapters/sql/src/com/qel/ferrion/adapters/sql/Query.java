package com.qel.ferrion.adapters.sql;

import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.BadRow;
import com.qel.ferrion.kit.Settings;
import java.lang.System.Logger.Level;
import java.sql.PreparedStatement;
import java.sql.ResultSet;
import java.sql.SQLException;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collection;
import java.util.LinkedHashSet;
import java.util.List;
import java.util.Map;
import java.util.Objects;
import java.util.Set;
import java.util.StringJoiner;
import java.util.function.Function;
import java.util.stream.Collectors;
import java.util.stream.Stream;

/**
 * The statements that read a stream, once it is known what its table looks like. Every column is
 * written with the table's alias: a name alone that no longer exists is a text to SQLite. Immutable
 * but for the cells; the statements themselves belong to the link that prepares them.
 */
final class Query {
    /** What a value of a fixed size counts. */
    private static final int SMALL = 16;

    final Table table;
    /** In the order of the select list, from the first on. */
    final List<Cell> cells;
    /** Names of the columns that give rows their order; their values are a position. */
    final List<String> order;
    /** Whether no two rows have the same position. */
    final boolean unique;
    /** The rows that NULL leaves without a place in the order, by their key; null if not read. */
    final Query rest;
    /** Whether the database itself ends a batch at its bytes, and {@link #bytes} says at which. */
    final boolean measured;
    /** Whose values are a position once a row has been read; null if that has to be asked for. */
    private final List<Cell> remembered;
    private final String mark = Statements.mark();
    private final Dialect dialect;
    /** The column whose truth ends the row's instance, or null. */
    private final Column deleted;
    /** What the rows are made of, without anything that looks into a value. */
    private final String raw;
    private final String items;
    private final String exact;
    private final String size;
    private final String ordered;
    private final String backwards;
    private final String condition;
    private final String after;
    private final String upTo;
    private final String nulls;

    /**
     * Binds a type to a table.
     *
     * @throws AdapterException when there is no order, or the type does not go with the table
     */
    static Query of(Table table, Dialect dialect, TypeCode type, Settings settings)
            throws AdapterException {
        List<Cell> cells = cells(table, dialect, type, settings);
        String mark = settings.get(SqlStreamReader.DELETED);
        Column deleted = mark == null ? null : table.named(mark);
        if (deleted != null && cells.stream().noneMatch(cell -> cell.field.key)) {
            throw new AdapterException("property \"deleted_column\": the stream's type has no key "
                    + "that says which instance has ended");
        }
        Set<Column> columns = new LinkedHashSet<>();
        for (String name : settings.get(SqlStreamReader.ORDER).split(",")) {
            if (!name.isBlank()) {
                columns.add(table.named(name.strip()));
            }
        }
        Set<Column> key = new LinkedHashSet<>();
        for (String name : table.key) {
            key.add(table.named(name));
        }
        columns.addAll(key);
        if (columns.isEmpty()) {
            throw new AdapterException(table.source + " has no primary key"
                    + (table.isTable ? ", and " + dialect.withoutKey() : "") + ": property "
                    + "\"order_by\" has to name the columns that give its rows an order");
        }
        List<Column> empty = columns.stream()
                .filter(column -> !key.contains(column) && table.mayBeNull(column)).toList();
        Query rest = null;
        if (settings.get(SqlStreamReader.ORDER_NULLS) == OrderNulls.LAST && !empty.isEmpty()) {
            if (key.isEmpty()) {
                throw new AdapterException("property \"order_nulls\": " + table.source + " has no "
                        + "primary key in whose order rows could be read that have NULL in "
                        + join(empty, Column::name));
            }
            // One column that is NULL for all of them is no other order, but that of an index.
            Set<Column> order = new LinkedHashSet<>(empty.size() == 1 ? empty : List.of());
            order.addAll(key);
            rest = new Query(table, dialect, cells, deleted, key, order, "("
                    + String.join(" OR ", empty.stream().map(each -> place(each) + " IS NULL")
                            .toList()) + ") AND ", null);
        }
        return new Query(table, dialect, cells, deleted, columns, columns, "", rest);
    }

    /**
     * @param columns whose values are a position
     * @param sorted the columns for the database to sort by, with the same result
     * @param filter what else is asked of rows
     */
    private Query(Table table, Dialect dialect, List<Cell> cells, Column deleted,
            Set<Column> columns, Set<Column> sorted, String filter, Query rest) {
        this.table = table;
        this.dialect = dialect;
        this.cells = cells;
        this.deleted = deleted;
        this.rest = rest;
        order = columns.stream().map(Column::name).toList();
        unique = !table.key.isEmpty();

        remembered = remembered();
        List<String> places = columns.stream().map(Query::place).toList();
        String row = "(" + String.join(", ", places) + ")";
        String values = "(" + "?, ".repeat(order.size() - 1) + "?)";
        after = " AND " + row + " > " + values;
        upTo = " AND " + row + " <= " + values;
        ordered = " ORDER BY " + join(sorted, Query::place);
        backwards = " ORDER BY " + join(sorted, each -> place(each) + " DESC");
        String noNulls = places.stream().map(place -> place + " IS NOT NULL")
                .collect(Collectors.joining(" AND "));
        condition = filter + noNulls;
        nulls = columns.stream().noneMatch(table::mayBeNull) ? null
                : "SELECT count(*) FROM " + table.from + " WHERE NOT (" + noNulls + ")";
        exact = positionItems(places);
        items = join(cells, cell -> dialect.item(place(cell.column), cell.column, cell.field))
                + (deleted == null ? "" : ", " + place(deleted)) + ", " + exact;
        Set<Column> used = Stream.of(cells.stream().map(cell -> cell.column), columns.stream(),
                Stream.ofNullable(deleted)).flatMap(each -> each)
                .collect(Collectors.toCollection(LinkedHashSet::new));
        raw = join(used, Query::place);
        String sizes = used.stream().map(column -> dialect.size(place(column), column))
                .filter(Objects::nonNull).map(each -> " + coalesce(" + each + ", 0)")
                .collect(Collectors.joining());
        size = "CAST(" + SMALL * used.size() + " AS BIGINT)" + sizes;
        measured = dialect.isEager() && !sizes.isEmpty();
    }

    private static List<Cell> cells(Table table, Dialect dialect, TypeCode type, Settings settings)
            throws AdapterException {
        List<Field> fields = Field.of(type);
        Map<String, String> given = settings.get(SqlStreamReader.COLUMNS);
        Table.checkMembers(fields, given.keySet());
        Map<Field, Column> bound = table.bind(fields, given, dialect);
        List<Cell> cells = new ArrayList<>();
        bound.forEach((field, column) -> cells.add(new Cell(field, column, dialect,
                settings.get(SqlStreamReader.UNIT))));
        String without = fields.stream().filter(field -> !bound.containsKey(field))
                .map(field -> field.path).collect(Collectors.joining(", "));
        if (bound.isEmpty()) {
            throw new AdapterException(table.source + " has no column for any member");
        }
        if (!without.isEmpty()) {
            Access.LOG.log(Level.INFO, settings.owner()
                    + ": members without a column keep their default: " + without);
        }
        return cells;
    }

    private static String place(Column column) {
        return "t." + column.quoted();
    }

    private static <T> String join(Collection<T> all, Function<T, String> text) {
        return all.stream().map(text).collect(Collectors.joining(", "));
    }

    private String positionItems(List<String> places) {
        List<String> named = new ArrayList<>();
        for (String each : places) {
            // With a name of its own: rows are sorted by the column, not by what is made of it.
            named.add(dialect.exact(each) + " AS \"ferry." + named.size() + '"');
        }
        return String.join(", ", named);
    }

    /**
     * Rejects to go on with what is another table than the one before.
     *
     * @throws AdapterException when a member has lost its column, or rows have another order
     */
    void requireLike(Query before) throws AdapterException {
        if (!order.equals(before.order)) {
            throw new AdapterException(table.source + " has changed: its rows are in the order of "
                    + String.join(", ", order) + " instead of " + String.join(", ", before.order));
        }
        for (Cell cell : before.cells) {
            if (cells.stream().noneMatch(each -> each.field.path.equals(cell.field.path))) {
                throw new AdapterException(table.source + " has changed: it no longer has a column "
                        + "for member \"" + cell.field.path + "\", which was \""
                        + cell.column.name() + "\"");
            }
        }
    }

    /** The rows between two positions, both of which may be null. */
    private String from(String selected, List<Object> position, List<Object> end) {
        return "SELECT " + selected + " FROM " + table.from + " WHERE " + condition
                + (position == null ? "" : after) + (end == null ? "" : upTo);
    }

    /** Rows with the bytes of all up to and with them. */
    private String summed(String inner, String more) {
        return "(SELECT t.*" + more + ", CAST(sum(" + size + ") OVER w AS BIGINT) AS "
                + "\"ferry.bytes\", " + size + " AS \"ferry.size\" FROM (" + inner
                + ") AS t WINDOW w AS (" + ordered.strip() + " ROWS UNBOUNDED PRECEDING)) AS t";
    }

    /** Nobody else's statement: one that was prepared for the table as it was would be no good. */
    private PreparedStatement prepare(Link link, String sql) throws SQLException {
        return link.prepare(mark + sql);
    }

    private PreparedStatement prepare(Link link, String sql, List<Object> position,
            List<Object> end) throws SQLException {
        PreparedStatement statement = prepare(link, sql);
        int index = 1;
        for (List<Object> each : Arrays.asList(position, end)) {
            for (Object value : each == null ? List.of() : each) {
                dialect.bindPosition(statement, index++, value);
            }
        }
        return statement;
    }

    /**
     * The rows behind a position, or from the start where that is null.
     *
     * @param end the last position to be read, or null
     * @param most rows, and bytes: where {@link #measured}, what comes ends with the row that
     *     brings it to so many
     */
    ResultSet rows(Link link, List<Object> position, List<Object> end, int most, int bytes)
            throws SQLException {
        String limit = ordered + " LIMIT " + most;
        String sql = !measured ? from(items, position, end) + limit
                : "SELECT " + items + ", t.\"ferry.bytes\" FROM "
                        + summed(from(raw, position, end) + limit, "")
                        + " WHERE t.\"ferry.bytes\" - t.\"ferry.size\" < " + bytes + ordered;
        return prepare(link, sql, position, end).executeQuery();
    }

    /** All rows between two positions, however many they are. */
    ResultSet rows(Link link, List<Object> position, List<Object> end) throws SQLException {
        return prepare(link, from(items, position, end) + ordered, position, end).executeQuery();
    }

    /**
     * The position of the row that brings those behind a position to so many rows or bytes; null
     * when there are fewer. What is the same position only the database can say: 1.0 is 1.00, and
     * to some 'a' is 'A'.
     */
    List<Object> end(Link link, List<Object> position, List<Object> last, int most, int bytes)
            throws SQLException {
        String sql = "SELECT " + exact + " FROM "
                + summed(from(raw, position, last) + ordered + " LIMIT " + most,
                        ", row_number() OVER w AS \"ferry.row\"")
                + " WHERE t.\"ferry.row\" = " + most + " OR t.\"ferry.bytes\" >= " + bytes
                + ordered + " LIMIT 1";
        return one(prepare(link, sql, position, last));
    }

    /** The last position there is, or null when none is behind the one given. */
    List<Object> last(Link link, List<Object> position) throws SQLException {
        return one(prepare(link, from(exact, position, null) + backwards + " LIMIT 1", position,
                null));
    }

    private List<Object> one(PreparedStatement statement) throws SQLException {
        try (ResultSet row = statement.executeQuery()) {
            return row.next() ? position(row, 1) : null;
        }
    }

    /** Whether there is a row behind a position, and not behind the end. */
    boolean hasMore(Link link, List<Object> position, List<Object> end) throws SQLException {
        try (ResultSet row = prepare(link, look(position, end), position, end).executeQuery()) {
            return row.next();
        }
    }

    /** In the rows' order, because that makes the database use their index. */
    String look(List<Object> position, List<Object> end) {
        return from("1", position, end) + ordered + " LIMIT 1";
    }

    /** What the rows that are never read have no place in the order of. */
    Query counted() {
        return rest != null ? rest : this;
    }

    /** How many rows have no place in the order. */
    long withoutOrder(Link link) throws SQLException {
        if (nulls == null) {
            return 0;
        }
        try (ResultSet row = prepare(link, nulls).executeQuery()) {
            row.next();
            return row.getLong(1);
        }
    }

    /**
     * Whether a row reports the end of its instance; NULL does not.
     *
     * @throws BadRow when the value is no truth
     */
    boolean isDeleted(ResultSet row) throws SQLException, BadRow {
        Object value = deleted == null ? null : row.getObject(cells.size() + 1);
        return value != null && Cell.truth(value);
    }

    /** What the columns of members hold, for people; the row itself stays in its table. */
    String text(ResultSet row) {
        StringJoiner all = new StringJoiner(", ");
        for (int i = 0; i < cells.size(); i++) {
            all.add(cells.get(i).column.name() + "=" + text(row, i + 1));
        }
        return all.toString();
    }

    private static String text(ResultSet row, int index) {
        try {
            String value = row.getString(index);
            return value == null ? "NULL" : BadRow.shortened(value);
        } catch (SQLException | RuntimeException e) {
            return "?"; // That may be just what is wrong with the row.
        }
    }

    /** The position of the row that a result of {@link #rows} stands at. */
    List<Object> position(ResultSet row) throws SQLException {
        return position(row, cells.size() + (deleted == null ? 1 : 2));
    }

    /** Where {@link #measured}, the bytes of the rows up to the one that a result stands at. */
    long bytes(ResultSet row) throws SQLException {
        return row.getLong(cells.size() + (deleted == null ? 1 : 2) + order.size());
    }

    private List<Object> position(ResultSet row, int from) throws SQLException {
        List<Object> values = new ArrayList<>(order.size());
        for (int i = 0; i < order.size(); i++) {
            values.add(plain(dialect.position(row, from + i)));
        }
        return values;
    }

    private List<Cell> remembered() {
        List<Cell> found = new ArrayList<>();
        for (String name : order) {
            cells.stream().filter(cell -> cell.column.name().equals(name) && cell.isScalar())
                    .findFirst().ifPresent(found::add);
        }
        if (!dialect.givesExactly() || found.size() < order.size()) {
            return null;
        }
        found.forEach(Cell::remember);
        return found;
    }

    /** Whether {@link #lastPosition} knows. */
    boolean remembersPosition() {
        return remembered != null;
    }

    /** The position of the row whose cells were all read last. */
    List<Object> lastPosition() {
        List<Object> values = new ArrayList<>(remembered.size());
        for (Cell cell : remembered) {
            values.add(plain(cell.remembered()));
        }
        return values;
    }

    private static Object plain(Object value) {
        return value instanceof Integer ? Long.valueOf((Integer) value) : value;
    }
}
