package com.qel.ferrion.adapter.units;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertFalse;
import static org.junit.Assert.assertSame;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import com.qel.ferrion.adapter.infrastructure.DiscoveryReader;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import com.qel.ferrion.adapter.infrastructure.TypeInfo;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.atomic.AtomicInteger;
import org.junit.Test;

/** Announcements, as a host reads them. */
public class DiscoveryReaderTest {
    private static final TypeInfo TYPE = new TypeInfo("T", new Object());
    private final AtomicInteger signals = new AtomicInteger();
    private final DiscoveryReader reader =
            new DiscoveryReader(source -> signals.incrementAndGet());

    private List<Object> read() {
        List<Object> samples = new ArrayList<>();
        List<Object> infos = new ArrayList<>();
        reader.read(samples, infos);
        assertTrue(infos.isEmpty());
        reader.returnLoan(samples, infos);
        return samples;
    }

    private static String name(Object stream) {
        return ((StreamInfo) stream).getStreamName();
    }

    @Test
    public void disposalsFollowTheirAnnouncements() {
        assertFalse(reader.dispose("a"));
        reader.announce(new StreamInfo("a", TYPE, false));
        assertTrue(reader.dispose("a"));
        assertFalse(reader.dispose("a"));
        List<Object> streams = read();
        assertEquals(2, streams.size());
        StreamInfo gone = (StreamInfo) streams.get(1);
        assertEquals("[a: T, a: T, disposed]", streams.toString());
        assertSame(TYPE, gone.getTypeInfo());
        assertEquals(2, signals.get());
        reader.announce(new StreamInfo("b", TYPE, false));
        reader.announce(new StreamInfo("b", TYPE, true));
        assertFalse(reader.dispose("b"));
        assertEquals("[b: T, b: T, disposed]", read().toString());
        assertThrows(NullPointerException.class,
                () -> reader.announce(new StreamInfo(null, TYPE, false)));
        signals.set(2);
        for (int i = 0; i < 40; i++) {
            reader.announce(new StreamInfo("n" + i, TYPE, false));
        }
        assertEquals(32, read().size());
        assertEquals("more to read", 43, signals.get());
        assertEquals(8, read().size());
        assertEquals(43, signals.get());
    }

    @Test(timeout = 20000)
    public void noneIsLostBetweenThreads() throws InterruptedException {
        int each = 500;
        for (int t = 0; t < 4; t++) {
            String prefix = "t" + t + ".";
            new Thread(() -> {
                for (int i = 0; i < each; i++) {
                    reader.announce(new StreamInfo(prefix + i, TYPE, false));
                }
            }).start();
        }
        int[] next = new int[4];
        for (int seen = 0; seen < 4 * each;) {
            for (Object stream : read()) {
                int thread = name(stream).charAt(1) - '0';
                assertEquals("t" + thread + "." + next[thread]++, name(stream));
                seen++;
            }
        }
        reader.close();
        reader.announce(new StreamInfo("late", TYPE, false));
        assertEquals("readable without a signal", 1, read().size());
    }
}
