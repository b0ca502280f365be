package com.qel.dds.dynamicdata;

/** How a sample's buffer is sized. Immutable. */
public final class DynamicDataProperty_t {
    /** Bytes set aside at creation beyond what an all-default sample needs. */
    public final int buffer_initial_size;
    /** Most bytes a sample may take; 0 or less is no limit but that of the VM's arrays. */
    public final int buffer_max_size;

    /** No extra bytes, no limit. */
    public DynamicDataProperty_t() {
        this(0, 0);
    }

    /**
     * @param bufferInitialSize extra bytes, at least 0
     * @param bufferMaxSize most bytes, or 0
     * @throws IllegalArgumentException when the first is negative
     */
    public DynamicDataProperty_t(int bufferInitialSize, int bufferMaxSize) {
        if (bufferInitialSize < 0) {
            throw new IllegalArgumentException("buffer_initial_size is negative: "
                    + bufferInitialSize);
        }
        buffer_initial_size = bufferInitialSize;
        buffer_max_size = bufferMaxSize;
    }
}
