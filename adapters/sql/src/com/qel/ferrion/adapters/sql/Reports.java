package com.qel.ferrion.adapters.sql;

import com.qel.ferrion.kit.BadSamplesException;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;

/**
 * The bad rows that the host has not been told of yet. A report is an exception, and hosts slow
 * down a stream that fails again and again: so the first fault is told at once, and those of the
 * time after it together. Used on the host's thread, but for {@link #isDue}.
 */
final class Reports {
    private static final int NAMED = 10;

    private final long pauseNanos;
    private final List<String> named = new ArrayList<>();
    private long left;
    private volatile long count;
    private volatile long next = System.nanoTime();

    Reports(Duration pause) {
        this.pauseNanos = pause.toNanos();
    }

    /**
     * @param rows how many rows the text is about
     */
    void add(String text, long rows) {
        if (named.size() < NAMED) {
            named.add(text);
        } else {
            left += rows;
        }
        count = count + rows;
    }

    /** Whether there is something to tell and the time for it has come. Any thread. */
    boolean isDue() {
        return count > 0 && System.nanoTime() - next >= 0;
    }

    /** Throws the report when there is one and it is due, or wanted now. */
    void tell(boolean now) throws BadSamplesException {
        if (isDue() || (now && count > 0)) {
            next = System.nanoTime() + pauseNanos;
            long rows = count;
            throw new BadSamplesException(take(), rows);
        }
    }

    /** What has not been told, as a text that is empty when nothing is left. */
    String take() {
        String text = String.join("\n", named) + (left > 0 ? "\nand " + left + " more" : "");
        named.clear();
        left = 0;
        count = 0;
        return text;
    }
}
