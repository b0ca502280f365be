package com.qel.ferrion.kit;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.util.List;

/**
 * Thrown out of a read that had to pass over rows which are no samples of the stream's type. The
 * good samples of the read are in its lists all the same. The host counts the rows by {@link
 * #count}: report each row once, in the read that passed over it.
 */
public class BadSamplesException extends AdapterException {
    private static final long serialVersionUID = 1L;

    private final long count;
    private final transient List<RejectedRecord> records;

    /**
     * @param message for people: which rows, and what is wrong with them; some of many will do
     * @param count of all rows that this report is about; at least 1
     */
    public BadSamplesException(String message, long count) {
        this(message, count, List.of());
    }

    /**
     * @param message as of {@link #BadSamplesException(String, long)}
     * @param count as there
     * @param records of these rows those that the host is to set aside: all that nobody keeps
     *     elsewhere. They are in memory together, so a read that passes over large rows has to end
     *     as one that lends large samples does.
     */
    public BadSamplesException(String message, long count, List<RejectedRecord> records) {
        super(message);
        if (count < 1) {
            throw new IllegalArgumentException("a report about " + count + " rows");
        }
        this.count = count;
        this.records = List.copyOf(records);
    }

    /** @return what the host is to set aside */
    public final List<RejectedRecord> records() {
        return records == null ? List.of() : records;
    }

    /** @return how many rows were passed over; at least 1 */
    public final long count() {
        return count;
    }
}
