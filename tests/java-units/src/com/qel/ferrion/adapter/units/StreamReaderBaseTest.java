package com.qel.ferrion.adapter.units;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertFalse;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import com.qel.ferrion.adapter.StreamReaderListener;
import com.qel.ferrion.adapter.infrastructure.StreamReaderBase;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.CyclicBarrier;
import java.util.concurrent.atomic.AtomicBoolean;
import java.util.concurrent.atomic.AtomicInteger;
import org.junit.Test;

/** Signals against close: a signal after close would run through freed native memory. */
public class StreamReaderBaseTest {
    private static final class Reader extends StreamReaderBase {
        Reader(StreamReaderListener listener) {
            super(listener);
        }

        boolean notifyHost() {
            return signal();
        }

        /** Signals from inside of read, as a reader with more data does. */
        @Override
        public void read(List<Object> samples, List<Object> infos) {
            signal();
        }

        @Override
        public void returnLoan(List<Object> samples, List<Object> infos) {}
    }

    @Test(timeout = 60000)
    public void noSignalIsUnderWayAfterClose() throws InterruptedException {
        for (int round = 0; round < 300; round++) {
            AtomicInteger signals = new AtomicInteger();
            AtomicBoolean freed = new AtomicBoolean();
            AtomicInteger late = new AtomicInteger();
            Reader reader = new Reader(source -> {
                Thread.yield();
                late.addAndGet(freed.get() ? 1 : 0);
                signals.incrementAndGet();
            });
            List<Thread> threads = new ArrayList<>();
            for (int i = 0; i < 3; i++) {
                threads.add(new Thread(() -> {
                    while (reader.notifyHost()) {
                        Thread.onSpinWait();
                    }
                }));
            }
            threads.forEach(Thread::start);
            while (signals.get() < round % 7) {
                Thread.onSpinWait();
            }
            reader.close();
            freed.set(true);
            for (Thread thread : threads) {
                thread.join();
            }
            assertEquals(0, late.get());
            assertFalse(reader.notifyHost());
        }
    }

    @Test(timeout = 20000)
    public void closeFromInsideOfSignalsDoesNotWaitForItself() throws Exception {
        CyclicBarrier bothInside = new CyclicBarrier(2);
        CountDownLatch closedInside = new CountDownLatch(2);
        CountDownLatch leave = new CountDownLatch(1);
        Reader[] reader = new Reader[1];
        reader[0] = new Reader(source -> {
            try {
                bothInside.await();
                reader[0].close();
                closedInside.countDown();
                leave.await();
            } catch (Exception e) {
                throw new AssertionError(e);
            }
        });
        for (int i = 0; i < 2; i++) {
            new Thread(() -> reader[0].notifyHost()).start();
        }
        closedInside.await();
        AtomicBoolean interruptKept = new AtomicBoolean();
        Thread outside = new Thread(() -> {
            reader[0].close();
            interruptKept.set(Thread.interrupted());
        });
        outside.start();
        outside.interrupt();
        outside.join(200);
        assertTrue("the signals are not out", outside.isAlive());
        leave.countDown();
        outside.join();
        assertTrue("the interrupt is kept for the caller", interruptKept.get());
        assertFalse(reader[0].notifyHost());
    }

    @Test(timeout = 20000)
    public void signalsNestAndSurviveAThrowingListener() throws InterruptedException {
        AtomicInteger signals = new AtomicInteger();
        Reader[] reader = new Reader[1];
        reader[0] = new Reader(source -> {
            if (signals.incrementAndGet() == 1) {
                reader[0].read(new ArrayList<>(), new ArrayList<>());
                throw new IllegalStateException("listener");
            }
        });
        assertThrows(IllegalStateException.class, reader[0]::notifyHost);
        assertEquals(2, signals.get());
        Thread closer = new Thread(reader[0]::close);
        closer.start();
        closer.join(); // would hang if the throw left the signal under way
        assertFalse(new Reader(null).notifyHost());
    }
}
