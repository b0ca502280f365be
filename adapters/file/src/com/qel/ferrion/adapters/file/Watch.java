package com.qel.ferrion.adapters.file;

import java.lang.System.Logger.Level;
import java.util.concurrent.ScheduledFuture;
import java.util.concurrent.ScheduledThreadPoolExecutor;
import java.util.concurrent.TimeUnit;

/**
 * The one thread of a connection that looks for more input. It is a daemon, it begins with the
 * first task, and it only looks and signals.
 */
final class Watch {
    private static final System.Logger LOG = System.getLogger(Input.class.getPackageName());

    private final String name;
    private final long periodMillis;
    private ScheduledThreadPoolExecutor executor;
    /** Its one thread: no task lets an exception out, so it is never replaced. */
    private Thread thread;

    /** A task that is looked after until it is cancelled. */
    interface Task {
        void cancel();
    }

    Watch(String name, long periodMillis) {
        this.name = name;
        this.periodMillis = periodMillis;
    }

    /**
     * Runs something at once, and something again and again.
     *
     * @param first run once, or null
     * @param again run every period, or null
     */
    synchronized Task start(Runnable first, Runnable again) {
        if (executor == null) {
            executor = new ScheduledThreadPoolExecutor(1, work -> {
                thread = new Thread(work, name);
                thread.setDaemon(true);
                return thread;
            });
            executor.prestartCoreThread();
            executor.setRemoveOnCancelPolicy(true);
        }
        if (first != null) {
            executor.execute(guarded(first));
        }
        if (again == null) {
            return () -> { };
        }
        ScheduledFuture<?> future = executor.scheduleWithFixedDelay(guarded(again), periodMillis,
                periodMillis, TimeUnit.MILLISECONDS);
        return () -> future.cancel(false);
    }

    /** One failure must not end the watching of everything else. */
    private static Runnable guarded(Runnable work) {
        return () -> {
            try {
                work.run();
            } catch (RuntimeException e) {
                LOG.log(Level.ERROR, "watching files", e);
            }
        };
    }

    /** Ends the thread; returns when it has ended, or after two seconds. */
    synchronized void stop() {
        if (executor != null) {
            executor.shutdownNow();
            try {
                // The executor counts itself as ended a moment before its thread is.
                thread.join(2000);
                if (thread.isAlive()) {
                    LOG.log(Level.WARNING, "thread {0} does not end", name);
                }
            } catch (InterruptedException e) {
                Thread.currentThread().interrupt();
            }
        }
    }
}
