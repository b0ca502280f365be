package com.qel.dds.subscription;

import com.qel.dds.InstanceHandle_t;
import com.qel.dds.Time_t;
import com.qel.dds.internal.NativeLibrary;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.Arrays;

/**
 * Copies sample infos between Java objects and native records, through a buffer that every thread
 * has for itself: native code moves it as a whole, Java code its fields.
 */
public final class SampleInfoHelper {
    /** Where the fields of the native record are, in the order of the fields; then its size. */
    private static final int SAMPLE_STATE = 0;
    private static final int VIEW_STATE = 4;
    private static final int INSTANCE_STATE = 8;
    private static final int VALID_DATA = 12;
    private static final int SOURCE_TIMESTAMP = 16;
    private static final int RECEPTION_TIMESTAMP = 24;
    private static final int INSTANCE_HANDLE = 32;
    private static final int PUBLICATION_HANDLE = 56;
    private static final int DISPOSED_GENERATION_COUNT = 80;
    private static final int NO_WRITERS_GENERATION_COUNT = 84;
    private static final int SAMPLE_RANK = 88;
    private static final int GENERATION_RANK = 92;
    private static final int ABSOLUTE_GENERATION_RANK = 96;
    private static final int SEQUENCE_NUMBER_HIGH = 100;
    private static final int SEQUENCE_NUMBER_LOW = 104;
    private static final int SIZE = 108;

    /** Within a time. */
    private static final int NANOSEC = 4;
    /** Within a handle. */
    private static final int LENGTH = 16;
    private static final int IS_VALID = 20;

    private static final ThreadLocal<Crossing> CROSSING = ThreadLocal.withInitial(Crossing::new);

    private SampleInfoHelper() {}

    /** A thread's buffer; native code knows it by its address. */
    private static final class Crossing {
        final ByteBuffer buffer;
        final long address;

        /** Looks whether both sides fit; not in a static block, whose failure is reported once. */
        Crossing() {
            NativeLibrary.require();
            requireSameLayout();
            buffer = ByteBuffer.allocateDirect(SIZE).order(ByteOrder.LITTLE_ENDIAN);
            address = addressOf(buffer);
        }
    }

    private static void requireSameLayout() {
        int[] expected = {SAMPLE_STATE, VIEW_STATE, INSTANCE_STATE, VALID_DATA, SOURCE_TIMESTAMP,
            RECEPTION_TIMESTAMP, INSTANCE_HANDLE, PUBLICATION_HANDLE, DISPOSED_GENERATION_COUNT,
            NO_WRITERS_GENERATION_COUNT, SAMPLE_RANK, GENERATION_RANK, ABSOLUTE_GENERATION_RANK,
            SEQUENCE_NUMBER_HIGH, SEQUENCE_NUMBER_LOW, SIZE, NANOSEC, LENGTH, IS_VALID};
        int[] found = layout();
        if (!Arrays.equals(expected, found)) {
            throw new UnsatisfiedLinkError("qdds.jar and its native library are of different "
                    + "versions: fields of DDS_SampleInfo are expected at "
                    + Arrays.toString(expected) + " but are at " + Arrays.toString(found));
        }
    }

    /**
     * Copies from Java to native. Called by native code.
     *
     * @param info not null
     * @param address of a native DDS_SampleInfo
     */
    public static void push_to_nativeI(SampleInfo info, long address) {
        requireBoth(info, address);
        Crossing crossing = CROSSING.get();
        write(info, crossing.buffer);
        store(address, crossing.address);
    }

    /**
     * Copies from native to Java. Called by native code.
     *
     * @param info not null
     * @param address of a native DDS_SampleInfo
     */
    public static void pull_from_nativeI(SampleInfo info, long address) {
        requireBoth(info, address);
        Crossing crossing = CROSSING.get();
        load(address, crossing.address);
        read(info, crossing.buffer);
    }

    private static void requireBoth(SampleInfo info, long address) {
        if (info == null) {
            throw new NullPointerException("the Java sample info is null");
        }
        if (address == 0) {
            throw new NullPointerException("the native sample info is null");
        }
    }

    private static void write(SampleInfo info, ByteBuffer out) {
        out.putInt(SAMPLE_STATE, info.sample_state);
        out.putInt(VIEW_STATE, info.view_state);
        out.putInt(INSTANCE_STATE, info.instance_state);
        out.putInt(VALID_DATA, info.valid_data ? 1 : 0);
        write(info.source_timestamp, out, SOURCE_TIMESTAMP);
        write(info.reception_timestamp, out, RECEPTION_TIMESTAMP);
        write(info.instance_handle, out, INSTANCE_HANDLE);
        write(info.publication_handle, out, PUBLICATION_HANDLE);
        out.putInt(DISPOSED_GENERATION_COUNT, info.disposed_generation_count);
        out.putInt(NO_WRITERS_GENERATION_COUNT, info.no_writers_generation_count);
        out.putInt(SAMPLE_RANK, info.sample_rank);
        out.putInt(GENERATION_RANK, info.generation_rank);
        out.putInt(ABSOLUTE_GENERATION_RANK, info.absolute_generation_rank);
        out.putInt(SEQUENCE_NUMBER_HIGH, (int) (info.publication_sequence_number >>> 32));
        out.putInt(SEQUENCE_NUMBER_LOW, (int) info.publication_sequence_number);
    }

    private static void write(Time_t time, ByteBuffer out, int at) {
        out.putInt(at, time.sec);
        out.putInt(at + NANOSEC, time.nanosec);
    }

    private static void write(InstanceHandle_t handle, ByteBuffer out, int at) {
        out.put(at, handle.keyHash);
        out.putInt(at + LENGTH, handle.length);
        out.putInt(at + IS_VALID, handle.isValid ? 1 : 0);
    }

    private static void read(SampleInfo info, ByteBuffer in) {
        info.sample_state = in.getInt(SAMPLE_STATE);
        info.view_state = in.getInt(VIEW_STATE);
        info.instance_state = in.getInt(INSTANCE_STATE);
        info.valid_data = in.getInt(VALID_DATA) != 0;
        read(info.source_timestamp, in, SOURCE_TIMESTAMP);
        read(info.reception_timestamp, in, RECEPTION_TIMESTAMP);
        read(info.instance_handle, in, INSTANCE_HANDLE);
        read(info.publication_handle, in, PUBLICATION_HANDLE);
        info.disposed_generation_count = in.getInt(DISPOSED_GENERATION_COUNT);
        info.no_writers_generation_count = in.getInt(NO_WRITERS_GENERATION_COUNT);
        info.sample_rank = in.getInt(SAMPLE_RANK);
        info.generation_rank = in.getInt(GENERATION_RANK);
        info.absolute_generation_rank = in.getInt(ABSOLUTE_GENERATION_RANK);
        info.publication_sequence_number = ((long) in.getInt(SEQUENCE_NUMBER_HIGH) << 32)
                | (in.getInt(SEQUENCE_NUMBER_LOW) & 0xFFFFFFFFL);
    }

    private static void read(Time_t time, ByteBuffer in, int at) {
        time.sec = in.getInt(at);
        time.nanosec = in.getInt(at + NANOSEC);
    }

    private static void read(InstanceHandle_t handle, ByteBuffer in, int at) {
        in.get(at, handle.keyHash);
        handle.length = in.getInt(at + LENGTH);
        handle.isValid = in.getInt(at + IS_VALID) != 0;
    }

    /** What the native library was compiled with, in the order of {@code expected} above. */
    private static native int[] layout();

    private static native long addressOf(ByteBuffer buffer);

    /** Copies the buffer to a native record. */
    private static native void store(long record, long buffer);

    /** Copies a native record to the buffer. */
    private static native void load(long record, long buffer);
}
