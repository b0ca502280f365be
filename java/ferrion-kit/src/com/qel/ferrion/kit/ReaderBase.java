package com.qel.ferrion.kit;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.subscription.SampleInfo;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.StreamReaderBase;
import java.util.List;
import java.util.Objects;
import java.util.Properties;

/** A reader to build on; {@link AdapterBase} says what that brings. */
public abstract class ReaderBase extends StreamReaderBase {
    private final Guard guard;
    private volatile Throwable lost;

    /**
     * @param stream what {@link ConnectionBase#openReader} was given
     */
    protected ReaderBase(ConnectionBase.Stream stream) {
        super(stream.listener);
        guard = stream.guard;
    }

    /**
     * Adds what there is, without waiting, as {@link
     * com.qel.ferrion.adapter.StreamReader#read} says. {@link BatchLimit} says how much. An object
     * of a wrong class, which would end the process, is taken out again and reported as a failure.
     *
     * @throws BadSamplesException for rows that had to be passed over, when everything good has
     *     been added
     */
    protected abstract void fill(List<Object> samples, List<Object> infos) throws Exception;

    /**
     * Reports that the source has failed, as a thread of the adapter's own finds out: a lost
     * connection, a queue that was deleted. The host is signalled, and every read from now on fails
     * with the cause behind what {@link #fill} adds, so that the route shows it and counts it as an
     * error, until {@link #recovered}. Any thread.
     *
     * @param cause not null
     */
    protected final void fail(Throwable cause) {
        lost = Objects.requireNonNull(cause);
        signal();
    }

    /** The source works again after {@link #fail}. Any thread; {@link #fill} may call it. */
    protected final void recovered() {
        lost = null;
    }

    /** The host has done with what {@link #fill} added. */
    protected void returned(List<Object> samples, List<Object> infos) throws Exception {}

    /**
     * Tries whether a first read would succeed, and leaves nothing behind. Called last in the
     * creation when the host only checks its configuration; a throw is the creation's failure, upon
     * which {@link #release} is called.
     */
    protected void probe() throws Exception {}

    /** Takes over new settings; a throw leaves the old ones. */
    protected void changed(Settings settings) throws Exception {}

    /** Ends the reader; signals come to nothing by now. */
    protected void release() throws Exception {}

    /** @return the settings */
    protected final Settings settings() {
        return guard.settings();
    }

    @Override
    public final void read(List<Object> samples, List<Object> infos) throws AdapterException {
        ClassLoader before = guard.enter();
        Throwable failure = null;
        try {
            fill(samples, infos);
        } catch (Throwable thrown) {
            failure = thrown;
        } finally {
            guard.leave(before);
        }
        failure = takeOut(samples, DynamicData.class, failure);
        failure = takeOut(infos, SampleInfo.class, failure);
        failure = failure != null ? failure : lost;
        if (failure != null) {
            throw guard.report("read", failure);
        }
    }

    /** What a failed read had added before is delivered, so it has to be right, too. */
    private static Throwable takeOut(List<Object> lent, Class<?> right, Throwable failure) {
        Throwable first = failure;
        for (int i = 0; i < lent.size(); i++) {
            Object object = lent.get(i);
            if (object != null && !right.isInstance(object)) {
                lent.set(i, null);
                first = first != null ? first : new ClassCastException("element " + i
                        + " of a read is a " + object.getClass().getName() + ", not a "
                        + right.getSimpleName());
            }
        }
        return first;
    }

    @Override
    public final void returnLoan(List<Object> samples, List<Object> infos)
            throws AdapterException {
        ClassLoader before = guard.enter();
        try {
            returned(samples, infos);
        } catch (Throwable thrown) {
            throw guard.report("returnLoan", thrown);
        } finally {
            guard.leave(before);
        }
    }

    @Override
    public final void update(Properties properties) throws AdapterException {
        guard.update(properties, this::changed);
    }

    final void end() {
        guard.end("deleteStreamReader", this::finish);
    }

    /** No signal comes any more, then nothing does. */
    final void finish() throws Exception {
        close();
        release();
    }
}
