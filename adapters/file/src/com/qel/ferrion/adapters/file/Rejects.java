package com.qel.ferrion.adapters.file;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.FileClaim;
import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.io.RandomAccessFile;
import java.nio.ByteBuffer;
import java.nio.charset.CharacterCodingException;
import java.nio.charset.StandardCharsets;
import java.nio.file.FileSystemException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;

/**
 * Keeps bad rows: a JSON object a line with the file, the line that the row begins at, the member,
 * the reason and the row itself. A row that is not UTF-8 stands there with a character for each
 * byte, and says so. Used on the host's thread. Several readers may share one file.
 */
final class Rejects {
    private static final String BEGIN = "{\"rejected\":";
    /** Bytes that are collected before they are written. */
    private static final int PIECE = 1 << 20;

    private final Path source;
    private final Path file;
    private final FileClaim claim;
    private final Bytes lines = new Bytes();
    private String lost = "";

    /**
     * @param source of the rows
     * @param file that the rows are appended to; it need not be there
     * @param owner whose rows they are, for messages
     * @throws AdapterException when it can be no such file
     */
    Rejects(Path source, Path file, String owner) throws AdapterException {
        this.source = source;
        this.file = file;
        if (Files.isDirectory(file)) {
            throw new AdapterException(file + ": is a directory, not a file for rejected rows");
        }
        claim = FileClaim.take(file, FileClaim.Use.COLLECT, owner);
    }

    /** Tries whether rows could be kept, and leaves nothing behind. */
    void probe() throws AdapterException {
        try {
            if (Files.exists(file)) {
                new RandomAccessFile(file.toFile(), "rw").close();
            }
            DiskProbe.writeBeside(file, false);
        } catch (IOException e) {
            throw new AdapterException(file + ": cannot be written: " + e, e);
        }
    }

    /** Lets others have the file. */
    void close() {
        claim.close();
    }

    /** Notes the row that lies in the scanner. */
    void add(RecordScanner row, BadRow bad) {
        byte[] raw = row.raw();
        String text;
        String encoding = "";
        try {
            text = StandardCharsets.UTF_8.newDecoder().decode(ByteBuffer.wrap(raw)).toString();
        } catch (CharacterCodingException e) {
            text = new String(raw, StandardCharsets.ISO_8859_1);
            encoding = ",\"encoding\":\"ISO-8859-1\"";
        }
        lines.plain(BEGIN);
        JsonEncoder.quote(source.toString(), lines);
        lines.plain(",\"line\":" + row.line() + ",\"member\":");
        JsonEncoder.quote(bad.member, lines);
        lines.plain(",\"reason\":");
        JsonEncoder.quote(bad.reason, lines);
        lines.plain(",\"row\":");
        JsonEncoder.quote(text, lines);
        lines.plain(encoding + "}\n");
        if (lines.size() > PIECE) {
            write();
        }
    }

    /** Writes what was added. @return what has gone wrong since the last time, or nothing */
    String keep() {
        write();
        String told = lost;
        lost = "";
        return told;
    }

    private void write() {
        if (lines.size() == 0) {
            return;
        }
        try {
            Files.createDirectories(file.getParent());
            if (Files.exists(file) || !begin()) {
                append(file);
            }
        } catch (IOException e) {
            lost = "\n" + file + " cannot be written: " + e;
        }
        lines.reset();
    }

    private void append(Path to) throws IOException {
        try (OutputStream out = Files.newOutputStream(to, StandardOpenOption.CREATE,
                StandardOpenOption.APPEND)) {
            lines.writeTo(out);
        }
    }

    /**
     * Has the file appear with its first rows in it: empty, it could be taken for a stream.
     *
     * @return false when that cannot be done here
     */
    private boolean begin() throws IOException {
        Path begun = file.resolveSibling("." + file.getFileName() + ".begun");
        try {
            append(begun);
            Files.createLink(file, begun);
            return true;
        } catch (FileSystemException | UnsupportedOperationException e) {
            return false;
        } finally {
            Files.deleteIfExists(begun);
        }
    }

    /** Whether a file holds rejected rows, of whatever process: it is no stream then. */
    static boolean isKeptIn(Path file) {
        try (InputStream in = Files.newInputStream(file)) {
            byte[] begin = in.readNBytes(BEGIN.length());
            return new String(begin, StandardCharsets.ISO_8859_1).equals(BEGIN);
        } catch (IOException unreadable) {
            return false;
        }
    }
}
