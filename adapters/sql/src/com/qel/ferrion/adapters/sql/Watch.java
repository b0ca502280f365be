package com.qel.ferrion.adapters.sql;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.lang.System.Logger.Level;
import java.sql.SQLException;
import java.time.Duration;
import java.util.concurrent.ScheduledFuture;
import java.util.concurrent.ScheduledThreadPoolExecutor;
import java.util.concurrent.TimeUnit;

/**
 * The one thread of a connection that looks whether there is more, with a database connection of
 * its own. It is a daemon, it begins with the first task, and it only looks and signals.
 */
final class Watch {
    private final String name;
    private final Link link;
    private ScheduledThreadPoolExecutor executor;
    private Thread thread;
    /** Used on the thread alone: what was told last of a look that failed. */
    private String failure = "";

    /** A look that is taken again and again, until it is cancelled. */
    interface Task {
        /** No look begins any more; one that is under way may still end later. */
        void cancel();
    }

    /** What is done every time. */
    interface Look {
        void look(Link link) throws SQLException, AdapterException;
    }

    Watch(String name, Link link) {
        this.name = name;
        this.link = link;
    }

    /** Looks at once, and then every period. */
    synchronized Task start(Look look, Duration period) {
        if (executor == null) {
            executor = new ScheduledThreadPoolExecutor(1, work -> {
                thread = new Thread(work, name);
                thread.setDaemon(true);
                return thread;
            });
            executor.prestartCoreThread();
            executor.setRemoveOnCancelPolicy(true);
        }
        ScheduledFuture<?> future = executor.scheduleWithFixedDelay(() -> guarded(look), 0,
                period.toMillis(), TimeUnit.MILLISECONDS);
        return () -> future.cancel(false);
    }

    /** One failure must not end the watching of everything else. */
    private void guarded(Look look) {
        String now = "";
        try {
            look.look(link);
        } catch (SQLException e) {
            now = Link.text(e);
        } catch (AdapterException | RuntimeException e) {
            now = String.valueOf(e);
        }
        if (!now.isEmpty() && !now.equals(failure) && !executor.isShutdown()) {
            Link.LOG.log(Level.WARNING, name + ": " + now);
        }
        failure = now;
    }

    /** Ends the thread; returns when it has ended, or after two seconds. */
    synchronized void stop() {
        if (executor != null) {
            executor.shutdownNow();
            link.abort();
            try {
                thread.join(2000);
            } catch (InterruptedException e) {
                Thread.currentThread().interrupt();
            }
            if (thread.isAlive()) {
                Link.LOG.log(Level.WARNING, "thread {0} does not end", name);
                return;
            }
        }
        link.close();
    }
}
