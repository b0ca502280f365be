package com.qel.ferrion.adapters.sql;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.lang.System.Logger.Level;
import java.sql.Connection;
import java.sql.PreparedStatement;
import java.sql.SQLException;
import java.time.Duration;
import java.util.HashMap;
import java.util.Map;

/**
 * A connection to the database that is made when it is needed, thrown away when something fails on
 * it, and made again. Used by one thread at a time; {@link #abort} may come from another one.
 */
final class Link {
    static final System.Logger LOG = System.getLogger(Link.class.getPackageName());
    private static final long FIRST_PAUSE = 50;
    private static final long LONGEST_PAUSE = 5_000;

    private final Database database;
    private final Database.Use use;
    private final String owner;
    private final Map<String, PreparedStatement> statements = new HashMap<>();
    private volatile Connection connection;
    private volatile boolean ended;

    /** What is done with a connection; done again from its start when that fails. */
    interface Work<T> {
        /**
         * @throws SQLException when it may succeed another time
         * @throws AdapterException when it would not
         */
        T run(Connection connection) throws SQLException, AdapterException;
    }

    Link(Database database, Database.Use use, String owner) {
        this.database = database;
        this.use = use;
        this.owner = owner;
    }

    /**
     * Does some work, and again after a pause that grows, on a new connection, as long as it fails.
     *
     * @param patience how long to try; zero is for ever
     * @throws AdapterException when time is up, or the work has thrown it
     */
    <T> T run(Work<T> work, Duration patience) throws AdapterException {
        long start = System.nanoTime();
        long pause = FIRST_PAUSE;
        for (int failures = 0;; failures++) {
            try {
                T result = once(work);
                if (failures > 0) {
                    LOG.log(Level.WARNING, owner + ": goes on after " + seconds(start));
                }
                return result;
            } catch (SQLException e) {
                long left = patience.toMillis() - (System.nanoTime() - start) / 1_000_000;
                if (ended || (!patience.isZero() && left <= 0)) {
                    throw new AdapterException(owner + ": " + database + ": " + text(e)
                            + (failures == 0 ? "" : " (tried for " + seconds(start) + ")"), e);
                }
                if (failures == 0) {
                    LOG.log(Level.WARNING, owner + ": " + database + ": " + text(e)
                            + "; trying again "
                            + (patience.isZero() ? "until it works"
                                                 : "for " + patience.toSeconds() + " s"));
                }
                pause(patience.isZero() ? pause : Math.min(pause, left));
                pause = Math.min(2 * pause, LONGEST_PAUSE);
            }
        }
    }

    /** Does some work once. After a failure the connection is gone. */
    <T> T once(Work<T> work) throws SQLException, AdapterException {
        boolean good = false;
        try {
            if (connection == null) {
                connection = database.open(use);
            }
            T result = work.run(connection);
            good = true;
            return result;
        } finally {
            if (!good) {
                close();
            }
        }
    }

    /**
     * Does some work of a reader's or writer's creation. A database that cannot be reached just now
     * does not keep it from being made: the work is done again when it is used.
     *
     * @throws AdapterException when it would not work then either
     */
    void tryOnce(Work<?> work) throws AdapterException {
        try {
            once(work);
        } catch (SQLException e) {
            if (database.dialect().isPermanent(e)) {
                throw new AdapterException(database + ": " + text(e), e);
            }
            LOG.log(Level.WARNING, owner + ": " + database + ": " + text(e)
                    + "; this is tried again when it is used");
        }
    }

    /** A statement of the present connection, kept as long as that one. */
    PreparedStatement prepare(String sql) throws SQLException {
        PreparedStatement statement = statements.get(sql);
        if (statement == null) {
            statement = connection.prepareStatement(sql);
            statements.put(sql, statement);
        }
        return statement;
    }

    /** Ends the connection; waits for nobody. A transaction that was not committed is undone. */
    void close() {
        Connection old = connection;
        connection = null;
        statements.clear();
        if (old != null) {
            try {
                old.close();
            } catch (SQLException e) {
                // It was no longer one; the server finds out by itself.
            }
        }
    }

    /** Makes work that is under way fail, and lets no other begin. Any thread. */
    void abort() {
        ended = true;
        Connection now = connection;
        if (now != null) {
            try {
                try {
                    now.abort(Runnable::run);
                } catch (SecurityException noManager) {
                    // PostgreSQL's driver asks for a permission, which VMs from 24 on know none of.
                    now.close();
                }
            } catch (SQLException e) {
                // It has ended already.
            }
        }
    }

    private static String seconds(long start) {
        return (System.nanoTime() - start) / 1_000_000_000 + " s";
    }

    /** A failure in one line. */
    static String text(Throwable failure) {
        return failure instanceof SQLException ? text((SQLException) failure)
                                               : String.valueOf(failure);
    }

    /** A failure in one line; of a batch the reason, not the values. */
    static String text(SQLException failure) {
        SQLException last = failure;
        while (last.getNextException() != null) {
            last = last.getNextException();
        }
        return String.valueOf(last.getMessage()).strip().replaceAll("\\s*\\R\\s*", "; ");
    }

    /** An interrupt, which another adapter may have left on the thread, only ends the pause. */
    private static void pause(long millis) {
        try {
            Thread.sleep(millis);
        } catch (InterruptedException e) {
            return;
        }
    }
}
