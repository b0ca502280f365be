package com.qel.ferrion.adapters.file;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.concurrent.TimeUnit;

/**
 * The bad rows that the host has not been told of yet. Used on the host's thread, but for {@link
 * #isDue}.
 *
 * <p>A report is an exception, and hosts slow down a stream that fails again and again. So the
 * first bad row is reported at once, and those of the time after it together.
 */
final class BadRows {
    private static final int NAMED = 10;

    private final Path path;
    private final Path rejects;
    private final long pauseNanos;
    private final List<String> named = new ArrayList<>();
    private volatile long count;
    private volatile long nextReport = System.nanoTime();
    private String lost = "";

    /**
     * @param rejects where bad rows are kept as they are, or null
     * @param pauseMillis between two reports
     */
    BadRows(Path path, Path rejects, long pauseMillis) {
        this.path = path;
        this.rejects = rejects;
        this.pauseNanos = TimeUnit.MILLISECONDS.toNanos(pauseMillis);
    }

    /** Notes the row that lies in the scanner. */
    void add(RecordScanner row, String reason) {
        if (named.size() < NAMED) {
            named.add(path + ":" + row.line() + ": " + reason);
        }
        count = count + 1;
        if (rejects != null) {
            byte[] raw = row.raw();
            byte[] line = Arrays.copyOf(raw, raw.length + 1);
            line[raw.length] = '\n';
            try {
                Files.write(rejects, line, StandardOpenOption.CREATE, StandardOpenOption.APPEND);
            } catch (IOException e) {
                lost = "\n" + rejects + " cannot be written: " + e;
            }
        }
    }

    /** Whether there is something to report and the time for it has come. Any thread. */
    boolean isDue() {
        return count > 0 && System.nanoTime() - nextReport >= 0;
    }

    /** Throws the report when there is something in it and it is due, or wanted now. */
    void report(boolean now, String end) throws AdapterException {
        if (isDue() || (now && count > 0)) {
            nextReport = System.nanoTime() + pauseNanos;
            throw new AdapterException(take() + end);
        }
    }

    /** What has not been reported, as a text that is empty when nothing is left. */
    String take() {
        String text = String.join("\n", named);
        if (count > named.size()) {
            text += "\nand " + (count - named.size()) + " more bad rows";
        }
        text += lost;
        named.clear();
        count = 0;
        lost = "";
        return text;
    }
}
