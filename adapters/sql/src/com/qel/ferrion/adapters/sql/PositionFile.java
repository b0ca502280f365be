package com.qel.ferrion.adapters.sql;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.io.IOException;
import java.net.URLDecoder;
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
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Deque;
import java.util.HexFormat;
import java.util.List;

/**
 * Up to where a stream has been read: the values of the order columns in the last row that the
 * host has taken. The file is replaced as a whole, so it is never half of anything. A lock file
 * beside it keeps a second reader away, in this process and in others.
 */
final class PositionFile {
    private final Path file;
    private final FileChannel lockFile;
    private final FileLock lock;
    /** Folders that were not there before, and the lock file where it was not either. */
    private final Deque<Path> made = new ArrayDeque<>();

    /**
     * Opens a position that nobody else has.
     *
     * @throws AdapterException when somebody has, or the folder cannot be written
     */
    PositionFile(Path file) throws AdapterException {
        this.file = file.toAbsolutePath();
        FileChannel opened = null;
        FileLock got = null;
        try {
            for (Path each = beside(".lock"); !Files.exists(each); each = each.getParent()) {
                made.addLast(each);
            }
            Files.createDirectories(this.file.getParent());
            opened = FileChannel.open(beside(".lock"), StandardOpenOption.CREATE,
                    StandardOpenOption.WRITE);
            got = opened.tryLock();
        } catch (OverlappingFileLockException e) {
            // Another reader of this process; reported below.
        } catch (IOException e) {
            throw new AdapterException("position_file: " + e, e);
        }
        lockFile = opened;
        lock = got;
        if (lock == null) {
            close(false);
            throw new AdapterException("position_file: " + file + " is another reader's");
        }
    }

    /**
     * Where the position of a stream is kept that nobody has named a file for.
     *
     * @param database a label that no other database has
     */
    static String usual(String database, String stream) {
        return "positions/" + encoded(database) + "/" + encoded(stream);
    }

    /** A name that a file can have. */
    private static String encoded(String name) {
        return URLEncoder.encode(name, StandardCharsets.UTF_8).replaceFirst("^\\.", "%2E");
    }

    /**
     * Tries whether a position could be kept.
     *
     * @throws AdapterException when it could not
     */
    void probe(String owner) throws AdapterException {
        Trial.file(file, owner + ": position_file");
    }

    private Path beside(String suffix) {
        return file.resolveSibling(file.getFileName() + suffix);
    }

    /**
     * The position that was kept.
     *
     * @param order names of the columns that it has to be of
     * @return null when there is none yet
     * @throws AdapterException when it is of other columns, or no position
     */
    List<Object> load(List<String> order) throws AdapterException {
        List<String> lines;
        try {
            if (!Files.exists(file)) {
                return null;
            }
            lines = Files.readAllLines(file);
        } catch (IOException e) {
            throw new AdapterException("position_file: " + e, e);
        }
        String wanted = header(order);
        if (lines.isEmpty() || !lines.get(0).equals(wanted)) {
            throw new AdapterException("position_file: " + file + " says \""
                    + (lines.isEmpty() ? "" : lines.get(0)) + "\" instead of \"" + wanted
                    + "\"; remove it to read from the start");
        }
        List<Object> values = new ArrayList<>();
        try {
            for (String line : lines.subList(1, lines.size())) {
                values.add(parse(line));
            }
        } catch (IllegalArgumentException | IndexOutOfBoundsException e) {
            values.clear();
        }
        if (values.size() != order.size()) {
            throw new AdapterException("position_file: " + file + " is damaged");
        }
        return values;
    }

    /** Puts a position in place of the one before; it is on the disk when this returns. */
    void save(List<String> order, List<Object> values) throws AdapterException {
        StringBuilder text = new StringBuilder(header(order)).append('\n');
        values.forEach(value -> text.append(format(value)).append('\n'));
        Path next = beside(".new");
        try {
            try (FileChannel out = FileChannel.open(next, StandardOpenOption.CREATE,
                    StandardOpenOption.TRUNCATE_EXISTING, StandardOpenOption.WRITE)) {
                ByteBuffer bytes = StandardCharsets.UTF_8.encode(text.toString());
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
            throw new AdapterException("position_file: " + e + "; after a restart rows that have "
                    + "been read are read again", e);
        }
    }

    private static String header(List<String> order) {
        return "position by " + String.join(", ", order);
    }

    private static String format(Object value) {
        if (value instanceof Long) {
            return "i" + value;
        }
        if (value instanceof Double) {
            return "r" + Double.toHexString((Double) value);
        }
        return value instanceof byte[] ? "b" + HexFormat.of().formatHex((byte[]) value)
                : "t" + URLEncoder.encode((String) value, StandardCharsets.UTF_8);
    }

    private static Object parse(String line) {
        String rest = line.substring(1);
        return switch (line.charAt(0)) {
        case 'i' -> Long.valueOf(rest);
        case 'r' -> Double.valueOf(rest);
        case 'b' -> HexFormat.of().parseHex(rest);
        case 't' -> URLDecoder.decode(rest, StandardCharsets.UTF_8);
        default -> throw new IllegalArgumentException(line);
        };
    }

    /**
     * Lets go of the lock.
     *
     * @param traceless whether what was made for it goes as well
     */
    void close(boolean traceless) {
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
}
