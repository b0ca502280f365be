package com.qel.ferrion.kit.harness;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.subscription.SampleInfo;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.Adapter;
import com.qel.ferrion.adapter.Connection;
import com.qel.ferrion.adapter.DiscoveryConnection;
import com.qel.ferrion.adapter.Entity;
import com.qel.ferrion.adapter.Session;
import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.StreamReaderListener;
import com.qel.ferrion.adapter.StreamWriter;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import com.qel.ferrion.adapter.infrastructure.TypeInfo;
import com.qel.ferrion.kit.Delivery;
import com.qel.ferrion.kit.RejectedSampleException;
import com.qel.ferrion.kit.Sample;
import java.lang.reflect.InvocationTargetException;
import java.time.Duration;
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collections;
import java.util.Deque;
import java.util.EnumSet;
import java.util.List;
import java.util.Map;
import java.util.Objects;
import java.util.Properties;
import java.util.Set;
import java.util.TreeMap;
import java.util.concurrent.Callable;
import java.util.concurrent.Semaphore;
import java.util.concurrent.TimeUnit;

/**
 * Drives an adapter as the host does, on the thread that calls: without context class loader, with
 * lists that are emptied and used again, deleting what was made last first. The samples of a write
 * are overwritten as soon as it has returned, so an adapter that keeps them is found out.
 *
 * <pre>{@code
 * try (TestHost host = new TestHost(MyAdapter.class)) {
 *     TestHost.Reader reader = host.connect("c", "url", "db:x").reader("table", TYPE);
 *     assertEquals(3, reader.await(3, Duration.ofSeconds(5)).size());
 * }
 * }</pre>
 *
 * <p>What creations and updates throw comes out as it is. Of other calls a host takes note and goes
 * on: see {@link #takeFailures}. Neither bridge nor relay are needed, but types and samples are
 * native: libqddsjava.so and libqddsc.so must be where the Java binding finds them, which they are
 * when its jar lies in an installation; else the system property {@code qdds.library.path} names
 * their folder. For one thread at a time.
 */
public final class TestHost implements AutoCloseable {
    private static final String MAX_SAMPLES = "qel.ferrion.jni.max_samples_per_write";
    private static final int DISCOVERY_LIMIT = 32;
    private static final Duration THREADS_END = Duration.ofSeconds(2);

    private final Set<Thread> threadsBefore = Thread.getAllStackTraces().keySet();
    private final Set<Fault> faults = EnumSet.noneOf(Fault.class);
    private final List<Throwable> failures = Collections.synchronizedList(new ArrayList<>());
    /** What is to be deleted, last made first. */
    private final Deque<Part> parts = new ArrayDeque<>();
    private final Adapter adapter;

    /** What a host, and the adapters that share its threads, may do to an adapter. */
    public enum Fault {
        /** Readers are made without listener. */
        NO_LISTENER,
        /** Signals throw, as they do where the bridge's library cannot be found. */
        LISTENER_THROWS,
        /** Every second sample of a write is missing, from the first on. */
        MISSING_SAMPLES,
        /** A write comes without information about its samples. */
        NO_INFOS,
        /** The thread's interrupt flag is set when it calls: another adapter has left it so. */
        INTERRUPTED
    }

    /**
     * Makes the adapter.
     *
     * @param type with one of the constructors that {@link Adapter} asks for
     * @param properties names and values in turn
     * @throws Exception what the constructor throws
     */
    public TestHost(Class<? extends Adapter> type, String... properties) throws Exception {
        adapter = call(() -> make(type, of(properties)));
        Objects.requireNonNull(call(adapter::getVersion), "the adapter's version is null");
    }

    /** From now on these faults are there, and no others. */
    public void inject(Fault... now) {
        faults.clear();
        Collections.addAll(faults, now);
    }

    /** Makes a connection; properties are names and values in turn. */
    public TestConnection connect(String name, String... properties) throws Exception {
        Listener inputs = new Listener();
        Listener outputs = new Listener();
        Connection made;
        try {
            made = call(() -> adapter.createConnection(name, null, outputs.given(),
                    inputs.given(), of(properties)));
        } catch (Throwable none) {
            inputs.gone = true;
            outputs.gone = true;
            throw none;
        }
        return new TestConnection(made, () -> {
            adapter.deleteConnection(made);
            inputs.gone = true;
            outputs.gone = true;
        });
    }

    /** @return what calls threw and what was found wrong since the last time, oldest first */
    public List<Throwable> takeFailures() {
        synchronized (failures) {
            List<Throwable> taken = new ArrayList<>(failures);
            failures.clear();
            return taken;
        }
    }

    /**
     * Deletes everything.
     *
     * @throws AssertionError for failures that nobody has taken, and for threads that the adapter
     *     has left behind which would keep the process from ending
     */
    @Override
    public void close() {
        while (!parts.isEmpty()) {
            parts.peek().delete();
        }
        long end = System.nanoTime() + THREADS_END.toNanos();
        for (Thread thread : Thread.getAllStackTraces().keySet()) {
            if (!threadsBefore.contains(thread) && !thread.isDaemon()) {
                run(() -> thread.join(Math.max(1, (end - System.nanoTime()) / 1_000_000)));
                if (thread.isAlive()) {
                    failures.add(new AssertionError(thread + " still runs and is no daemon"));
                }
            }
        }
        List<Throwable> left = takeFailures();
        if (!left.isEmpty()) {
            AssertionError error = new AssertionError(left.size() + " failures: " + left);
            left.forEach(error::addSuppressed);
            throw error;
        }
    }

    /** As the bridge gives them: null where there are none. */
    private static Properties of(String... pairs) {
        if (pairs == null) {
            return null;
        }
        Properties properties = new Properties();
        for (int i = 0; i < pairs.length; i += 2) {
            properties.setProperty(pairs[i], pairs[i + 1]);
        }
        return properties.isEmpty() ? null : properties;
    }

    private static Adapter make(Class<? extends Adapter> type, Properties properties)
            throws Exception {
        try {
            try {
                return type.getConstructor(Properties.class).newInstance(properties);
            } catch (NoSuchMethodException plain) {
                return type.getConstructor().newInstance();
            }
        } catch (InvocationTargetException thrown) {
            throw thrown.getCause() instanceof Exception ? (Exception) thrown.getCause() : thrown;
        }
    }

    private <T> T call(Callable<T> work) throws Exception {
        Thread self = Thread.currentThread();
        ClassLoader before = self.getContextClassLoader();
        self.setContextClassLoader(null);
        if (faults.contains(Fault.INTERRUPTED)) {
            self.interrupt();
        }
        try {
            return work.call();
        } finally {
            Thread.interrupted();
            self.setContextClassLoader(before);
        }
    }

    /** A call that gives nothing back. */
    private interface Step {
        void run() throws Exception;
    }

    /** What it throws is noted. */
    private void run(Step step) {
        try {
            call(() -> {
                step.run();
                return null;
            });
        } catch (Throwable thrown) {
            failures.add(thrown);
        }
    }

    /** One thing that the adapter made. */
    private class Part {
        private final Entity entity;
        private final Step deletion;

        Part(Entity entity, Step deletion) {
            this.entity = Objects.requireNonNull(entity, "the adapter made null");
            this.deletion = deletion;
            parts.push(this);
        }

        /** Gives it all of its properties anew. */
        public void update(String... properties) throws Exception {
            call(() -> {
                entity.update(of(properties));
                return null;
            });
        }

        /** Deletes it before the host would; what was made of it must have been deleted. */
        public void delete() {
            if (parts.remove(this)) {
                run(deletion);
            }
        }
    }

    /** Counts signals and reports those that must not come. */
    private final class Listener implements StreamReaderListener {
        final Semaphore signals = new Semaphore(0);
        volatile StreamReader reader;
        volatile boolean gone;

        @Override
        public void onDataAvailable(StreamReader signaller) {
            if (gone || signaller == null || (reader != null && signaller != reader)) {
                failures.add(new AssertionError(gone ? "a signal after the deletion"
                                                     : "a signal for another reader"));
            }
            if (faults.contains(Fault.LISTENER_THROWS)) {
                throw new UnsatisfiedLinkError("injected");
            }
            signals.release();
        }

        StreamReaderListener given() {
            return faults.contains(Fault.NO_LISTENER) ? null : this;
        }
    }

    /** A connection, with one session. */
    public final class TestConnection extends Part {
        private final Map<String, StreamInfo> announced = new TreeMap<>();
        private final Connection connection;
        private Session session;

        private TestConnection(Connection connection, Step deletion) throws Exception {
            super(connection, deletion);
            this.connection = connection;
            Objects.requireNonNull(call(connection::toString), "the connection's text is null");
        }

        private Session session() throws Exception {
            if (session == null) {
                Session made = call(() -> connection.createSession(null));
                new Part(made, () -> connection.deleteSession(made));
                session = made;
            }
            return session;
        }

        /** Makes a reader; properties are names and values in turn. */
        public Reader reader(String stream, TypeCode type, String... properties) throws Exception {
            Session ours = session();
            Listener listener = new Listener();
            StreamReader made = call(() -> connection.createStreamReader(ours, info(stream, type),
                    of(properties), listener.given()));
            listener.reader = made;
            return new Reader(made, listener, () -> {
                connection.deleteStreamReader(made);
                listener.gone = true;
            });
        }

        /** Makes a writer; properties are names and values in turn. */
        public Writer writer(String stream, TypeCode type, String... properties) throws Exception {
            Session ours = session();
            Properties given = of(properties);
            StreamWriter made = call(
                    () -> connection.createStreamWriter(ours, info(stream, type), given));
            return new Writer(made, Integer.parseInt(given == null ? "1024"
                    : given.getProperty(MAX_SAMPLES, "1024")),
                    () -> connection.deleteStreamWriter(made));
        }

        private StreamInfo info(String stream, TypeCode type) {
            return new StreamInfo(stream, new TypeInfo(type.name(), type), false);
        }

        /** @return the streams announced for reading that are still there, by name */
        public Map<String, StreamInfo> announced() throws Exception {
            StreamReader reader = call(
                    ((DiscoveryConnection) connection)::getInputStreamDiscoveryReader);
            List<Object> changes = new ArrayList<>();
            List<Object> infos = new ArrayList<>();
            do {
                changes.clear();
                run(() -> reader.read(changes, infos));
                // The host drops what is beyond its limit.
                for (Object item : changes.subList(0, Math.min(DISCOVERY_LIMIT, changes.size()))) {
                    StreamInfo stream = (StreamInfo) item;
                    announced.remove(stream.getStreamName());
                    if (!stream.isDisposed()) {
                        announced.put(stream.getStreamName(), stream);
                    }
                }
                run(() -> reader.returnLoan(changes, infos));
            } while (!changes.isEmpty());
            return announced;
        }
    }

    /** A stream reader. */
    public final class Reader extends Part {
        private final List<Object> samples = new ArrayList<>();
        private final List<Object> infos = new ArrayList<>();
        private final StreamReader reader;
        private final Listener listener;

        private Reader(StreamReader reader, Listener listener, Step deletion) {
            super(reader, deletion);
            this.reader = reader;
            this.listener = listener;
        }

        /** Reads once and gives the loan back. @return copies of what was lent */
        public List<Sample> read() {
            List<Sample> copies = lend();
            run(() -> reader.returnLoan(samples, infos));
            samples.clear();
            infos.clear();
            return copies;
        }

        /**
         * Reads once and deletes the reader with the loan still out, as a host does that cannot
         * deliver it. A reader of an adapter that declares {@link Delivery#REPEATS}, made anew,
         * lends the same again.
         *
         * @return copies of what was lent
         */
        public List<Sample> readAndDelete() {
            List<Sample> copies = lend();
            delete();
            return copies;
        }

        private List<Sample> lend() {
            listener.signals.drainPermits();
            run(() -> reader.read(samples, infos));
            if (!infos.isEmpty() && infos.size() != samples.size()) {
                failures.add(new AssertionError(infos.size() + " infos about "
                        + samples.size() + " samples"));
            }
            return Sample.copies(samples, infos);
        }

        /** Reads at once, when signalled, and ten times a second, until so many samples came. */
        public List<Sample> await(int count, Duration atMost) throws InterruptedException {
            List<Sample> all = new ArrayList<>(read());
            long end = System.nanoTime() + atMost.toNanos();
            while (all.size() < count) {
                if (System.nanoTime() > end) {
                    throw new AssertionError(all.size() + " samples of " + count + " came in "
                            + atMost);
                }
                awaitSignal(Duration.ofMillis(100));
                all.addAll(read());
            }
            return all;
        }

        /** @return whether the reader has signalled since the last read, or does so in time */
        public boolean awaitSignal(Duration atMost) throws InterruptedException {
            return listener.signals.tryAcquire(atMost.toNanos(), TimeUnit.NANOSECONDS);
        }
    }

    /** A stream writer. */
    public final class Writer extends Part {
        private final List<Object> samples = new ArrayList<>();
        private final List<Object> infos = new ArrayList<>();
        private final List<Sample> pool = new ArrayList<>();
        private final StreamWriter writer;
        private final int most;
        private final List<Sample> rejected = new ArrayList<>();
        private int written;

        private Writer(StreamWriter writer, int most, Step deletion) {
            super(writer, deletion);
            this.writer = writer;
            this.most = most;
        }

        /** Writes samples with ordinary infos. @return how many the adapter counted */
        public int write(DynamicData... given) {
            return write(Arrays.stream(given).map(data -> new Sample(data, new SampleInfo()))
                    .toList());
        }

        /**
         * Writes samples in batches of the size configured. A {@link RejectedSampleException} is no
         * failure: its sample is set aside, and the next batch begins behind it.
         *
         * @return how many were counted
         */
        public int write(List<Sample> given) {
            written = 0;
            for (int from = 0; from < given.size();) {
                from += writeSome(given.subList(from, Math.min(given.size(), from + most)));
            }
            return written;
        }

        /** @return how many samples the host has done with */
        private int writeSome(List<Sample> batch) {
            for (int i = 0; i < batch.size(); i++) {
                add(i, batch.get(i));
            }
            try {
                written += call(() -> writer.write(samples, infos));
            } catch (RejectedSampleException one) {
                if (one.taken() < batch.size()) {
                    written += one.taken();
                    rejected.add(batch.get(one.taken()));
                    return one.taken() + 1;
                }
                failures.add(new AssertionError("sample " + one.taken() + " of "
                        + batch.size() + " is rejected", one));
            } catch (Throwable thrown) {
                failures.add(thrown);
            } finally {
                empty();
            }
            return batch.size();
        }

        private void empty() {
            samples.clear();
            infos.clear();
            for (Sample used : pool) {
                used.data().clear();
                used.data().trim();
                used.info().clear();
                used.info().valid_data = false;
            }
        }

        /** @return the samples that were set aside since the last time, in their order */
        public List<Sample> takeRejected() {
            List<Sample> taken = new ArrayList<>(rejected);
            rejected.clear();
            return taken;
        }

        private void add(int position, Sample sample) {
            if (position == pool.size()) {
                pool.add(new Sample(Sample.copy(sample.data()), new SampleInfo()));
            }
            Sample ours = pool.get(position);
            ours.data().copyFrom(sample.data());
            ours.info().copyFrom(sample.info());
            boolean missing = faults.contains(Fault.MISSING_SAMPLES) && position % 2 == 0;
            samples.add(missing ? null : ours.data());
            if (!faults.contains(Fault.NO_INFOS)) {
                infos.add(missing ? null : ours.info());
            }
        }
    }
}
