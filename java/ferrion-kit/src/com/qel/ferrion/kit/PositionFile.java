package com.qel.ferrion.kit;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.io.IOException;
import java.net.URLEncoder;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.channels.FileLock;
import java.nio.channels.OverlappingFileLockException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.nio.file.StandardOpenOption;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.ArrayDeque;
import java.util.Deque;
import java.util.List;
import java.util.zip.CRC32;

/**
 * Up to where a stream has been read, as lines of text that survive a crash and a loss of power.
 * Save it when the loan is returned, and only then: what was lent and not returned is to be lent
 * again. The file is replaced as a whole, so it is never half of anything. A lock file beside it
 * keeps a second reader away, in this process and in others. For one thread at a time.
 */
public final class PositionFile {
    /** The host's folder for what is to survive its process, as a system property. */
    private static final String STATE = "ferryjni.state";
    private static final int LONGEST_NAME = 100;

    private final Path file;
    private final String what;
    private final FileChannel lockFile;
    private final FileLock lock;
    /** Folders that were not there before, and the lock file where it was not either. */
    private final Deque<Path> made = new ArrayDeque<>();

    /**
     * Opens a position that nobody else has.
     *
     * @param file where it is kept; its folders are made
     * @param what the position is called in messages: the name of the property that says where
     * @throws AdapterException when somebody has it, or the folder cannot be written
     */
    public PositionFile(Path file, String what) throws AdapterException {
        this.file = file.toAbsolutePath();
        this.what = what;
        FileChannel opened = null;
        FileLock got = null;
        try {
            for (Path each = beside(".lock"); !Files.exists(each); each = each.getParent()) {
                made.addLast(each);
            }
            Files.createDirectories(this.file.getParent(), PosixFilePermissions.asFileAttribute(
                    PosixFilePermissions.fromString("rwx------")));
            opened = FileChannel.open(beside(".lock"), StandardOpenOption.CREATE,
                    StandardOpenOption.WRITE);
            got = opened.tryLock();
        } catch (OverlappingFileLockException e) {
            // Another reader of this process; reported below.
        } catch (IOException e) {
            throw new AdapterException(what + ": " + e, e);
        }
        lockFile = opened;
        lock = got;
        if (lock == null) {
            close(false);
            throw new AdapterException(what + ": " + file + " is another reader's");
        }
    }

    /**
     * Where the host keeps the position of a stream.
     *
     * @param names tell the stream from all others, the most general first: a database, a table
     * @return null when the host has no place for that
     */
    public static Path ofHost(String... names) {
        String state = System.getProperty(STATE);
        if (state == null) {
            return null;
        }
        Path path = Path.of(state, "positions");
        for (String name : names) {
            path = path.resolve(fileName(name));
        }
        return path;
    }

    /** @return a name that a file can have, another one for each name */
    public static String fileName(String name) {
        String encoded = URLEncoder.encode(name, StandardCharsets.UTF_8)
                .replaceFirst("^\\.", "%2E");
        if (encoded.length() <= LONGEST_NAME) {
            return encoded;
        }
        CRC32 crc = new CRC32();
        crc.update(name.getBytes(StandardCharsets.UTF_8));
        return encoded.substring(0, LONGEST_NAME) + "~" + Long.toHexString(crc.getValue())
                + Integer.toHexString(name.hashCode());
    }

    private Path beside(String suffix) {
        return file.resolveSibling(file.getFileName() + suffix);
    }

    /**
     * @return the lines that were saved last; null when there are none
     * @throws AdapterException when they cannot be read
     */
    public List<String> load() throws AdapterException {
        try {
            return Files.exists(file) ? Files.readAllLines(file) : null;
        } catch (IOException e) {
            throw new AdapterException(what + ": " + file + " cannot be read: " + e, e);
        }
    }

    /**
     * Puts lines in place of those before; they are on the disk when this returns.
     *
     * @throws AdapterException when that cannot be done; those before are still there
     */
    public void save(List<String> lines) throws AdapterException {
        Path next = beside(".new");
        try {
            try (FileChannel out = FileChannel.open(next, StandardOpenOption.CREATE,
                    StandardOpenOption.TRUNCATE_EXISTING, StandardOpenOption.WRITE)) {
                ByteBuffer bytes =
                        StandardCharsets.UTF_8.encode(String.join("\n", lines) + "\n");
                while (bytes.hasRemaining()) {
                    out.write(bytes);
                }
                out.force(true);
            }
            Files.move(next, file, StandardCopyOption.ATOMIC_MOVE);
            try (FileChannel folder = FileChannel.open(file.getParent())) {
                folder.force(true);
            }
        } catch (IOException e) {
            throw new AdapterException(what + ": " + e + "; after a restart rows that have "
                    + "been read are read again", e);
        }
    }

    /**
     * Tries whether a position could be kept, and leaves nothing behind.
     *
     * @throws AdapterException when it could not
     */
    public void probe() throws AdapterException {
        try {
            DiskProbe.writeBeside(file, true);
        } catch (IOException e) {
            throw new AdapterException(what + ": " + file + " cannot be written: " + e, e);
        }
    }

    /**
     * Lets go of the lock.
     *
     * @param traceless whether what was made for the position goes as well: after a mere check, or
     *     a creation that failed
     */
    public void close(boolean traceless) {
        try {
            if (traceless && lock != null) {
                for (Path each : made) {
                    Files.deleteIfExists(each);
                }
            }
        } catch (IOException e) {
            // Somebody has put something into the folder: it stays.
        }
        try {
            if (lockFile != null) {
                lockFile.close(); // Lets go of the lock, too.
            }
        } catch (IOException e) {
            // Nothing was written to it.
        }
    }

    /** @return where it is kept */
    @Override
    public String toString() {
        return file.toString();
    }
}
