package org.example.template;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.dds.subscription.SampleInfo;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.Version;
import com.qel.ferrion.kit.AdapterBase;
import com.qel.ferrion.kit.AdapterSettings;
import com.qel.ferrion.kit.AdapterSettings.Role;
import com.qel.ferrion.kit.ConnectionBase;
import com.qel.ferrion.kit.ReaderBase;
import com.qel.ferrion.kit.Setting;
import com.qel.ferrion.kit.Settings;
import com.qel.ferrion.kit.WriterBase;
import java.io.BufferedWriter;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Duration;
import java.util.List;
import java.util.Properties;

/** Reads a stream of numbered readings, and writes streams as lines of text files. */
public final class TemplateAdapter extends AdapterBase {
    static final Setting<Path> DIRECTORY =
            Setting.path("directory", "where the files are").defaultTo(Path.of("."));
    static final Setting<Integer> COUNT =
            Setting.integer("count", 1, 1_000_000, "how many readings there are").defaultTo(10);
    static final Setting<Duration> EVERY = Setting.duration("every", Duration.ofMillis(1),
            Duration.ofHours(1), "the time between two readings").defaultTo(Duration.ofSeconds(1));

    /** All that a configuration may say. */
    public static final AdapterSettings SETTINGS = AdapterSettings.none()
            .with(Role.CONNECTION, DIRECTORY)
            .with(Role.READER, COUNT, EVERY);

    public TemplateAdapter(Properties properties) throws AdapterException {
        super(SETTINGS, new Version(1, 0, 0, 0), properties);
    }

    @Override
    protected ConnectionBase connect(String name, Settings settings) {
        return new TemplateConnection(settings.get(DIRECTORY));
    }

    /** Open here what readers and writers share, and close it in release(). */
    private static final class TemplateConnection extends ConnectionBase {
        private final Path directory;

        TemplateConnection(Path directory) {
            this.directory = directory;
        }

        @Override
        protected ReaderBase openReader(Stream stream) {
            return new Reader(stream);
        }

        @Override
        protected WriterBase openWriter(Stream stream) throws IOException {
            return new Writer(stream, directory.resolve(stream.name()));
        }

        @Override
        public String toString() {
            return "template in " + directory;
        }
    }

    /** A thread of its own counts what is due and signals; the host then reads it. */
    private static final class Reader extends ReaderBase {
        private final int count = settings().get(COUNT);
        private final long every = settings().get(EVERY).toMillis();
        private final DynamicData sample;
        private final Thread thread = new Thread(this::work, "template");
        private volatile int due;
        private int sent;

        Reader(ConnectionBase.Stream stream) {
            super(stream);
            sample = new DynamicData(stream.type(), DynamicData.PROPERTY_DEFAULT);
            thread.setDaemon(true);
            thread.start();
        }

        private void work() {
            try {
                while (due < count) {
                    due++;
                    signal();
                    Thread.sleep(every);
                }
            } catch (InterruptedException e) {
                // Released.
            }
        }

        /** On a thread of the host: never waits, and lends the sample until returned(). */
        @Override
        protected void fill(List<Object> samples, List<Object> infos) {
            if (sent < due) {
                sample.setLong("number", ++sent);
                sample.setString("text", "reading " + sent);
                samples.add(sample);
            }
        }

        @Override
        protected void release() throws InterruptedException {
            thread.interrupt();
            thread.join();
        }
    }

    /** Samples are the host's again when store() returns: Sample.copies keeps them. */
    private static final class Writer extends WriterBase {
        private final BufferedWriter file;

        Writer(ConnectionBase.Stream stream, Path path) throws IOException {
            super(stream);
            file = Files.newBufferedWriter(path);
        }

        @Override
        protected int store(List<Object> samples, List<Object> infos) throws IOException {
            for (int i = 0; i < samples.size(); i++) {
                DynamicData sample = (DynamicData) samples.get(i);
                SampleInfo info = i < infos.size() ? (SampleInfo) infos.get(i) : null;
                // Without valid data a sample says that its instance has ended.
                if (sample != null && (info == null || info.valid_data)) {
                    file.write(sample.getLong("number") + " " + sample.getString("text") + "\n");
                }
            }
            file.flush();
            return samples.size();
        }

        @Override
        protected void release() throws IOException {
            file.close();
        }
    }
}
