package com.qel.ferrion.adapters.file;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.PositionFile;
import java.io.IOException;
import java.io.RandomAccessFile;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.HexFormat;
import java.util.List;
import java.util.concurrent.ThreadLocalRandom;
import java.util.zip.CRC32;

/**
 * Up to where a file has been read, kept from one process to the next. A file is known by its
 * number in the file system, so that one that was renamed is found, and by what stands in front of
 * the position, as numbers are given to other files when theirs are gone.
 */
final class FilePosition {
    /** Bytes in front of a position that have to be the same. */
    private static final int CHECKED = 1024;

    private final Path path;
    private final PositionFile kept;
    private Place saved;

    /**
     * A place between two records of a file.
     *
     * @param file its number
     * @param offset in bytes
     * @param line of the record behind it
     * @param midLine whether what follows is the rest of a line that was given up
     * @param check of the bytes in front of it
     * @param opening see {@link Opening}
     */
    record Place(long file, long offset, long line, boolean midLine, String check,
            Opening opening) {}

    /**
     * Tells a file from all that were read before it, also from one that had its number or that it
     * was itself before it was cut back. So the records of one opening are numbered by their
     * offsets.
     *
     * @param number one more than that of the file before; the first one of a position is random,
     *     so that a position that was removed on purpose has everything read as new
     * @param first check of the first record; null before that has been read
     */
    record Opening(long number, String first) {
        static Opening begin() {
            return new Opening(ThreadLocalRandom.current().nextLong() >>> 2, null);
        }

        Opening next() {
            return new Opening(number + 1, null);
        }

        Opening with(byte[] record) {
            return new Opening(number, crc(record));
        }
    }

    /**
     * Opens the position of a file; {@code where} is kept.
     *
     * @throws AdapterException when another reader has it, or it is none
     */
    FilePosition(Path path, Path where) throws AdapterException {
        this.path = path;
        kept = new PositionFile(where, "resume");
        try {
            saved = parse(kept.load());
        } catch (AdapterException e) {
            kept.close(false);
            throw e;
        }
    }

    /** Where the position of a file is kept: with the host, or else as a hidden file beside it. */
    static Path usual(Path path, String stream) {
        Path host = PositionFile.ofHost(path.getParent().toString(), stream);
        return host != null ? host
                : path.resolveSibling("." + PositionFile.fileName(stream) + ".position");
    }

    private Place parse(List<String> lines) throws AdapterException {
        if (lines == null) {
            return null;
        }
        try {
            String[] words = lines.get(1).split(" ");
            if (lines.get(0).equals(header())) {
                return new Place(Long.parseLong(words[0]), Long.parseLong(words[1]),
                        Long.parseLong(words[2]), Boolean.parseBoolean(words[3]), words[4],
                        new Opening(Long.parseLong(words[5]), words.length > 6 ? words[6] : null));
            }
        } catch (IndexOutOfBoundsException | NumberFormatException e) {
            // Rejected below.
        }
        throw new AdapterException("resume: " + kept + " is no position in " + path
                + "; remove it to read from the start");
    }

    private String header() {
        return "position in " + path
                + ": file, offset, line, whether in it, check, opening, first record";
    }

    /** Up to where has been read; null when that is nowhere. */
    Place place() {
        return saved;
    }

    /** Keeps a place; it is on the disk when this returns. */
    void save(Place place) throws AdapterException {
        if (!place.equals(saved)) {
            kept.save(List.of(header(), place.file() + " " + place.offset() + " " + place.line()
                    + " " + place.midLine() + " " + place.check() + " "
                    + place.opening().number()
                    + (place.opening().first() == null ? "" : " " + place.opening().first())));
            saved = place;
        }
    }

    /** The file that the place is in, under whatever name of its folder; null when it has gone. */
    Path find() throws IOException {
        if (Files.exists(path) && numberOf(path) == saved.file()) {
            return path;
        }
        try (DirectoryStream<Path> names = Files.newDirectoryStream(path.getParent())) {
            for (Path name : names) {
                if (Files.isRegularFile(name) && numberOf(name) == saved.file()) {
                    return name;
                }
            }
        }
        return null;
    }

    /** A file's number, which a rename leaves as it is. */
    static long numberOf(Path path) throws IOException {
        return (Long) Files.getAttribute(path, "unix:ino");
    }

    /** The check of what stands in front of an offset. The file's own place stays as it is. */
    static String check(RandomAccessFile file, long offset) throws IOException {
        long before = file.getFilePointer();
        byte[] bytes = new byte[(int) Math.min(offset, CHECKED)];
        file.seek(offset - bytes.length);
        file.readFully(bytes);
        file.seek(before);
        return crc(bytes);
    }

    private static String crc(byte[] bytes) {
        CRC32 crc = new CRC32();
        crc.update(bytes);
        return HexFormat.of().toHexDigits((int) crc.getValue());
    }

    /** Tries whether a position could be kept. */
    void probe() throws AdapterException {
        kept.probe();
    }

    /** @param traceless whether what was made for it goes as well */
    void close(boolean traceless) {
        kept.close(traceless);
    }
}
