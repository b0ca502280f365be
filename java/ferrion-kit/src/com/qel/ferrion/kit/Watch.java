package com.qel.ferrion.kit;

import java.lang.System.Logger.Level;
import java.time.Duration;
import java.util.concurrent.Future;
import java.util.concurrent.ScheduledThreadPoolExecutor;
import java.util.concurrent.TimeUnit;
import java.util.function.Function;

/**
 * A thread that looks again and again whether there is more to read. One serves all readers of a
 * connection. It is a daemon and begins with the first task; what it calls should look and signal,
 * no more. Tasks may be started and cancelled from any thread.
 */
public final class Watch {
    private static final long PATIENCE_MILLIS = 2000;

    private final String name;
    private final System.Logger log;
    private final Function<Throwable, String> text;
    private ScheduledThreadPoolExecutor executor;
    /** The executor's one thread: no task lets anything out, so it is never replaced. */
    private Thread thread;

    /** What is done every time. */
    public interface Look {
        /** @throws Exception to have it logged; the next look comes as if nothing had happened */
        void look() throws Exception;
    }

    /**
     * A look that is taken until it is cancelled. One that goes on failing in the same way is
     * logged once, and again after one that succeeded.
     */
    public final class Task implements Runnable {
        private final Look look;
        private Future<?> future;
        /** Used on the thread alone. */
        private String failure;

        private Task(Look look) {
            this.look = look;
        }

        /** For the watching thread. */
        @Override
        public void run() {
            try {
                look.look();
                failure = null;
            } catch (Throwable thrown) {
                String now = text.apply(thrown);
                // One that was cut short by the end is not worth a line.
                if (!now.equals(failure) && !executor.isShutdown()) {
                    log.log(Level.WARNING, name + ": " + now);
                }
                failure = now;
            }
        }

        /** No look begins any more; one that is under way may still end later. */
        public void cancel() {
            future.cancel(false);
        }
    }

    /**
     * Starts nothing yet.
     *
     * @param name of the thread
     * @param log where failures go
     * @param text what is said of one; never null
     */
    public Watch(String name, System.Logger log, Function<Throwable, String> text) {
        this.name = name;
        this.log = log;
        this.text = text;
    }

    /** Looks as soon as the thread is free, and never again. */
    public Task once(Look look) {
        return start(look, null);
    }

    /** Looks as soon as the thread is free, and then each time the period is over. */
    public Task every(Duration period, Look look) {
        return start(look, period);
    }

    private synchronized Task start(Look look, Duration period) {
        if (executor == null) {
            executor = new ScheduledThreadPoolExecutor(1, work -> {
                thread = new Thread(work, name);
                thread.setDaemon(true);
                return thread;
            });
            executor.setRemoveOnCancelPolicy(true);
        }
        Task task = new Task(look);
        task.future = period == null ? executor.submit(task)
                : executor.scheduleWithFixedDelay(task, 0, period.toNanos(), TimeUnit.NANOSECONDS);
        return task;
    }

    /**
     * Ends the thread for good: a look that is under way is interrupted.
     *
     * @param release makes a look give up that does not heed interruption
     * @return whether it has ended, which is waited for for two seconds; true also when it never
     *     began
     */
    public synchronized boolean stop(Runnable release) {
        if (executor == null) {
            return true;
        }
        executor.shutdownNow();
        release.run();
        try {
            // The executor counts itself as ended a moment before its thread has.
            thread.join(PATIENCE_MILLIS);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
        if (thread.isAlive()) {
            log.log(Level.WARNING, "thread " + name + " does not end");
        }
        return !thread.isAlive();
    }
}
