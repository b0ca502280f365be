package com.qel.ferrion.adapters.file;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.DiscoveryConnectionBase;
import com.qel.ferrion.kit.ReaderBase;
import com.qel.ferrion.kit.Settings;
import com.qel.ferrion.kit.Watch;
import com.qel.ferrion.kit.WriterBase;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Properties;

/**
 * A directory. Owns the watching thread, which lives from the first reader, or the first look at
 * discovery, until the connection ends. Any file may be written, so no output streams are
 * announced.
 */
final class FileConnection extends DiscoveryConnectionBase {
    private final Path directory;
    private final Watch watch;

    FileConnection(String name, Settings settings) throws AdapterException {
        directory = settings.get(FileSettings.DIRECTORY).toAbsolutePath().normalize();
        if (Files.exists(directory) && !Files.isDirectory(directory)) {
            throw new AdapterException(
                    settings.owner() + ": " + directory + " is not a directory");
        }
        watch = new Watch("file-watch-" + (name == null ? directory.getFileName() : name),
                System.getLogger(FileConnection.class.getPackageName()), String::valueOf);
    }

    @Override
    protected ReaderBase openReader(Stream stream) throws AdapterException {
        FileStreamReader reader = new FileStreamReader(new StreamFile(directory, stream), stream);
        reader.start(watch, settings().get(FileSettings.POLL));
        return reader;
    }

    @Override
    protected WriterBase openWriter(Stream stream) throws AdapterException {
        return new FileStreamWriter(new StreamFile(directory, stream), stream);
    }

    /** Announces the data files of the directory; the first look is made here. */
    @Override
    protected void inputsWanted() {
        FileDiscovery discovery = new FileDiscovery(directory, settings(),
                getInputStreamDiscoveryReader());
        discovery.look();
        watch.every(settings().get(FileSettings.POLL), discovery::look);
    }

    @Override
    public Properties getAttributes() {
        Properties attributes = new Properties();
        attributes.setProperty(FileSettings.DIRECTORY.name(), directory.toString());
        return attributes;
    }

    @Override
    protected void release() {
        watch.stop(() -> { });
    }

    @Override
    public String toString() {
        return "files in " + directory;
    }
}
