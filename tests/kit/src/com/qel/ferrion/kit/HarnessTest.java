package com.qel.ferrion.kit;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertFalse;
import static org.junit.Assert.assertThrows;
import static org.junit.Assert.assertTrue;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import com.qel.ferrion.kit.harness.TestHost;
import com.qel.ferrion.kit.harness.TestHost.Fault;
import java.io.IOException;
import java.time.Duration;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Iterator;
import java.util.List;
import java.util.concurrent.CopyOnWriteArrayList;
import java.util.concurrent.CountDownLatch;
import java.util.logging.LogRecord;
import java.util.logging.Logger;
import org.junit.Test;

public class HarnessTest {
    private static final TypeCode TYPE = TypeCode.fromIdl("struct P { long id; };", null);

    private final List<LogRecord> logged = new CopyOnWriteArrayList<>();
    private final Logger logger = Logger.getLogger(Echo.class.getPackageName());

    {
        logger.setFilter(entry -> {
            logged.add(entry);
            return false;
        });
    }

    private static DynamicData[] points(int count) {
        DynamicData[] points = new DynamicData[count];
        for (int i = 0; i < count; i++) {
            points[i] = new DynamicData(TYPE, null);
            points[i].setInt("id", i + 1);
        }
        return points;
    }

    /** Writes five samples in batches of two and reads them; "-" is a missing one. */
    private static String echo(TestHost.TestConnection connection) throws Exception {
        TestHost.Reader reader = connection.reader("s", TYPE, Check.PROPERTY, "true");
        int written = connection.writer("s", TYPE, "qel.ferrion.jni.max_samples_per_write", "2",
                Check.PROPERTY, "true").write(points(5));
        StringBuilder text = new StringBuilder(written + ":");
        for (Sample sample : reader.await(5, Duration.ofSeconds(5))) {
            text.append(sample.data() == null ? "-" : sample.data().getInt("id"));
        }
        return text.toString();
    }

    @Test
    public void whatTheHostDoesReachesTheAdapter() throws Exception {
        Object[][] cases = {{"5:12345"}, {"5:-2-4-", Fault.MISSING_SAMPLES},
            {"5:12345", Fault.NO_INFOS}, {"5:12345", Fault.INTERRUPTED},
            {"5:12345", Fault.NO_LISTENER}};
        for (Object[] one : cases) {
            try (TestHost host = new TestHost(Echo.class)) {
                if (one.length > 1) {
                    host.inject((Fault) one[1]);
                }
                assertEquals(one[0], echo(host.connect("c")));
            }
        }
        try (TestHost host = new TestHost(Echo.class)) {
            TestHost.TestConnection connection = host.connect(null, "fault", "keep");
            assertEquals("kept samples are overwritten", "5:00000", echo(connection));
            TestHost.Writer writer = host.connect(null, "fault", "reject").writer("s", TYPE);
            assertEquals(4, writer.write(points(5)));
            assertEquals(4, writer.takeRejected().get(0).data().getInt("id"));
            assertEquals(List.of(), host.takeFailures());
            assertEquals(39, connection.announced().size());
            host.inject(Fault.LISTENER_THROWS);
            connection.reader("s", TYPE).read();
            assertTrue(host.takeFailures().get(0) instanceof UnsatisfiedLinkError);
        }
    }

    @Test
    public void aSourceThatFailsBetweenReadsFailsEachUntilItRecovers() throws Exception {
        try (TestHost host = new TestHost(Echo.class)) {
            TestHost.TestConnection connection = host.connect("c", "fault", "lost");
            TestHost.Reader reader = connection.reader("s", TYPE);
            connection.writer("s", TYPE).write(points(3));
            assertEquals("what is there is lent", 3, reader.read().size());
            for (String fault : new String[] {"none", "found"}) {
                assertEquals("the queue is gone",
                        host.takeFailures().get(0).getCause().getMessage());
                connection.update("fault", fault);
                assertEquals(0, reader.read().size());
            }
            assertEquals(List.of(), host.takeFailures());
        }
    }

    /** The second one throws when it hears of the stop; the third does not listen. */
    @Test
    public void aWriteThatWaitsEndsWhenTheHostStops() throws Exception {
        for (String fault : new String[] {"wait", "stopping", "interrupt"}) {
            boolean deaf = fault.equals("interrupt");
            try (TestHost host = new TestHost(Echo.class)) {
                TestHost.TestConnection connection =
                        host.connect("c", "fault", deaf ? "wait" : fault);
                TestHost.Writer writer = connection.writer("s", TYPE);
                Thread stopper = new Thread(() -> {
                    Echo.WAITING.acquireUninterruptibly();
                    if (deaf) {
                        StopRequest.interrupt();
                    } else {
                        StopRequest.announce();
                    }
                });
                stopper.start();
                assertEquals(0, writer.write(points(1)));
                stopper.join();
                List<Throwable> failures = host.takeFailures();
                assertEquals(fault, deaf, !failures.isEmpty()
                        && failures.get(0).getCause() instanceof InterruptedException);
                assertFalse(Thread.currentThread().isInterrupted());
                connection.update("fault", "none");
                assertEquals(2, writer.write(points(2)));
            }
            StopRequest.interrupt();
            assertFalse("nobody writes", Thread.currentThread().isInterrupted());
        }
    }

    @Test
    public void everyFailureIsLoggedWithItsPlaceAndThrownOn() throws Exception {
        String connection = "Echo, connection \"c\"";
        String[][] cases = {{"opened", ": createConnection"},
            {"openSession", ", session: createSession"},
            {"openReader", ", reader of stream \"s\": createStreamReader"},
            {"probe", ": createConnection"},
            {"probeReader", ", reader of stream \"s\": createStreamReader"},
            {"probeWriter", ", writer of stream \"s\": createStreamWriter"},
            {"openWriter", ", writer of stream \"s\": createStreamWriter"},
            {"fill", ", reader of stream \"s\": read"},
            {"returned", ", reader of stream \"s\": returnLoan"},
            {"releaseReader", ", reader of stream \"s\": deleteStreamReader"},
            {"store", ", writer of stream \"s\": write"},
            {"releaseWriter", ", writer of stream \"s\": deleteStreamWriter"},
            {"release", ": deleteConnection"}};
        for (String[] one : cases) {
            logged.clear();
            List<Throwable> thrown = new ArrayList<>();
            TestHost host = new TestHost(Echo.class);
            try {
                echo(host.connect("c", "fault", one[0], Check.PROPERTY, "true"));
            } catch (Exception created) {
                thrown.add(created);
            }
            if (one[0].equals("opened")) {
                // Makes a signal where the connection that failed still can.
                Echo.last.announce(new StreamInfo("late", null, false));
            }
            try {
                host.close();
            } catch (AssertionError failures) {
                thrown.addAll(List.of(failures.getSuppressed()));
            }
            assertFalse(one[0], thrown.isEmpty());
            assertEquals(one[0], 0, Echo.open);
            assertTrue(one[0], thrown.stream().allMatch(t -> t.toString().contains("as told")));
            assertEquals(connection + one[1] + " failed", logged.get(0).getMessage());
            assertEquals("as told", logged.get(0).getThrown().getMessage());
        }
        SettingsException rejected = assertThrows(SettingsException.class,
                () -> new TestHost(Echo.class, "any", "x"));
        assertTrue(rejected.getMessage(), rejected.getMessage().startsWith("Echo: unknown "));
    }

    @Test
    public void whatWouldEndTheProcessIsTakenOut() throws Exception {
        for (String[] one : new String[][] {{"lend", "1", "a java.lang.String, not"},
            {"inform", "0", "1 infos about 0 samples"}}) {
            try (TestHost host = new TestHost(Echo.class)) {
                TestHost.Reader reader = host.connect("c", "fault", one[0]).reader("s", TYPE);
                assertEquals(one[1], "" + reader.read().size());
                assertTrue(host.takeFailures().get(0).getMessage().contains(one[2]));
            }
        }
    }

    @Test
    public void aReadEndsWithTheSampleThatFillsIt() throws Exception {
        String[][] cases = {{"2", "100", "2 2 1 "}, {"5", "8", "2 2 1 "}, {"9", "9", "3 2 "},
            {"9", "1", "1 1 1 1 1 "}, {"5", "99", "5 "}};
        for (String[] one : cases) {
            try (TestHost host = new TestHost(Echo.class, (String[]) null)) {
                TestHost.TestConnection connection = host.connect("c");
                connection.writer("s", TYPE).write(points(5));
                assertThrows(SettingsException.class,
                        () -> connection.reader("s", TYPE, "batch", "0", "batch_bytes", "1"));
                TestHost.Reader reader = connection.reader("s", TYPE, "batch", one[0]);
                reader.update("batch_bytes", one[1]);
                StringBuilder sizes = new StringBuilder();
                for (int size = reader.read().size(); size > 0; size = reader.read().size()) {
                    sizes.append(size).append(' ');
                }
                assertEquals(one[2], sizes.toString());
            }
        }
    }

    @Test
    public void aLookThatGoesOnFailingIsLoggedOnce() throws Exception {
        Iterator<String> failures = Arrays.asList("a", "a", "b", null, "b", "b").iterator();
        CountDownLatch looked = new CountDownLatch(6);
        Watch watch = new Watch("w", System.getLogger(logger.getName()), Throwable::getMessage);
        watch.every(Duration.ofNanos(1), () -> {
            looked.countDown();
            String failure = failures.hasNext() ? failures.next() : "b";
            if (failure != null) {
                throw new IOException(failure);
            }
        });
        looked.await();
        assertTrue(watch.stop(() -> {}));
        Watch stuck = new Watch("s", System.getLogger(logger.getName()), Throwable::getMessage);
        CountDownLatch begun = new CountDownLatch(1);
        stuck.once(() -> {
            begun.countDown();
            Echo.LEFT.acquireUninterruptibly();
        });
        begun.await();
        assertFalse(stuck.stop(() -> {}));
        Echo.LEFT.release();
        assertEquals("[w: a, w: b, w: b, thread s does not end]",
                logged.stream().map(LogRecord::getMessage).toList().toString());
    }

    @Test
    public void badSamplesAreTheHostsToTellAndAFullHeapIsToldInASentence() throws Exception {
        try (TestHost host = new TestHost(Echo.class)) {
            TestHost.TestConnection connection = host.connect("c", "fault", "bad");
            TestHost.Reader reader = connection.reader("s", TYPE);
            reader.read();
            assertEquals(2, ((BadSamplesException) host.takeFailures().get(0)).count());
            assertEquals(List.of(), logged);
            connection.update("fault", "heap");
            reader.read();
            assertTrue(host.takeFailures().get(0).getMessage().contains("-Xmx"));
        }
    }

    @Test
    public void aPoolKeepsLittleOfWhatLargeSamplesTook() {
        SamplePool pool = new SamplePool(TypeCode.fromIdl("struct T { string s; };", null));
        String large = "x".repeat(10 << 20);
        // Up and down, the large sample stands in every place: all of them do not fit in here.
        for (int read = 0; read < 200; read++) {
            int last = read < 100 ? read : 199 - read;
            for (int i = 0; i <= last; i++) {
                pool.get(i).clear();
            }
            pool.get(last).setString("s", large);
            pool.returned();
        }
    }

    @Test
    public void updatesKeepToTheDeclaration() throws Exception {
        try (TestHost host = new TestHost(Echo.class)) {
            TestHost.TestConnection connection = host.connect("c", "fixed", "1");
            assertThrows(SettingsException.class, () -> connection.update("fixed", "2"));
            connection.update("fault", "changed");
            assertThrows(Exception.class, () -> connection.update("fault", "none"));
            assertThrows("the rejected update has left no trace", Exception.class,
                    () -> connection.update("fault", "none"));
        }
    }

    @Test
    public void whatIsLeftBehindIsFound() throws Exception {
        TestHost host = new TestHost(Echo.class);
        TestHost.TestConnection connection = host.connect("c", "fault", "thread");
        connection.reader("s", TYPE).delete();
        connection.reader("s", TYPE).delete();
        Echo.heard.onDataAvailable(null);
        String text = assertThrows(AssertionError.class, host::close).getMessage();
        Echo.LEFT.release(2);
        assertTrue(text, text.contains("a signal after the deletion")
                && text.contains("left") && text.contains("no daemon"));
    }
}
