package com.qel.ferrion.adapters.file;

import com.qel.ferrion.kit.BadSamplesException;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.TimeUnit;

/**
 * The bad rows of one read at a time. Each read that has some reports their exact number; so that
 * a dirty file does not fill the log, most reports name one row only. Used on the host's thread.
 */
final class BadRows {
    private static final int NAMED = 10;

    private final Path path;
    private final Rejects rejects;
    private final long pauseNanos;
    private final List<String> named = new ArrayList<>();
    private long count;
    /** From when on a report may name several rows again. */
    private long full = System.nanoTime();

    /**
     * @param rejects where bad rows are kept, or null
     * @param pauseMillis between two reports that name several rows
     */
    BadRows(Path path, Rejects rejects, long pauseMillis) {
        this.path = path;
        this.rejects = rejects;
        this.pauseNanos = TimeUnit.MILLISECONDS.toNanos(pauseMillis);
    }

    /** Notes the row that lies in the scanner. */
    void add(RecordScanner row, BadRow bad) {
        if (named.size() < NAMED) {
            named.add(path + ":" + row.line() + ": " + bad.getMessage());
        }
        count++;
        if (rejects != null) {
            rejects.add(row, bad);
        }
    }

    /** Ends a read: throws its report when there is something in it. */
    void report(String end) throws BadSamplesException {
        String lost = rejects == null ? "" : rejects.keep();
        if (count == 0) {
            return;
        }
        boolean brief = System.nanoTime() - full < 0;
        int shown = brief ? 1 : named.size();
        StringBuilder text = new StringBuilder(String.join("\n", named.subList(0, shown)));
        if (count > shown) {
            text.append("\nand ").append(count - shown).append(" more bad rows");
        }
        BadSamplesException report =
                new BadSamplesException(text.append(lost).append(end).toString(), count);
        full = brief ? full : System.nanoTime() + pauseNanos;
        named.clear();
        count = 0;
        throw report;
    }
}
