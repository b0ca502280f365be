package com.qel.ferrion.adapters.sql;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.sql.SQLException;
import java.util.List;

/**
 * How far a query's rows have been read. The host's thread moves the position, the watching thread
 * looks behind it and moves the horizon.
 */
final class Sequence {
    final Horizon horizon;
    private final String owner;
    private final RowPosition file;
    private boolean loaded;
    private volatile List<Object> position;

    /**
     * @param owner whose position it is, for messages
     * @param file where it is kept, or null if nowhere; closed by {@link #close}
     */
    Sequence(String owner, RowPosition file, long settleNanos) {
        this.owner = owner;
        this.file = file;
        horizon = new Horizon(settleNanos);
    }

    /**
     * Finds out once where reading goes on.
     *
     * @throws AdapterException when what is kept is no position in this order
     */
    void load(List<String> order) throws AdapterException {
        if (!loaded && file != null) {
            position = file.load(order);
        }
        loaded = true;
    }

    /** Behind the rows that have been acknowledged; null at the start. */
    List<Object> position() {
        return position;
    }

    /**
     * Acknowledges the rows up to a position.
     *
     * @throws AdapterException when that cannot be kept; reading goes on behind them all the same
     */
    void moveTo(List<Object> reached, List<String> order) throws AdapterException {
        position = reached;
        try {
            if (file != null) {
                file.save(order, reached);
            }
        } catch (AdapterException e) {
            throw new AdapterException(owner + ": " + e.getMessage(), e);
        }
    }

    /** Whether there are rows behind the position that have settled. */
    boolean hasMore(Query query, Link link) throws SQLException {
        List<Object> from = position;
        horizon.look(query, link, from);
        return !horizon.hidesAll() && query.hasMore(link, from, horizon.end());
    }

    /** Tries whether the position could be kept. */
    void probe() throws AdapterException {
        if (file != null) {
            file.probe();
        }
    }

    /** @param traceless whether what was made for the position's file goes as well */
    void close(boolean traceless) {
        if (file != null) {
            file.close(traceless);
        }
    }
}
