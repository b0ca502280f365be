package com.qel.ferrion.adapters.sql;

import java.util.ArrayList;
import java.util.List;
import java.util.StringJoiner;
import java.util.concurrent.atomic.AtomicLong;

/**
 * The statements that write a stream. Columns in conditions are written with the table's alias: a
 * name alone that no longer exists is a text to SQLite. Immutable but for the cells.
 */
final class Statements {
    /** What the parameters of {@link #put} are, in their order. */
    final List<Cell> cells;
    /** What the parameters of {@link #remove} are. */
    final List<Cell> keys = new ArrayList<>();
    final String put;
    /** The put with NULL for every value, for finding out whether it would work. */
    final String trial;
    /** What a disposal does, or null for nothing. */
    final String remove;

    private static final AtomicLong MARKS = new AtomicLong();

    /** What happens to a row whose key is there already. */
    enum Mode { INSERT, INSERT_NEW, UPSERT }

    /** What a disposal does to its row. */
    enum OnDispose { IGNORE, DELETE, MARK }

    /**
     * The begin of a statement that is another one than all before. Those that were prepared for a
     * table before it was changed or made anew would fail, and connections keep them.
     */
    static String mark() {
        return "/*" + MARKS.incrementAndGet() + "*/ ";
    }

    Statements(String target, List<Cell> cells, Mode mode, OnDispose onDispose, String mark) {
        this.cells = cells;
        StringJoiner names = new StringJoiner(", ");
        StringJoiner values = new StringJoiner(", ");
        StringJoiner updates = new StringJoiner(", ");
        StringJoiner conflict = new StringJoiner(", ");
        StringJoiner same = new StringJoiner(" AND ");
        for (Cell cell : cells) {
            String column = cell.column.quoted();
            names.add(column);
            values.add("?");
            if (cell.field.key) {
                keys.add(cell);
                conflict.add(column);
                same.add("t." + column + " = ?");
            } else {
                updates.add(column + " = excluded." + column);
            }
        }
        String marked = Dialect.quote(mark);
        if (onDispose == OnDispose.MARK) {
            names.add(marked);
            values.add("FALSE");
            updates.add(marked + " = FALSE");
        }
        String end = mode == Mode.INSERT ? ""
                : mode == Mode.INSERT_NEW ? " ON CONFLICT DO NOTHING"
                : " ON CONFLICT (" + conflict + ") DO " + (updates.length() == 0 ? "NOTHING"
                        : "UPDATE SET " + updates);
        String begin = mark() + "INSERT INTO " + target + " (" + names + ") VALUES (";
        put = begin + values + ")" + end;
        trial = "EXPLAIN " + begin + values.toString().replace("?", "NULL") + ")" + end;
        remove = keys.isEmpty() || onDispose == OnDispose.IGNORE ? null
                : mark() + (onDispose == OnDispose.DELETE ? "DELETE FROM " + target + " AS t"
                        : "UPDATE " + target + " AS t SET " + marked + " = TRUE")
                + " WHERE " + same;
    }
}
