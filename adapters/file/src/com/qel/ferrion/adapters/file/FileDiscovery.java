package com.qel.ferrion.adapters.file;

import com.qel.dds.TypeException;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.infrastructure.DiscoveryReader;
import com.qel.ferrion.adapter.infrastructure.StreamInfo;
import com.qel.ferrion.adapter.infrastructure.TypeInfo;
import com.qel.ferrion.kit.RejectFile;
import com.qel.ferrion.kit.Settings;
import java.io.IOException;
import java.lang.System.Logger.Level;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Set;
import java.util.TreeSet;

/**
 * The data files of a directory as streams: announced as they appear, disposed as they vanish.
 *
 * <p>A file's type is the last struct of the IDL file of the same base name beside it, or else the
 * connection's; a file without either is announced without a type. Used by one thread at a time:
 * the host's, and then the watching one.
 */
final class FileDiscovery {
    private static final System.Logger LOG = System.getLogger(Input.class.getPackageName());

    private final Path directory;
    private final String typeIdl;
    private final String typeName;
    private final DiscoveryReader reader;
    private Set<String> known = Set.of();

    FileDiscovery(Path directory, Settings settings, DiscoveryReader reader) {
        this.directory = directory;
        this.typeIdl = settings.get(FileSettings.TYPE_IDL);
        this.typeName = settings.get(FileSettings.TYPE_NAME);
        this.reader = reader;
    }

    /** Compares the directory with what has been announced. */
    void look() {
        Set<String> found = new TreeSet<>();
        try (DirectoryStream<Path> files =
                Files.newDirectoryStream(directory, "*.{csv,jsonl}")) {
            for (Path file : files) {
                String name = file.getFileName().toString();
                // Whoever writes rejected rows into this folder: they are no stream.
                if (Files.isRegularFile(file)
                        && (known.contains(name) || !RejectFile.isOne(file))) {
                    found.add(name);
                }
            }
        } catch (IOException | java.nio.file.DirectoryIteratorException e) {
            if (Files.isDirectory(directory)) {
                LOG.log(Level.WARNING, directory + ": cannot be listed", e);
                return;
            }
            // A directory that is gone, or not there yet, holds no files.
            found.clear();
        }
        for (String name : found) {
            if (!known.contains(name)) {
                reader.announce(new StreamInfo(name, typeOf(name), false));
            }
        }
        for (String name : known) {
            if (!found.contains(name)) {
                reader.dispose(name);
            }
        }
        known = found;
    }

    private TypeInfo typeOf(String name) {
        Path beside = directory.resolve(name.substring(0, name.lastIndexOf('.')) + ".idl");
        try {
            if (Files.exists(beside)) {
                return info(TypeCode.fromIdlFile(beside, null));
            }
            if (typeIdl != null) {
                return info(TypeCode.fromIdlFile(Path.of(typeIdl), typeName));
            }
        } catch (TypeException | java.nio.file.InvalidPathException e) {
            LOG.log(Level.WARNING, directory.resolve(name) + ": its type is not usable: "
                    + e.getMessage());
        }
        return new TypeInfo(null, null);
    }

    private static TypeInfo info(TypeCode type) {
        return new TypeInfo(type.name(), type);
    }
}
