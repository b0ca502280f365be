package com.qel.ferrion.kit;

import com.qel.ferrion.kit.AdapterSettings.Role;

/**
 * What a reader or a writer guarantees of the samples that go through it. The host takes the return
 * of a loan as the acknowledgement, and makes the guarantee of a route of what its ends declare by
 * {@link AdapterSettings#delivers}.
 */
public enum Delivery {
    /**
     * A reader: what was lent and not returned is lent again by a reader that is made anew with the
     * same properties, also by one in a new process. What was returned may be lent again, too.
     */
    REPEATS(Role.READER, 0x01),
    /**
     * A writer: a count says that the first so many samples of the call were taken. Those behind
     * them are to be written again. {@link RejectedSampleException} is for writers that have this.
     */
    COUNTS_PREFIX(Role.WRITER, 0x02),
    /** A writer: a write that fails or counts short took nothing, whatever its count says. */
    TAKES_NOTHING(Role.WRITER, 0x04),
    /** A writer: samples that are written again, in their order, change nothing. */
    IDEMPOTENT(Role.WRITER, 0x08),
    /**
     * A writer: it keeps the publication_sequence_number of the last sample together with the
     * samples, in one transaction, and counts samples as taken that are not above it, without
     * writing them. A sample whose number is below zero is written whatever was written before, and
     * its number is not kept. A sample without a number is rejected.
     */
    ONCE(Role.WRITER, 0x10),
    /**
     * A reader: the publication_sequence_number of its samples rises as long as they have one
     * publication_handle, and a sample that is lent again has the two that it had before. A store
     * then leaves out what it has had. A sample without a number, 0, is never left out.
     */
    NUMBERS(Role.READER, 0x20);

    private final Role role;
    private final int bit;

    Delivery(Role role, int bit) {
        this.role = role;
        this.bit = bit;
    }

    /** @return who can declare it */
    public Role role() {
        return role;
    }

    /** @return the host's number for it */
    public int bit() {
        return bit;
    }
}
