package com.qel.ferrion.adapter.internal;

import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.StreamReaderListener;
import java.util.Objects;

/**
 * The listener that readers are given: it carries the address of a native record and passes signals
 * on to it. The bridge makes one for every reader; nobody else can.
 *
 * <p>The record is freed right after the reader's deletion, and this object cannot know: a signal
 * made later runs through a stale address.
 */
public final class StreamReaderListenerImpl implements StreamReaderListener {
    private final long address;

    /**
     * Called by the bridge.
     *
     * @param address of the native record, owned by the bridge
     */
    public StreamReaderListenerImpl(long address) {
        this.address = address;
    }

    /**
     * {@inheritDoc}
     *
     * @throws UnsatisfiedLinkError when the bridge's library cannot be found; its text names what
     *     was tried
     */
    @Override
    public void onDataAvailable(StreamReader reader) {
        Objects.requireNonNull(reader, "a signal needs the reader that has data; it is null");
        String problem = BridgeLibrary.problem();
        if (problem == null) {
            QEL_FerrionStreamReaderListener_on_data_available(reader, address);
            return;
        }
        try {
            // A host that is linked with the bridge may have registered the method by itself.
            QEL_FerrionStreamReaderListener_on_data_available(reader, address);
        } catch (UnsatisfiedLinkError unbound) {
            UnsatisfiedLinkError error = new UnsatisfiedLinkError(problem);
            error.initCause(unbound);
            throw error;
        }
    }

    /** Bound by name to a function of the bridge's library. */
    private native void QEL_FerrionStreamReaderListener_on_data_available(
            StreamReader reader, long listener);
}
