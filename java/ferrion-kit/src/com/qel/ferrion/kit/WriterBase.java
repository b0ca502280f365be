package com.qel.ferrion.kit;

import com.qel.ferrion.adapter.StreamWriter;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.util.List;
import java.util.Properties;

/** A writer to build on; {@link AdapterBase} says what that brings. */
public abstract class WriterBase implements StreamWriter {
    private final Guard guard;
    private final Object lock = new Object();
    /** Guarded by lock: the thread that is inside of a write. */
    private Thread writing;
    /** Guarded by lock: its interrupt flag is ours. */
    private boolean interrupted;

    /**
     * @param stream what {@link ConnectionBase#openWriter} was given
     */
    protected WriterBase(ConnectionBase.Stream stream) {
        guard = stream.guard;
    }

    /**
     * Takes a batch as {@link StreamWriter#write} says. {@link Sample#copies} keeps what has to
     * outlive the call.
     *
     * <p>What a host does when not all was written depends on what the adapter {@linkplain
     * AdapterSettings#delivers declares}. Any other exception than the one below stands for a
     * failure of the place: the host writes the whole batch again, so it should have taken nothing.
     *
     * @return how many were written; with {@link Delivery#COUNTS_PREFIX} the first so many
     * @throws RejectedSampleException if a sample cannot be written for what is in it
     */
    protected abstract int store(List<Object> samples, List<Object> infos) throws Exception;

    /**
     * Tries whether a first write would succeed, and leaves nothing behind. Called last in the
     * creation when the host only checks its configuration; a throw is the creation's failure, upon
     * which {@link #release} is called.
     */
    protected void probe() throws Exception {}

    /** Takes over new settings; a throw leaves the old ones. */
    protected void changed(Settings settings) throws Exception {}

    /**
     * The host is going to stop, and waits for the write that is under way, if there is one: give
     * up what is tried again and again, and throw. Called once, on a thread of the host's, while
     * {@link #store} may run; returns at once. If half of the host's time to stop has gone, the
     * thread inside of {@link #store} is interrupted. A write that does not return in that time is
     * left behind.
     */
    protected void stopping() throws Exception {}

    /** Ends the writer: flush and close here. */
    protected void release() throws Exception {}

    /** @return the settings */
    protected final Settings settings() {
        return guard.settings();
    }

    @Override
    public final int write(List<Object> samples, List<Object> infos) throws AdapterException {
        ClassLoader before = guard.enter();
        synchronized (lock) {
            writing = Thread.currentThread();
        }
        try {
            return store(samples, infos);
        } catch (Throwable thrown) {
            throw guard.report("write", thrown);
        } finally {
            endWrite();
            guard.leave(before);
        }
    }

    /** The flag must not outlive the write: the thread goes on with other objects. */
    private void endWrite() {
        synchronized (lock) {
            writing = null;
            if (interrupted) {
                interrupted = false;
                Thread.interrupted();
            }
        }
    }

    final void interruptWrite() {
        synchronized (lock) {
            if (writing != null) {
                interrupted = true;
                writing.interrupt();
            }
        }
    }

    final void announceStop() {
        try {
            guard.call("stopping", () -> {
                stopping();
                return null;
            });
        } catch (AdapterException | RuntimeException | Error thrown) {
            // It has been logged, and the other writers are to hear of the stop, too.
        }
    }

    @Override
    public final void update(Properties properties) throws AdapterException {
        guard.update(properties, this::changed);
    }

    final void end() {
        StopRequest.remove(this);
        guard.end("deleteStreamWriter", this::release);
    }
}
