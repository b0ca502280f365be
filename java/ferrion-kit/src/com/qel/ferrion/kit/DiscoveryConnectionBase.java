package com.qel.ferrion.kit;

import com.qel.ferrion.adapter.DiscoveryConnection;
import com.qel.ferrion.adapter.StreamReaderListener;
import com.qel.ferrion.adapter.infrastructure.DiscoveryReader;

/** A connection that announces streams, from {@link #opened} on. */
public abstract class DiscoveryConnectionBase extends ConnectionBase
        implements DiscoveryConnection {
    private DiscoveryReader inputs;
    private DiscoveryReader outputs;

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
        return inputs;
    }

    /** Announces streams that can be written. */
    @Override
    public final DiscoveryReader getOutputStreamDiscoveryReader() {
        return outputs;
    }
}
