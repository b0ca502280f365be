package com.qel.ferrion.adapters.sql;

import java.sql.SQLException;
import java.util.List;

/**
 * Up to where rows are settled: no transaction that began before they were seen is expected to put
 * one in front of them any more. The last row that there was at some moment is the horizon when the
 * time to settle has passed. Moved by the watching thread, read by the host's.
 */
final class Horizon {
    private final long settleNanos;
    private volatile List<Object> settled;
    private List<Object> candidate;
    private long seen;

    Horizon(long settleNanos) {
        this.settleNanos = settleNanos;
    }

    /** Whether rows have to settle at all. */
    boolean isOn() {
        return settleNanos > 0;
    }

    /** The last position that may be read; null when there is none, or where all may. */
    List<Object> end() {
        return settled;
    }

    /** Whether nothing may be read for now. */
    boolean hidesAll() {
        return isOn() && settled == null;
    }

    /** Looks how far rows have come, and lets those be read that have been there long enough. */
    void look(Query query, Link link, List<Object> position) throws SQLException {
        if (!isOn()) {
            return;
        }
        long now = System.nanoTime();
        if (candidate != null && now - seen >= settleNanos) {
            settled = candidate;
            candidate = null;
        }
        if (candidate == null) {
            candidate = query.last(link, position);
            seen = now;
        }
    }
}
