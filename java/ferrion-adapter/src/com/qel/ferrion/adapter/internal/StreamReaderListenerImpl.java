package com.qel.ferrion.adapter.internal;

import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.StreamReaderListener;
import java.util.Objects;

/**
 * The listener that readers are given: it carries the address of a native record and passes signals
 * on to it. The bridge makes one for every reader; nobody else can.
 *
 * <p>Before it frees the record the bridge runs the constructor on this object once more, with 0:
 * from then on signals come to nothing. The monitor keeps the record alive while a signal is under
 * way.
 */
public final class StreamReaderListenerImpl implements StreamReaderListener {
    // Guarded by this, also in the constructor, which runs a second time.
    private long address;

    /**
     * Called by the bridge.
     *
     * @param address of the native record, owned by the bridge; 0 when it goes
     */
    public StreamReaderListenerImpl(long address) {
        synchronized (this) {
            this.address = address;
        }
    }

    /**
     * {@inheritDoc}
     *
     * @throws UnsatisfiedLinkError when the bridge's library cannot be found; its text names what
     *     was tried
     */
    @Override
    public synchronized void onDataAvailable(StreamReader reader) {
        Objects.requireNonNull(reader, "a signal needs the reader that has data; it is null");
        if (address == 0) {
            return;
        }
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
