package com.qel.ferrion.adapters.sql;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;

/**
 * What the host has not been told of yet. A report is an exception, and hosts slow down a stream
 * that fails again and again: so the first fault is told at once, and those of the time after it
 * together. Used on the host's thread, but for {@link #isDue}.
 */
final class Reports {
    private static final int NAMED = 10;

    private final long pauseNanos;
    private final List<String> named = new ArrayList<>();
    private volatile long count;
    private volatile long next = System.nanoTime();

    Reports(Duration pause) {
        this.pauseNanos = pause.toNanos();
    }

    void add(String text) {
        if (named.size() < NAMED) {
            named.add(text);
        }
        count = count + 1;
    }

    /** Whether there is something to tell and the time for it has come. Any thread. */
    boolean isDue() {
        return count > 0 && System.nanoTime() - next >= 0;
    }

    /** Throws the report when there is one and it is due, or wanted now. */
    void tell(boolean now) throws AdapterException {
        if (isDue() || (now && count > 0)) {
            next = System.nanoTime() + pauseNanos;
            throw new AdapterException(take());
        }
    }

    /** What has not been told, as a text that is empty when nothing is left. */
    String take() {
        String text = String.join("\n", named);
        if (count > named.size()) {
            text += "\nand " + (count - named.size()) + " more";
        }
        named.clear();
        count = 0;
        return text;
    }
}
