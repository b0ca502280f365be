package com.qel.ferrion.adapters.sql;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.BadRow;
import com.qel.ferrion.kit.BadRows;
import com.qel.ferrion.kit.SamplePool;
import java.nio.charset.StandardCharsets;
import java.sql.ResultSet;
import java.sql.SQLException;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;

/** What one attempt at a read has brought. */
final class Batch {
    /** When, by the clock that only goes forward. */
    final long began = System.nanoTime();
    /** Whose rows these are. */
    final Sequence sequence;
    private final Query query;
    private final SamplePool pool;
    private final boolean nulls;
    private final boolean stopAtBad;
    private final boolean measured;
    /** Of the pool's samples, in their order: whether the row reports its instance's end. */
    private final List<Boolean> ended = new ArrayList<>();
    private final List<String> badPlaces = new ArrayList<>();
    private final List<BadRow> bad = new ArrayList<>();
    private final List<byte[]> badRows = new ArrayList<>();
    private int looked;
    private long bytes;
    private boolean stopped;
    private boolean more;
    private List<Object> last;

    /**
     * @param nulls whether NULL stands for a member's default
     * @param stopAtBad whether a bad row is not passed over
     */
    Batch(Sequence sequence, Query query, SamplePool pool, boolean nulls, boolean stopAtBad) {
        this.sequence = sequence;
        this.measured = query.measured && query.unique;
        this.query = query;
        this.pool = pool;
        this.nulls = nulls;
        this.stopAtBad = stopAtBad;
    }

    /** Adds rows up to limits, or all that there are. */
    void addAll(ResultSet rows, int most, long mostBytes) throws SQLException {
        while (looked < most && bytes < mostBytes && !stopped && rows.next()) {
            add(rows);
        }
        if (looked > 0 && last == null) {
            last = query.lastPosition();
        }
    }

    private void add(ResultSet row) throws SQLException {
        int count = ended.size();
        DynamicData data = pool.get(count);
        data.clear();
        long size = 0;
        boolean isWhole = false;
        try {
            boolean isEnd = query.isDeleted(row);
            for (int i = 0; i < query.cells.size(); i++) {
                Cell cell = query.cells.get(i);
                if (!isEnd || cell.field.key) {
                    size += cell.read(row, i + 1, data, nulls);
                }
            }
            ended.add(isEnd);
            isWhole = !isEnd;
        } catch (BadRow e) {
            badPlaces.add(query.table.source + ", row "
                    + BadRow.shortened(describe(query.position(row))));
            bad.add(e);
            if (stopAtBad) {
                stopped = true;
                return;
            }
            badRows.add(query.text(row).getBytes(StandardCharsets.UTF_8));
        }
        bytes = measured ? query.bytes(row) : bytes + size;
        // What cells remember is this row's only until the next one; a bad one may be the end.
        boolean late = isWhole && !stopAtBad && query.remembersPosition();
        last = late ? null : query.position(row);
        looked++;
    }

    private String describe(List<Object> values) {
        List<String> texts = new ArrayList<>();
        for (int i = 0; i < values.size(); i++) {
            Object value = values.get(i);
            texts.add(query.order.get(i) + "=" + (value instanceof byte[]
                    ? Arrays.toString((byte[]) value) : value));
        }
        return String.join(", ", texts);
    }

    /** How many samples of the pool have been filled. */
    int count() {
        return ended.size();
    }

    boolean isEnd(int index) {
        return ended.get(index);
    }

    /** How many rows were taken, bad ones as well. */
    int looked() {
        return looked;
    }

    long bytes() {
        return bytes;
    }

    /** Whether there were no rows. */
    boolean isEmpty() {
        return looked == 0 && !stopped;
    }

    /** @param left whether rows may be left that are to be read behind these */
    void end(boolean left) {
        more = left;
    }

    /** Whether rows may be left that can be read. */
    boolean hasMore() {
        return more && !stopped;
    }

    /** Whether a bad row is in the way. */
    boolean isStopped() {
        return stopped;
    }

    /** Notes the rows that are no samples. */
    void report(BadRows rows) {
        for (int i = 0; i < bad.size(); i++) {
            if (i < badRows.size()) {
                rows.add(badPlaces.get(i), bad.get(i), badRows.get(i));
            } else {
                rows.add(badPlaces.get(i), bad.get(i)); // It stays in the way.
            }
        }
    }

    /** Moves the sequence behind the rows, if there were any. */
    void acknowledge() throws AdapterException {
        if (last != null) {
            sequence.moveTo(last, query.order);
        }
    }

    /** The position of the last row taken; null when there was none. */
    List<Object> last() {
        return last;
    }
}
