package com.qel.ferrion.adapter;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.util.List;

/** A sink of samples. The host calls a writer on one thread at a time. */
public interface StreamWriter extends Entity {
    /**
     * Takes a batch of samples, in the order in which the host had them.
     *
     * <p><b>Keep nothing:</b> both lists and every object in them belong to the host and are filled
     * with other content by the next call. Copy what has to outlive this one.
     *
     * @param samples {@code com.qel.dds.dynamicdata.DynamicData} objects of the stream's type. An
     *     element is null where the sample could not be copied, or where the host had none
     * @param infos {@code com.qel.dds.subscription.SampleInfo} objects, one for every sample, or an
     *     empty list when the host knows nothing about the samples. An element may be null. Where
     *     {@code valid_data} is false the sample carries nothing but its key: the instance was
     *     disposed or has lost its writers, {@code instance_state} says which
     * @return how many samples were written. The host adds the numbers of its batches up and tells
     *     its user when some are missing
     * @throws AdapterException reported as "write"; counts as none written of this batch
     */
    int write(List<Object> samples, List<Object> infos) throws AdapterException;
}
