package com.qel.ferrion.adapter.infrastructure;

import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.StreamReaderListener;
import java.util.ArrayList;
import java.util.List;

/**
 * A reader that cannot signal too late. Extend it, call {@link #signal} from any thread, and call
 * {@link #close} in {@code deleteStreamReader} before it returns.
 */
public abstract class StreamReaderBase implements StreamReader {
    private final StreamReaderListener listener;
    private final Object lock = new Object();
    /** Guarded by lock: threads inside of the listener, once for every call they are in. */
    private final List<Thread> signalling = new ArrayList<>(4);
    /** Guarded by lock: those of them that called close, and so do not wait for each other. */
    private final List<Thread> closing = new ArrayList<>();
    /** Guarded by lock. */
    private boolean closed;

    /**
     * @param listener the one that the reader was made with; with null, which the host passes when
     *     it could not make one, the reader never signals
     */
    protected StreamReaderBase(StreamReaderListener listener) {
        this.listener = listener;
    }

    /**
     * Signals the host that there is something to read. Any thread; no lock is held while the
     * listener runs, so signals of several threads do not wait for each other.
     *
     * @return false when the reader has been closed or has no listener: nobody was told
     */
    protected final boolean signal() {
        Thread self = Thread.currentThread();
        synchronized (lock) {
            if (closed || listener == null) {
                return false;
            }
            signalling.add(self);
        }
        try {
            listener.onDataAvailable(this);
        } finally {
            synchronized (lock) {
                signalling.remove(self);
                if (closed) {
                    lock.notifyAll();
                }
            }
        }
        return true;
    }

    /**
     * Ends signalling: when this method has returned no signal is under way and none will be made.
     * Waits, without heeding interrupts, until other threads are out of the listener. May be called
     * more than once.
     *
     * <p>Called from inside of a signal it waits neither for its own thread nor for others that do
     * the same: that ends signalling, but only a close from outside means that all are out.
     */
    public final void close() {
        Thread self = Thread.currentThread();
        boolean interrupted = false;
        synchronized (lock) {
            closed = true;
            boolean inside = signalling.contains(self);
            if (inside) {
                closing.add(self);
                lock.notifyAll();
            }
            while (inside ? !closing.containsAll(signalling) : !signalling.isEmpty()) {
                try {
                    lock.wait();
                } catch (InterruptedException e) {
                    interrupted = true;
                }
            }
        }
        if (interrupted) {
            self.interrupt();
        }
    }
}
