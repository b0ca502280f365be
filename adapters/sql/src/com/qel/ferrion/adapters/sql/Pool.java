package com.qel.ferrion.adapters.sql;

import java.sql.SQLException;
import java.time.Duration;
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Deque;
import java.util.HashSet;
import java.util.Iterator;
import java.util.List;
import java.util.Set;
import java.util.concurrent.TimeUnit;

/**
 * The connections to one database that its readers, its writers and the watching thread share. One
 * is lent for the time of a single read, batch or look, so there are never more than threads that
 * use the database, and never more than the limit.
 *
 * <p>When the database cannot be reached, all who ask hear of the one failure: for the next moments
 * nobody else waits for an answer that does not come. Any thread.
 */
final class Pool {
    private static final long FIRST_PAUSE_MILLIS = 50;
    private static final long LONGEST_PAUSE_MILLIS = 1_000;

    private final Database database;
    private final int limit;
    /** What follows is guarded by this. */
    private final Deque<Link> idle = new ArrayDeque<>();
    private final Set<Link> lent = new HashSet<>();
    /** How many are being made now, without the monitor. */
    private int opening;
    private boolean ended;
    private SQLException outage;
    private long outageBegan;
    private long outagePause;
    private long nextAttempt;

    Pool(Database database, int limit) {
        this.database = database;
        this.limit = limit;
    }

    /**
     * Lends a connection, which {@link #giveBack} takes.
     *
     * @param hurried whether a lock that another one holds is not worth waiting for
     * @throws SQLException when none can be made, or all stay in use
     */
    Link take(Database.Use use, boolean hurried) throws SQLException {
        Link found = reserve(use);
        if (found != null) {
            return found;
        }
        Link made = null;
        SQLException failure = null;
        long began = System.nanoTime();
        try {
            made = database.open(use, hurried);
            return made;
        } catch (SQLException e) {
            failure = e;
            throw e;
        } finally {
            opened(made, failure, System.nanoTime() - began);
        }
    }

    /** An idle connection, or null where the caller has to make one: its place is kept. */
    private synchronized Link reserve(Database.Use use) throws SQLException {
        long end = System.nanoTime() + database.networkTimeout().toNanos();
        while (true) {
            if (ended) {
                throw new SQLException("the connection has ended");
            }
            Link found = idleFor(use);
            if (found != null) {
                lent.add(found);
                return found;
            }
            if (outage != null && System.nanoTime() - nextAttempt < 0) {
                throw outage;
            }
            if (lent.size() + opening < limit) {
                if (lent.size() + opening + idle.size() >= limit) {
                    idle.removeFirst().close();
                }
                opening++;
                return null;
            }
            waitUntil(end);
        }
    }

    private Link idleFor(Database.Use use) {
        for (Iterator<Link> each = idle.descendingIterator(); each.hasNext();) {
            Link link = each.next();
            if (link.use == use) {
                each.remove();
                return link;
            }
        }
        return null;
    }

    private void waitUntil(long end) throws SQLException {
        long left = TimeUnit.NANOSECONDS.toMillis(end - System.nanoTime());
        if (left <= 0) {
            throw new SQLException("all " + limit + " connections have been in use for "
                    + database.networkTimeout().toSeconds() + " s; property \"connections\" allows "
                    + "more");
        }
        try {
            wait(left);
        } catch (InterruptedException e) {
            throw new SQLException("interrupted", e);
        }
    }

    private synchronized void opened(Link made, SQLException failure, long took) {
        opening--;
        if (made != null) {
            outage = null;
            lent.add(made);
            if (ended) {
                made.abort();
            }
        } else if (failure != null) {
            long now = System.nanoTime();
            outageBegan = outage == null ? now - took : outageBegan;
            outagePause = outage == null ? FIRST_PAUSE_MILLIS
                                         : Math.min(2 * outagePause, LONGEST_PAUSE_MILLIS);
            outage = failure;
            // Who waits long for nothing does not begin again at once.
            nextAttempt = now + Math.max(TimeUnit.MILLISECONDS.toNanos(outagePause), took);
        }
        notifyAll();
    }

    /**
     * Takes a connection back.
     *
     * @param failure what went wrong with it, so that it is not used again, or null
     */
    synchronized void giveBack(Link link, Throwable failure) {
        lent.remove(link);
        if (failure == null && !ended) {
            outage = null;
            idle.addLast(link);
        } else {
            link.close();
        }
        if (failure instanceof SQLException && isShared((SQLException) failure)) {
            // The others went the same way: nobody has to find out one by one.
            idle.forEach(Link::close);
            idle.clear();
        }
        notifyAll();
    }

    private boolean isShared(SQLException failure) {
        return database.dialect().isDisconnected(failure)
                || database.dialect().isOutdated(failure);
    }

    /** How long the database could not be reached; zero when it can, as far as is known. */
    synchronized Duration away() {
        return outage == null ? Duration.ZERO : Duration.ofNanos(System.nanoTime() - outageBegan);
    }

    /** The most connections at a time. */
    int limit() {
        return limit;
    }

    synchronized boolean hasEnded() {
        return ended;
    }

    /** Makes work that is under way fail, and lets no other begin. */
    void end() {
        List<Link> all;
        synchronized (this) {
            ended = true;
            all = new ArrayList<>(lent);
            idle.forEach(Link::close);
            idle.clear();
            notifyAll();
        }
        all.forEach(Link::abort);
    }
}
