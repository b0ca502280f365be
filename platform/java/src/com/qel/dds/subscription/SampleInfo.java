package com.qel.dds.subscription;

import com.qel.dds.InstanceHandle_t;
import com.qel.dds.Time_t;

/**
 * What the middleware says about a sample beside its data. Mutable; for one thread at a time.
 *
 * <p>A new one describes an ordinary sample: alive, with data, not seen before, time unknown.
 */
public final class SampleInfo {
    /** Value of {@link #sample_state}: the sample has been read before. */
    public static final int READ_SAMPLE_STATE = 1;
    /** Value of {@link #sample_state}: the sample has not been read before. */
    public static final int NOT_READ_SAMPLE_STATE = 2;
    /** Value of {@link #view_state}: the first samples of an instance. */
    public static final int NEW_VIEW_STATE = 1;
    /** Value of {@link #view_state}: the instance was seen before. */
    public static final int NOT_NEW_VIEW_STATE = 2;
    /** Value of {@link #instance_state}: the instance lives. */
    public static final int ALIVE_INSTANCE_STATE = 1;
    /** Value of {@link #instance_state}: a writer has disposed the instance. */
    public static final int NOT_ALIVE_DISPOSED_INSTANCE_STATE = 2;
    /** Value of {@link #instance_state}: nobody writes the instance any more. */
    public static final int NOT_ALIVE_NO_WRITERS_INSTANCE_STATE = 4;

    /** Whether the sample was read before. */
    public int sample_state;
    /** Whether the instance was seen before. */
    public int view_state;
    /** Whether the instance lives. */
    public int instance_state;
    /** False when the sample only reports a change of state: then no more than its key counts. */
    public boolean valid_data;
    /** When the sample was written; never null. */
    public final Time_t source_timestamp = new Time_t();
    /** When the sample arrived; never null. */
    public final Time_t reception_timestamp = new Time_t();
    /** The instance; never null. */
    public final InstanceHandle_t instance_handle = new InstanceHandle_t();
    /** The writer; never null. */
    public final InstanceHandle_t publication_handle = new InstanceHandle_t();
    /** How often the instance came to life again after a disposal. */
    public int disposed_generation_count;
    /** How often the instance came to life again after it had lost its writers. */
    public int no_writers_generation_count;
    /** Samples of the same instance that follow in the same batch. */
    public int sample_rank;
    /** Generations between this sample and the newest of its instance in the batch. */
    public int generation_rank;
    /** Generations between this sample and the newest of its instance at all. */
    public int absolute_generation_rank;
    /** The sample's number within its writer; 0 is unknown. */
    public long publication_sequence_number;

    /** Describes an ordinary sample. */
    public SampleInfo() {
        clear();
    }

    /** Makes this as a new one. */
    public void clear() {
        sample_state = NOT_READ_SAMPLE_STATE;
        view_state = NEW_VIEW_STATE;
        instance_state = ALIVE_INSTANCE_STATE;
        valid_data = true;
        source_timestamp.sec = Time_t.INVALID_SEC;
        source_timestamp.nanosec = 0;
        reception_timestamp.copyFrom(source_timestamp);
        instance_handle.clear();
        publication_handle.clear();
        disposed_generation_count = 0;
        no_writers_generation_count = 0;
        sample_rank = 0;
        generation_rank = 0;
        absolute_generation_rank = 0;
        publication_sequence_number = 0;
    }

    /** @param other whose content to take over */
    public void copyFrom(SampleInfo other) {
        sample_state = other.sample_state;
        view_state = other.view_state;
        instance_state = other.instance_state;
        valid_data = other.valid_data;
        source_timestamp.copyFrom(other.source_timestamp);
        reception_timestamp.copyFrom(other.reception_timestamp);
        instance_handle.copyFrom(other.instance_handle);
        publication_handle.copyFrom(other.publication_handle);
        disposed_generation_count = other.disposed_generation_count;
        no_writers_generation_count = other.no_writers_generation_count;
        sample_rank = other.sample_rank;
        generation_rank = other.generation_rank;
        absolute_generation_rank = other.absolute_generation_rank;
        publication_sequence_number = other.publication_sequence_number;
    }

    @Override
    public String toString() {
        return "SampleInfo{" + (valid_data ? "data" : "no data") + ", instance_state "
                + instance_state + ", instance " + instance_handle + ", written "
                + source_timestamp + ", number " + publication_sequence_number + "}";
    }
}
