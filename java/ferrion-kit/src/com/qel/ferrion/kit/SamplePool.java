package com.qel.ferrion.kit;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.TypeCode;
import java.util.ArrayList;
import java.util.List;

/**
 * The samples that a reader lends, used again read by read. A steady reader makes no new ones. What
 * a large sample took is given back when a later read has no use for it. For one thread at a time.
 */
public final class SamplePool {
    private final List<DynamicData> samples = new ArrayList<>();
    private final TypeCode type;
    /** Samples from here to {@link #touched} may hold more memory than an empty one. */
    private int used;
    private int touched;

    /**
     * @param type of the samples: a struct
     */
    public SamplePool(TypeCode type) {
        this.type = type;
    }

    /**
     * @param index of a sample within its read: at most one more than the highest so far
     * @return the pool's sample for it, which holds whatever it held before
     */
    public DynamicData get(int index) {
        if (index == samples.size()) {
            samples.add(new DynamicData(type, DynamicData.PROPERTY_DEFAULT));
        }
        used = Math.max(used, index + 1);
        return samples.get(index);
    }

    /** Ends a read: call this when its loan comes back. */
    public void returned() {
        for (int i = used; i < touched; i++) {
            samples.get(i).clear();
            samples.get(i).trim();
        }
        touched = used;
        used = 0;
    }

    /** Forgets all samples: memory is scarce. The next read makes new ones. */
    public void release() {
        samples.clear();
        used = 0;
        touched = 0;
    }
}
