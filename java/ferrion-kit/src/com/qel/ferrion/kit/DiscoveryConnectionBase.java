package com.qel.ferrion.kit;

import com.qel.ferrion.adapter.DiscoveryConnection;
import com.qel.ferrion.adapter.StreamReaderListener;
import com.qel.ferrion.adapter.infrastructure.DiscoveryReader;

/** A connection that announces streams, from {@link #opened} or {@link #inputsWanted} on. */
public abstract class DiscoveryConnectionBase extends ConnectionBase
        implements DiscoveryConnection {
    private DiscoveryReader inputs;
    private DiscoveryReader outputs;
    private boolean wanted;

    /**
     * Called once, when somebody asks for the reader of streams that can be read: the place to look
     * for them, if nobody may ever ask.
     */
    protected void inputsWanted() throws Exception {}

    @Override
    final void attach(Guard guard, AdapterSettings declared, StreamReaderListener outputListener,
            StreamReaderListener inputListener) throws Exception {
        inputs = new DiscoveryReader(inputListener);
        outputs = new DiscoveryReader(outputListener);
        try {
            super.attach(guard, declared, outputListener, inputListener);
        } catch (Throwable failure) {
            closeBoth();
            throw failure;
        }
    }

    @Override
    final void end() {
        try {
            super.end();
        } finally {
            closeBoth();
        }
    }

    /** However the adapter's own part ends: no signal may come after it. */
    private void closeBoth() {
        inputs.close();
        outputs.close();
    }

    /** Announces streams that can be read. */
    @Override
    public final DiscoveryReader getInputStreamDiscoveryReader() {
        if (!wanted) {
            wanted = true;
            guard().end("getInputStreamDiscoveryReader", this::inputsWanted);
        }
        return inputs;
    }

    /** Announces streams that can be written. */
    @Override
    public final DiscoveryReader getOutputStreamDiscoveryReader() {
        return outputs;
    }
}
