package com.qel.ferrion.kit;

import java.util.Set;
import java.util.concurrent.ConcurrentHashMap;

/**
 * A host's word to writers that it is going to stop, so that a write that waits does not have to be
 * left behind. For hosts; {@link WriterBase#stopping} is what an adapter sees of it. Any thread.
 */
public final class StopRequest {
    /** Those that exist, of all adapters. */
    private static final Set<WriterBase> WRITERS = ConcurrentHashMap.newKeySet();

    private StopRequest() {}

    static void add(WriterBase writer) {
        WRITERS.add(writer);
    }

    static void remove(WriterBase writer) {
        WRITERS.remove(writer);
    }

    /** Calls {@link WriterBase#stopping} of every writer, one after the other. */
    public static void announce() {
        WRITERS.forEach(WriterBase::announceStop);
    }

    /** Interrupts every thread that is inside of a writer's {@code write}. */
    public static void interrupt() {
        WRITERS.forEach(WriterBase::interruptWrite);
    }
}
