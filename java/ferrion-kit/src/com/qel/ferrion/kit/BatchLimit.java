package com.qel.ferrion.kit;

import com.qel.dds.dynamicdata.DynamicData;

/**
 * Where a read ends: with the sample that brings it to {@code batch} samples or to {@code
 * batch_bytes} bytes, whichever comes first. So a read has at least one sample, and exceeds the
 * bytes by at most one. A reader declares {@link #SAMPLES} and {@link #BYTES} among its settings
 * and makes a limit for each read:
 *
 * <pre>{@code
 * BatchLimit limit = new BatchLimit(settings());
 * while (!limit.isReached() && source.hasNext()) {
 *     DynamicData data = pool.get(samples.size());
 *     source.next(data);
 *     samples.add(data);
 *     limit.add(data);
 * }
 * }</pre>
 *
 * <p>For one thread at a time.
 */
public final class BatchLimit {
    /** The setting {@code batch}. */
    public static final Setting<Integer> SAMPLES = Setting.integer("batch", 1, 1 << 20,
            "most samples of one read").defaultTo(1024).changeable();
    /** The setting {@code batch_bytes}. */
    public static final Setting<Long> BYTES = Setting.bytes("batch_bytes", 1, 1 << 30,
            "bytes of samples at which a read ends, even if they are fewer than \"batch\"")
            .defaultTo(8L << 20).changeable();

    private int samplesLeft;
    private long bytesLeft;

    /**
     * @param settings of a reader that declares {@link #SAMPLES} and {@link #BYTES}
     */
    public BatchLimit(Settings settings) {
        samplesLeft = settings.get(SAMPLES);
        bytesLeft = settings.get(BYTES);
    }

    /** Counts a sample that the read lends. */
    public void add(DynamicData sample) {
        add(sample.size());
    }

    /** Counts whatever took the read so many bytes: a row that is no sample, for one. */
    public void add(long bytes) {
        samplesLeft--;
        bytesLeft -= bytes;
    }

    /** @return whether the read ends here */
    public boolean isReached() {
        return samplesLeft <= 0 || bytesLeft <= 0;
    }
}
