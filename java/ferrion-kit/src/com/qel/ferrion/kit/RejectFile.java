package com.qel.ferrion.kit;

import com.qel.ferrion.adapter.infrastructure.AdapterException;
import java.io.ByteArrayOutputStream;
import java.io.Closeable;
import java.io.FileOutputStream;
import java.io.IOException;
import java.io.InputStream;
import java.io.RandomAccessFile;
import java.nio.charset.StandardCharsets;
import java.nio.file.FileSystemException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Map;

/**
 * A file that keeps rejected rows: a JSON object a line with {@code rejected} (where the row comes
 * from), {@code place}, {@code member}, {@code reason} and the row itself. Several readers and
 * writers may share one file. For one thread at a time.
 */
public final class RejectFile implements Closeable {
    private static final String BEGIN = "{\"rejected\":";
    /** Bytes that are worth a write of their own. */
    private static final int LONG = 1 << 20;

    private final Path file;
    private final String source;
    private final FileClaim claim;
    private ByteArrayOutputStream lines = new ByteArrayOutputStream();

    /**
     * @param file that rows are appended to; it need not be there
     * @param source of the rows: a path, a stream
     * @param owner whose rows they are, for messages: "reader of a stream"
     * @throws AdapterException when it can be no such file
     */
    public RejectFile(Path file, String source, String owner) throws AdapterException {
        this.file = file.toAbsolutePath();
        this.source = source;
        if (Files.isDirectory(file)) {
            throw new AdapterException(file + ": is a directory, not a file for rejected rows");
        }
        claim = FileClaim.take(this.file, FileClaim.Use.COLLECT, owner);
    }

    /**
     * Tries whether rows could be kept, and leaves nothing behind.
     *
     * @throws AdapterException when they could not
     */
    public void probe() throws AdapterException {
        try {
            if (Files.exists(file)) {
                new RandomAccessFile(file.toFile(), "rw").close();
            }
            DiskProbe.writeBeside(file, false);
        } catch (IOException e) {
            throw new AdapterException(file + ": cannot be written: " + e, e);
        }
    }

    /**
     * Adds a row, in memory.
     *
     * @param place where in the source it is, for people
     * @param bad what is wrong with it
     * @param content the row: texts, booleans, and maps of these
     */
    public void add(String place, BadRow bad, Map<String, ?> content) {
        plain(BEGIN);
        quote(source);
        plain(",\"place\":");
        quote(place);
        plain(",\"member\":");
        quote(bad.member());
        plain(",\"reason\":");
        quote(bad.reason());
        plain(",");
        members(content);
        plain("}\n");
    }

    private void members(Map<?, ?> content) {
        String comma = "";
        for (Map.Entry<?, ?> each : content.entrySet()) {
            plain(comma);
            quote(each.getKey().toString());
            plain(":");
            if (each.getValue() instanceof Map) {
                plain("{");
                members((Map<?, ?>) each.getValue());
                plain("}");
            } else if (each.getValue() instanceof Boolean) {
                plain(each.getValue().toString());
            } else {
                quote(each.getValue().toString());
            }
            comma = ",";
        }
    }

    private void plain(String text) {
        lines.writeBytes(text.getBytes(StandardCharsets.UTF_8));
    }

    private void quote(String text) {
        lines.write('"');
        int from = 0;
        for (int i = 0; i < text.length(); i++) {
            char c = text.charAt(i);
            if (c < ' ' || c == '"' || c == '\\') {
                plain(text.substring(from, i));
                plain(c == '\n' ? "\\n" : c < ' ' ? String.format("\\u%04x", (int) c) : "\\" + c);
                from = i + 1;
            }
        }
        plain(text.substring(from));
        lines.write('"');
    }

    /** @return whether what was added is so much that it should be kept now */
    public boolean isLong() {
        return lines.size() > LONG;
    }

    /** @return what was added and is not kept */
    public String pending() {
        return lines.toString(StandardCharsets.UTF_8);
    }

    /** Forgets what was added and is not kept. */
    public void clear() {
        lines = lines.size() > LONG ? new ByteArrayOutputStream() : lines;
        lines.reset();
    }

    /**
     * Appends what was added to the file.
     *
     * @param sync whether it is on the disk when this returns
     * @throws IOException when that cannot be done; what was added is still pending
     */
    public void keep(boolean sync) throws IOException {
        if (lines.size() == 0) {
            return;
        }
        Files.createDirectories(file.getParent());
        if (Files.exists(file) || !begin(sync)) {
            append(file, sync);
        }
        clear();
    }

    private void append(Path to, boolean sync) throws IOException {
        try (FileOutputStream out = new FileOutputStream(to.toFile(), true)) {
            lines.writeTo(out);
            if (sync) {
                out.getFD().sync();
            }
        }
    }

    /**
     * Has the file appear with its first rows in it: empty, it could be taken for a stream.
     *
     * @return false when that cannot be done here
     */
    private boolean begin(boolean sync) throws IOException {
        Path begun = file.resolveSibling("." + file.getFileName() + ".begun");
        try {
            append(begun, sync);
            Files.createLink(file, begun);
            return true;
        } catch (FileSystemException | UnsupportedOperationException e) {
            return false;
        } finally {
            Files.deleteIfExists(begun);
        }
    }

    /**
     * @param file any file
     * @return whether it holds rejected rows, of whatever process: it is no stream then
     */
    public static boolean isOne(Path file) {
        try (InputStream in = Files.newInputStream(file)) {
            byte[] begin = in.readNBytes(BEGIN.length());
            return new String(begin, StandardCharsets.ISO_8859_1).equals(BEGIN);
        } catch (IOException unreadable) {
            return false;
        }
    }

    /** Lets others have the file; what is pending is lost. */
    @Override
    public void close() {
        claim.close();
    }

    /** @return the file */
    @Override
    public String toString() {
        return file.toString();
    }
}
