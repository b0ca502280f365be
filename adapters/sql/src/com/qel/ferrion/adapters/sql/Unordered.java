package com.qel.ferrion.adapters.sql;

import com.qel.ferrion.kit.BadRows;
import java.sql.SQLException;
import java.time.Duration;

/**
 * How many rows have NULL in an order column and so no place in the order. Counting them may mean
 * to look at the whole table, which is why it is done now and then only. Any thread.
 */
final class Unordered {
    private final long periodNanos;
    private long rows;
    private long reported;
    private long next = System.nanoTime();

    Unordered(Duration period) {
        periodNanos = period.toNanos();
    }

    /** Counts, when it is time to. */
    synchronized void look(Query query, Link link) throws SQLException {
        long now = System.nanoTime();
        if (now - next >= 0) {
            rows = query.withoutOrder(link);
            next = now + periodNanos;
        }
    }

    /** Whether their number is another one than the reported one. */
    synchronized boolean hasChanged() {
        return rows != reported;
    }

    /** Reports those that have come since the last time. */
    synchronized void report(Query query, BadRows reports) {
        if (rows > reported) {
            reports.add(rows + " rows of " + query.table.source + " have NULL in "
                    + String.join(" or ", query.order) + " and are not read", rows - reported);
        }
        reported = rows;
    }
}
