package com.qel.ferrion.adapters.file;

import static org.junit.Assert.assertTrue;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.subscription.SampleInfo;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.DiscoveryConnection;
import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.StreamWriter;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import com.qel.ferrion.adapter.infrastructure.TypeInfo;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.Properties;
import java.util.concurrent.CopyOnWriteArrayList;
import java.util.concurrent.Semaphore;
import java.util.concurrent.TimeUnit;
import java.util.logging.Handler;
import java.util.logging.LogRecord;
import java.util.logging.Logger;
import java.util.logging.SimpleFormatter;
import org.junit.rules.ExternalResource;
import org.junit.rules.TemporaryFolder;

/**
 * Drives the adapter as a host does: copies what a read lent before it gives the loan back, takes
 * the samples of a read that threw, and reads when it is signalled.
 */
final class Host extends ExternalResource {
    static final TypeCode POINT = TypeCode.fromIdl(
            "struct Point { long id; string text; double value; };", null);

    final TemporaryFolder folder = new TemporaryFolder();
    final List<String> errors = new ArrayList<>();
    final Semaphore signals = new Semaphore(0);
    final Semaphore discoverySignals = new Semaphore(0);
    /** What the adapter logs, in place of the console. */
    final List<String> logged = new CopyOnWriteArrayList<>();
    private final Logger logger = Logger.getLogger(FileAdapter.class.getPackageName());
    private final Handler handler = new Handler() {
        @Override
        public void publish(LogRecord record) {
            logged.add(new SimpleFormatter().formatMessage(record));
        }

        @Override
        public void flush() {
            // Nothing is held back.
        }

        @Override
        public void close() {
            // Nothing is open.
        }
    };
    private final List<DiscoveryConnection> connections = new ArrayList<>();
    private FileAdapter adapter;
    DiscoveryConnection connection;

    @Override
    protected void before() throws Throwable {
        logger.setUseParentHandlers(false);
        logger.addHandler(handler);
        folder.create();
        adapter = new FileAdapter(null);
        connection = connect("directory", folder.getRoot().toString(), "poll_ms", "20");
    }

    @Override
    protected void after() {
        disconnect();
        folder.delete();
        logger.removeHandler(handler);
    }

    DiscoveryConnection connect(String... properties) throws AdapterException {
        connections.add((DiscoveryConnection) adapter.createConnection("files", null, null,
                reader -> discoverySignals.release(), properties(properties)));
        return connections.get(connections.size() - 1);
    }

    void disconnect() {
        connections.forEach(adapter::deleteConnection);
        connections.clear();
    }

    static Properties properties(String... pairs) {
        Properties properties = new Properties();
        for (int i = 0; i < pairs.length; i += 2) {
            properties.setProperty(pairs[i], pairs[i + 1]);
        }
        return properties;
    }

    Path path(String name) {
        return folder.getRoot().toPath().resolve(name);
    }

    Path put(String name, String content) throws IOException {
        return Files.writeString(path(name), content);
    }

    String text(String name) throws IOException {
        return new String(Files.readAllBytes(path(name)), StandardCharsets.UTF_8);
    }

    private static StreamInfo stream(String name, TypeCode type) {
        return new StreamInfo(name, new TypeInfo(type.name(), type), false);
    }

    StreamReader reader(String name, TypeCode type, String... properties) throws AdapterException {
        return connection.createStreamReader(null, stream(name, type), properties(properties),
                reader -> signals.release());
    }

    StreamWriter writer(String name, TypeCode type, String... properties) throws AdapterException {
        return connection.createStreamWriter(null, stream(name, type), properties(properties));
    }

    /** One read and its loan; an exception's message goes to {@link #errors}. */
    List<DynamicData> read(StreamReader reader) throws AdapterException {
        List<Object> samples = new ArrayList<>();
        List<Object> infos = new ArrayList<>();
        List<DynamicData> copies = new ArrayList<>();
        try {
            reader.read(samples, infos);
        } catch (AdapterException e) {
            errors.add(e.getMessage());
        }
        assertTrue("a sample info for each sample", samples.size() == infos.size());
        for (Object sample : samples) {
            DynamicData copy = new DynamicData(((DynamicData) sample).type(), null);
            copy.copyFrom((DynamicData) sample);
            copies.add(copy);
        }
        reader.returnLoan(samples, infos);
        return copies;
    }

    /** Reads a file that is not followed: as often as the reader signals. */
    List<DynamicData> readAll(StreamReader reader) throws Exception {
        List<DynamicData> all = new ArrayList<>();
        assertTrue("no signal", signals.tryAcquire(10, TimeUnit.SECONDS));
        do {
            signals.drainPermits();
            all.addAll(read(reader));
        } while (signals.tryAcquire());
        assertTrue("rows without a signal", read(reader).isEmpty());
        return all;
    }

    /** Reads when signalled, for at most ten seconds, until as many samples as wanted came
     * or an error did. */
    List<DynamicData> await(StreamReader reader, int wanted) throws Exception {
        List<DynamicData> all = new ArrayList<>();
        long end = System.nanoTime() + TimeUnit.SECONDS.toNanos(10);
        while (all.size() < wanted && errors.isEmpty() && System.nanoTime() < end) {
            if (signals.tryAcquire(100, TimeUnit.MILLISECONDS)) {
                all.addAll(read(reader));
            }
        }
        return all;
    }

    static int write(StreamWriter writer, DynamicData... samples) throws AdapterException {
        List<Object> infos = new ArrayList<>();
        for (int i = 0; i < samples.length; i++) {
            infos.add(new SampleInfo());
        }
        return writer.write(new ArrayList<>(List.of(samples)), infos);
    }

    static DynamicData point(int id, String text, double value) {
        DynamicData data = new DynamicData(POINT, null);
        data.setInt("id", id);
        data.setString("text", text);
        data.setDouble("value", value);
        return data;
    }

    /** The ids of points, for comparing at a glance. */
    static List<Integer> ids(List<DynamicData> points) {
        List<Integer> ids = new ArrayList<>();
        points.forEach(point -> ids.add(point.getInt("id")));
        return ids;
    }
}
