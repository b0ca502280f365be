package com.qel.ferrion.adapters.sql;

import com.qel.ferrion.kit.SamplePool;
import com.qel.ferrion.kit.Settings;
import com.qel.ferrion.kit.Watch;
import java.util.List;
import java.util.concurrent.Callable;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.FutureTask;
import java.util.concurrent.TimeUnit;

/**
 * The batch behind the one that the host has, fetched meanwhile on the watching thread, or on the
 * host's own if that has not come to it. It counts only if the position comes to be where it
 * begins, and while it is young: rows that are committed late can still come in front of it, and a
 * host that keeps its loans for long gains nothing. A failure leaves it to the next read to find
 * out for itself.
 *
 * <p>A reader and its read-ahead take turns with two pools. Used on the host's thread; what fetches
 * has the spare pool, the query's cells and the reader's judgement of failures to itself until
 * {@link #take} has returned.
 */
final class ReadAhead {
    private static final long YOUNG_NANOS = TimeUnit.SECONDS.toNanos(1);

    private SamplePool spare;
    private FutureTask<Batch> next;
    /** What the batch was fetched with: it is of no use to others. */
    private List<Object> from;
    private Settings settings;
    private long lent;
    private boolean slow;
    /** Whether memory did not suffice for two batches. */
    private boolean scarce;

    ReadAhead(SamplePool spare) {
        this.spare = spare;
    }

    /** What the fetched batch's samples are taken from. */
    SamplePool pool() {
        return spare;
    }

    /** The host gets a batch, behind which nothing more is expected. */
    void end() {
        lent = System.nanoTime();
        spare.release();
    }

    /**
     * The host gets a batch, behind which there is more.
     *
     * @param position behind the batch
     */
    void begin(Watch watch, List<Object> position, Settings with, Callable<Batch> fetch) {
        lent = System.nanoTime();
        if (!slow && !scarce) {
            from = position;
            settings = with;
            next = new FutureTask<>(fetch);
            watch.once(next::run);
        }
    }

    /** The host has given the batch back. */
    void returned() {
        slow = System.nanoTime() - lent >= YOUNG_NANOS;
    }

    /**
     * The batch that was fetched, or null for none that is any good. Waits for one that is under
     * way.
     */
    Batch take(List<Object> position, Settings with) {
        if (next == null) {
            return null;
        }
        next.run(); // Does nothing once the watching thread has begun.
        Batch batch = outcome();
        next = null;
        boolean good = batch != null && from == position && settings == with
                && System.nanoTime() - batch.began < YOUNG_NANOS;
        if (!good) {
            spare.returned();
        }
        return good ? batch : null;
    }

    /** An interrupt, which another adapter may have left on the thread, waits as well. */
    private Batch outcome() {
        boolean interrupted = false;
        try {
            while (true) {
                try {
                    return next.get();
                } catch (InterruptedException e) {
                    interrupted = true;
                } catch (ExecutionException e) {
                    if (e.getCause() instanceof OutOfMemoryError) {
                        scarce = true;
                        spare.release();
                    }
                    return null;
                }
            }
        } finally {
            if (interrupted) {
                Thread.currentThread().interrupt();
            }
        }
    }

    /** Lends the pool of the batch that was taken, and keeps the other one for the next. */
    SamplePool exchange(SamplePool other) {
        SamplePool taken = spare;
        spare = other;
        return taken;
    }

    /** One that has not begun never does; one that is under way comes to nothing. */
    void cancel() {
        if (next != null) {
            next.cancel(false);
        }
    }
}
