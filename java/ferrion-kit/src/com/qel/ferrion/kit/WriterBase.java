package com.qel.ferrion.kit;

import com.qel.ferrion.adapter.StreamWriter;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.util.List;
import java.util.Properties;

/** A writer to build on; {@link AdapterBase} says what that brings. */
public abstract class WriterBase implements StreamWriter {
    private final Guard guard;

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

    /** Ends the writer: flush and close here. */
    protected void release() throws Exception {}

    /** @return the settings */
    protected final Settings settings() {
        return guard.settings();
    }

    @Override
    public final int write(List<Object> samples, List<Object> infos) throws AdapterException {
        ClassLoader before = guard.enter();
        try {
            return store(samples, infos);
        } catch (Throwable thrown) {
            throw guard.report("write", thrown);
        } finally {
            guard.leave(before);
        }
    }

    @Override
    public final void update(Properties properties) throws AdapterException {
        guard.update(properties, this::changed);
    }

    final void end() {
        guard.end("deleteStreamWriter", this::release);
    }
}
