package com.qel.ferrion.adapters.file;

import com.qel.ferrion.adapter.DiscoveryConnection;
import com.qel.ferrion.adapter.Session;
import com.qel.ferrion.adapter.StreamReader;
import com.qel.ferrion.adapter.StreamReaderListener;
import com.qel.ferrion.adapter.StreamWriter;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.adapter.infrastructure.DiscoveryReader;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import com.qel.ferrion.kit.AdapterSettings.Role;
import com.qel.ferrion.kit.Check;
import com.qel.ferrion.kit.Settings;
import com.qel.ferrion.kit.Watch;
import java.io.UncheckedIOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Duration;
import java.util.HashMap;
import java.util.HashSet;
import java.util.Map;
import java.util.Properties;
import java.util.Set;

/**
 * A directory and the readers and writers of files in it. Owns the watching thread, which lives
 * from the first reader, or the first look at discovery, until the connection is deleted.
 */
final class FileConnection implements DiscoveryConnection {
    private Settings settings;
    private final Path directory;
    private final Duration period;
    private final Watch watch;
    private final FileDiscovery discovery;
    private final DiscoveryReader outputs;
    private final Map<FileStreamReader, Watch.Task> readers = new HashMap<>();
    private final Set<FileStreamWriter> writers = new HashSet<>();

    FileConnection(String name, StreamReaderListener outputListener,
            StreamReaderListener inputListener, Properties properties) throws AdapterException {
        String owner = name == null ? "file connection" : "connection \"" + name + "\"";
        settings = FileSettings.ALL.of(Role.CONNECTION).parse(owner, properties);
        directory = settings.get(FileSettings.DIRECTORY).toAbsolutePath().normalize();
        if (Files.exists(directory) && !Files.isDirectory(directory)) {
            throw new AdapterException(owner + ": " + directory + " is not a directory");
        }
        period = Duration.ofMillis(settings.get(FileSettings.POLL));
        watch = new Watch("file-watch-" + (name == null ? directory.getFileName() : name),
                System.getLogger(FileConnection.class.getPackageName()), String::valueOf);
        outputs = new DiscoveryReader(outputListener);
        discovery = new FileDiscovery(directory, settings.get(FileSettings.TYPE_IDL),
                settings.get(FileSettings.TYPE_NAME), inputListener);
    }

    @Override
    public Session createSession(Properties properties) throws AdapterException {
        return new FileSession(properties);
    }

    @Override
    public void deleteSession(Session session) {
        // A session holds nothing.
    }

    @Override
    public synchronized StreamReader createStreamReader(Session session, StreamInfo streamInfo,
            Properties properties, StreamReaderListener listener) throws AdapterException {
        Settings ours = FileSettings.ALL.of(Role.READER)
                .parse("reader of stream \"" + streamInfo.getStreamName() + "\"", properties);
        StreamFile place = new StreamFile(directory, streamInfo, ours);
        FileStreamReader reader = new FileStreamReader(place, listener, ours);
        try {
            if (Check.isOn(properties)) {
                reader.probe();
            }
        } catch (AdapterException e) {
            reader.release();
            throw e;
        }
        readers.put(reader, reader.follows() ? watch.every(period, reader::look)
                                             : watch.once(reader::look));
        return reader;
    }

    @Override
    public synchronized void deleteStreamReader(StreamReader reader) {
        Watch.Task task = readers.remove(reader);
        if (task != null) {
            task.cancel();
            FileStreamReader ours = (FileStreamReader) reader;
            ours.close();
            ours.release();
        }
    }

    @Override
    public synchronized StreamWriter createStreamWriter(Session session, StreamInfo streamInfo,
            Properties properties) throws AdapterException {
        Settings ours = FileSettings.ALL.of(Role.WRITER)
                .parse("writer of stream \"" + streamInfo.getStreamName() + "\"", properties);
        StreamFile place = new StreamFile(directory, streamInfo, ours);
        FileStreamWriter writer = new FileStreamWriter(place, ours);
        try {
            if (Check.isOn(properties)) {
                writer.probe();
            }
        } catch (AdapterException e) {
            writer.close();
            throw e;
        }
        writers.add(writer);
        return writer;
    }

    @Override
    public synchronized void deleteStreamWriter(StreamWriter writer) {
        if (writers.remove(writer)) {
            ((FileStreamWriter) writer).close();
        }
    }

    /** Announces the data files of the directory; the first look is made here. */
    @Override
    public synchronized StreamReader getInputStreamDiscoveryReader() {
        if (discovery.begin()) {
            watch.every(period, discovery::look);
        }
        return discovery.reader();
    }

    /** Announces nothing: any file may be written, so there is no set of output streams. */
    @Override
    public StreamReader getOutputStreamDiscoveryReader() {
        return outputs;
    }

    @Override
    public Properties getAttributes() {
        Properties attributes = new Properties();
        attributes.setProperty(FileSettings.DIRECTORY.name(), directory.toString());
        return attributes;
    }

    @Override
    public void update(Properties properties) throws AdapterException {
        settings = settings.updated(properties);
    }

    /**
     * Ends the watching thread and closes what the host has left open.
     *
     * @throws UncheckedIOException the first failure to close a written file
     */
    synchronized void close() {
        watch.stop(() -> { });
        for (StreamReader reader : readers.keySet().toArray(new StreamReader[0])) {
            deleteStreamReader(reader);
        }
        discovery.end();
        outputs.close();
        UncheckedIOException failure = null;
        for (StreamWriter writer : writers.toArray(new StreamWriter[0])) {
            try {
                deleteStreamWriter(writer);
            } catch (UncheckedIOException e) {
                failure = failure == null ? e : failure;
            }
        }
        if (failure != null) {
            throw failure;
        }
    }

    @Override
    public String toString() {
        return "files in " + directory;
    }
}
