package com.qel.ferrion.kit;

import com.qel.ferrion.adapter.infrastructure.AdapterException;

/**
 * Thrown out of a write that has met a sample which cannot be written for what is in it: written
 * again it would fail again. The samples in front of it have been taken, those behind it have not
 * been tried. The host sets the sample aside and writes those behind it.
 *
 * <p>Not for failures of the place: a server that is away, a full disk, a lock. Those throw any
 * other exception, and the host writes the samples again. It carries no stack trace, because a
 * stream may hold many such samples.
 */
public class RejectedSampleException extends AdapterException {
    private static final long serialVersionUID = 1L;

    private final int taken;

    /**
     * @param message for people: which sample, and what is wrong with it
     * @param taken how many samples of the write were taken, all of them in front of the bad one
     */
    public RejectedSampleException(String message, int taken) {
        super(message);
        if (taken < 0) {
            throw new IllegalArgumentException("a write that took " + taken + " samples");
        }
        this.taken = taken;
    }

    /** @return the index of the bad sample in the write, which is how many were taken */
    public final int taken() {
        return taken;
    }

    @Override
    public final Throwable fillInStackTrace() {
        return this;
    }
}
