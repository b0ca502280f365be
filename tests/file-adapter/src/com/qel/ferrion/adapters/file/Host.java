package com.qel.ferrion.adapters.file;

import static org.junit.Assert.assertEquals;
import static org.junit.Assert.assertTrue;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.kit.BadSamplesException;
import com.qel.ferrion.kit.RejectedRecord;
import com.qel.ferrion.kit.Sample;
import com.qel.ferrion.kit.harness.TestHost;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.CopyOnWriteArrayList;
import java.util.logging.ConsoleHandler;
import java.util.logging.Handler;
import java.util.logging.LogRecord;
import java.util.logging.Logger;
import java.util.logging.SimpleFormatter;
import org.junit.rules.ExternalResource;
import org.junit.rules.TemporaryFolder;

/** The kit's host with a connection to a folder, and what was logged and went wrong. */
final class Host extends ExternalResource {
    static final TypeCode POINT = TypeCode.fromIdl(
            "struct Point { long id; string text; double value; };", null);
    private static final Duration LONG = Duration.ofSeconds(10);

    final TemporaryFolder folder = new TemporaryFolder();
    /** What reads and writes have thrown. */
    final List<String> errors = new ArrayList<>();
    /** What the host is to set aside. */
    final List<RejectedRecord> records = new ArrayList<>();
    /** What the adapter logs, in place of the console. */
    final List<String> logged = new CopyOnWriteArrayList<>();
    private final Logger logger = Logger.getLogger(FileAdapter.class.getPackageName());
    private final Handler handler = new ConsoleHandler() {
        @Override
        public void publish(LogRecord record) {
            logged.add(new SimpleFormatter().formatMessage(record));
        }
    };
    private TestHost host;
    TestHost.TestConnection connection;

    @Override
    protected void before() throws Throwable {
        logger.setUseParentHandlers(false);
        logger.addHandler(handler);
        folder.create();
        host = new TestHost(FileAdapter.class);
        connection = connect("directory", folder.getRoot().toString(), "poll", "20ms");
    }

    @Override
    protected void after() {
        host.close();
        folder.delete();
        logger.removeHandler(handler);
    }

    TestHost.TestConnection connect(String... properties) throws Exception {
        return host.connect("files", properties);
    }

    void inject(TestHost.Fault... faults) {
        host.inject(faults);
    }

    Path path(String name) {
        return folder.getRoot().toPath().resolve(name);
    }

    Path put(String name, String content) throws IOException {
        return Files.writeString(path(name), content);
    }

    String text(String name) throws IOException {
        return Files.readString(path(name));
    }

    TestHost.Reader reader(String name, TypeCode type, String... properties) throws Exception {
        return connection.reader(name, type, properties);
    }

    TestHost.Writer writer(String name, TypeCode type, String... properties) throws Exception {
        return connection.writer(name, type, properties);
    }

    private void noteErrors() {
        for (Throwable failure : host.takeFailures()) {
            errors.add(failure.getMessage());
            if (failure instanceof BadSamplesException) {
                records.addAll(((BadSamplesException) failure).records());
            }
        }
    }

    List<DynamicData> read(TestHost.Reader reader) {
        List<DynamicData> read = reader.read().stream().map(Sample::data).toList();
        noteErrors();
        return read;
    }

    /** Reads a file that is not followed: as often as the reader signals. */
    List<DynamicData> readAll(TestHost.Reader reader) throws InterruptedException {
        List<DynamicData> all = new ArrayList<>();
        assertTrue("no signal", reader.awaitSignal(LONG));
        do {
            all.addAll(read(reader));
        } while (reader.awaitSignal(Duration.ZERO));
        assertTrue("rows without a signal", read(reader).isEmpty());
        return all;
    }

    /** Reads when signalled, until as many samples as wanted came or an error did. */
    List<DynamicData> await(TestHost.Reader reader, int wanted) throws InterruptedException {
        List<DynamicData> all = new ArrayList<>();
        while (all.size() < wanted && errors.isEmpty() && reader.awaitSignal(LONG)) {
            all.addAll(read(reader));
        }
        return all;
    }

    int write(TestHost.Writer writer, DynamicData... samples) {
        int written = writer.write(samples);
        noteErrors();
        return written;
    }

    /** The error of a write that fails. */
    String rejection(TestHost.Writer writer, DynamicData... samples) {
        write(writer, samples.length > 0 ? samples : new DynamicData[] {point(1, "a", 1)});
        return errors.remove(0);
    }

    static void limitFileSize(String bytes) throws Exception {
        Process process = new ProcessBuilder("prlimit", "--pid",
                Long.toString(ProcessHandle.current().pid()), "--fsize=" + bytes + ":unlimited")
                .inheritIO().start();
        assertEquals(0, process.waitFor());
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
        return points.stream().map(point -> point.getInt("id")).toList();
    }
}
