package com.qel.ferrion.kit;

import java.io.IOException;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;

/**
 * The bad rows that a reader has passed over and not yet reported. A report names the first of them
 * with place and reason, and counts them all. So that a dirty source does not fill the log, a
 * report that comes soon after another one names one row only.
 *
 * <p>Used on the host's thread, but for {@link #isDue}.
 */
public final class BadRows {
    /** The setting {@code on_bad_row}. */
    public static final Setting<OnBadRow> ON_BAD_ROW = Setting.choice("on_bad_row", OnBadRow.class,
            "whether to skip a row that is no sample of the type, or to stop reading there")
            .defaultTo(OnBadRow.SKIP).changeable();
    /** The setting {@code report}. */
    public static final Setting<Duration> REPORT = Setting.duration("report", Duration.ZERO,
            Duration.ofHours(1), "least time between two reports that name more than one bad row")
            .defaultTo(Duration.ofSeconds(1));

    private static final int NAMED = 10;

    private final RejectFile rejects;
    private final long pauseNanos;
    private final List<String> named = new ArrayList<>();
    /** How many rows each of the texts is about. */
    private final List<Long> rows = new ArrayList<>();
    /** Of the present read, for the host to set aside. */
    private final List<RejectedRecord> records = new ArrayList<>();
    /** What has happened to rows that were to be kept. */
    private String lost = "";
    private volatile long count;
    private volatile long next = System.nanoTime();

    /** What to do about a row that is no sample. */
    public enum OnBadRow {
        /** Pass over it. */
        SKIP,
        /** Read nothing more. */
        STOP
    }

    /**
     * @param pause least time between two reports that name several rows
     * @param rejects where rows are kept that come with their content; the caller's to close, null
     *     for nowhere
     */
    public BadRows(Duration pause, RejectFile rejects) {
        this.pauseNanos = pause.toNanos();
        this.rejects = rejects;
    }

    /**
     * Notes a row.
     *
     * @param place where it is, for people: "data/f.csv:4"
     * @param bad what is wrong with it
     */
    public void add(String place, BadRow bad) {
        add(named.size() < NAMED ? place + ": " + bad.getMessage() : "", 1);
    }

    /**
     * Notes a row that the host is to set aside. It is in memory until the read reports it, which
     * it then does at once: count its bytes against the limit of the read.
     *
     * @param raw the row as it stands in the source; it is kept
     */
    public void add(String place, BadRow bad, byte[] raw) {
        add(place, bad);
        records.add(new RejectedRecord(raw, bad.getMessage(), place));
    }

    /**
     * Notes a row, and keeps it in the file for rejected rows, not with the host.
     *
     * @param content the row, as {@link RejectFile#add} takes it
     */
    public void add(String place, BadRow bad, Map<String, ?> content) {
        add(place, bad);
        rejects.add(place, bad, content);
        if (rejects.isLong()) {
            keep();
        }
    }

    /**
     * Notes rows that have one reason.
     *
     * @param text which, and why
     * @param number how many
     */
    public void add(String text, long number) {
        if (named.size() < NAMED) {
            named.add(text);
            rows.add(number);
        }
        count = count + number;
    }

    private void keep() {
        try {
            rejects.keep(false);
        } catch (IOException e) {
            lost = "\n" + rejects + " cannot be written: " + e;
            rejects.clear();
        }
    }

    /** @return whether there is something to report and the time for it has come; any thread */
    public boolean isDue() {
        return count > 0 && System.nanoTime() - next >= 0;
    }

    /**
     * Ends a read: puts what is kept into its file, and reports what there is to report.
     *
     * @param now whether to report although it is not time for that; such a report names one row.
     *     A read that has rows for the host always does
     * @param end what the text ends with: "; reading stops here"
     * @throws BadSamplesException the report
     */
    public void report(boolean now, String end) throws BadSamplesException {
        if (rejects != null) {
            keep();
        }
        boolean due = isDue();
        if (due || (now && count > 0) || !records.isEmpty()) {
            next = due ? System.nanoTime() + pauseNanos : next;
            long all = count;
            List<RejectedRecord> those = List.copyOf(records);
            throw new BadSamplesException(take(due ? NAMED : 1) + end, all, those);
        }
    }

    /** @return what has not been reported; empty when that is nothing. It counts as reported. */
    public String take() {
        return take(NAMED);
    }

    private String take(int most) {
        int shown = Math.min(most, named.size());
        long left = count - rows.subList(0, shown).stream().mapToLong(Long::longValue).sum();
        String text = String.join("\n", named.subList(0, shown))
                + (left > 0 ? "\nand " + left + " more bad rows" : "") + lost;
        named.clear();
        rows.clear();
        records.clear();
        lost = "";
        count = 0;
        return text;
    }
}
