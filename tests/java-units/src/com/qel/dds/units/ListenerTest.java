package com.qel.dds.units;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import com.qel.ferrion.adapter.infrastructure.DiscoveryReader;
import com.qel.ferrion.adapter.internal.StreamReaderListenerImpl;
import org.junit.Test;

/** Runs with a stand-in for the bridge's library. */
public class ListenerTest {
    @Test
    public void signalsReachTheNativeMethodWithTheAddress() {
        long address = 0x7FFF_1234_5678_9AB0L;
        StreamReaderListenerImpl listener = new StreamReaderListenerImpl(address);
        listener.onDataAvailable(new DiscoveryReader(listener));
        new Peer(Peer.ALL).close(); // loads the library under its own name too
        assertEquals(address, Peer.lastSignal());
        assertTrue(assertThrows(NullPointerException.class, () -> listener.onDataAvailable(null))
                .getMessage().contains("reader"));
        assertEquals(address, Peer.lastSignal());
    }
}
