package com.qel.ferrion.adapters.sql;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.lang.System.Logger.Level;
import java.sql.SQLException;
import java.time.Duration;
import java.util.function.Predicate;

/**
 * A reader's or writer's way to the database: work is done on a connection of the pool, and again
 * on another one when it fails. Immutable.
 */
final class Access {
    static final System.Logger LOG = System.getLogger(Access.class.getPackageName());
    private static final long FIRST_PAUSE = 50;
    private static final long LONGEST_PAUSE = 5_000;

    private final Pool pool;
    private final Database database;
    private final Database.Use use;
    private final String owner;
    private final String where;

    /** What is done with a connection; done again from its start when that fails. */
    interface Work<T> {
        /**
         * @throws SQLException when it may succeed another time
         * @throws AdapterException when it would not
         */
        T run(Link link) throws SQLException, AdapterException;
    }

    /**
     * @param owner who works here, for messages
     * @param object the table or query that is worked on, for messages
     */
    Access(Pool pool, Database database, Database.Use use, String owner, String object) {
        this.pool = pool;
        this.database = database;
        this.use = use;
        this.owner = owner;
        this.where = database + ", " + object;
    }

    /**
     * Does some work, and again after a pause that grows, on a new connection, as long as it fails.
     *
     * @param patience how long to try; zero is for ever. For reads the time counts for which
     *     nobody has reached the database
     * @param hopeless which failures are not worth another attempt
     * @throws AdapterException when time is up, or the work has thrown it
     */
    <T> T run(Work<T> work, Duration patience, Predicate<SQLException> hopeless)
            throws AdapterException {
        // Rows wait in their table, batches nowhere: those have all their time for themselves.
        long start = System.nanoTime()
                - (use == Database.Use.READ ? pool.away().toNanos() : 0);
        long pause = FIRST_PAUSE;
        for (int failures = 0;; failures++) {
            try {
                T result = once(work);
                if (failures > 0) {
                    LOG.log(Level.WARNING, owner + ": goes on after "
                            + (System.nanoTime() - start) / 1_000_000_000 + " s");
                }
                return result;
            } catch (AdapterException e) {
                throw owned(e);
            } catch (SQLException e) {
                long left = patience.toMillis() - (System.nanoTime() - start) / 1_000_000;
                boolean inVain = hopeless.test(e);
                if (inVain || pool.hasEnded() || (!patience.isZero() && left <= 0)) {
                    throw failure(e, inVain ? "" : " (tried for " + patience.toSeconds() + " s)");
                }
                if (failures == 0) {
                    LOG.log(Level.WARNING, owner + ": " + where + ": " + Secrets.text(e)
                            + "; trying again "
                            + (patience.isZero() ? "until it works"
                                                 : "for " + patience.toSeconds() + " s"));
                }
                pause(patience.isZero() ? pause : Math.min(pause, left));
                pause = Math.min(2 * pause, LONGEST_PAUSE);
            }
        }
    }

    /** Does some work once. After a failure its connection is gone. */
    <T> T once(Work<T> work) throws SQLException, AdapterException {
        return once(work, false);
    }

    private <T> T once(Work<T> work, boolean hurried) throws SQLException, AdapterException {
        Link link = pool.take(use, hurried);
        Throwable failure = null;
        try {
            if (hurried) {
                database.waitForLocks(link, false);
            }
            T result = work.run(link);
            if (hurried) {
                database.waitForLocks(link, true);
            }
            return result;
        } catch (Throwable thrown) {
            failure = thrown;
            throw thrown;
        } finally {
            pool.giveBack(link, failure);
        }
    }

    /**
     * Does some work of a reader's or writer's creation. A database that cannot be reached just
     * now, or a lock that somebody holds, does not keep it from being made: the work is done again
     * when it is used.
     *
     * @throws AdapterException when it would not work then either
     */
    void tryOnce(Work<?> work) throws AdapterException {
        try {
            once(work, true);
        } catch (AdapterException e) {
            throw owned(e);
        } catch (SQLException e) {
            if (database.dialect().isPermanent(e)) {
                throw failure(e, "");
            }
            LOG.log(Level.WARNING, owner + ": " + where + ": " + Secrets.text(e)
                    + "; this is tried again when it is used");
        }
    }

    /**
     * Does some work that has to succeed now.
     *
     * @throws AdapterException when it does not
     */
    void probe(Work<?> work) throws AdapterException {
        try {
            once(work);
        } catch (AdapterException e) {
            throw owned(e);
        } catch (SQLException e) {
            throw failure(e, "");
        }
    }

    /** Work's own failure; it does not know whose work it is. */
    private AdapterException owned(AdapterException e) {
        return new AdapterException(owner + ": " + database + ": " + e.getMessage(), e.getCause());
    }

    private AdapterException failure(SQLException e, String tried) {
        return new AdapterException(owner + ": " + where + ": " + Secrets.text(e) + tried,
                Secrets.cause(e));
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
