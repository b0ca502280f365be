package com.qel.ferrion.adapters.sql;

import com.qel.dds.dynamicdata.DynamicData;
import java.io.IOException;
import java.lang.System.Logger.Level;
import java.nio.ByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.time.Instant;
import java.util.List;

/**
 * Samples that the database does not take: told in the log by their key, and kept as JSON lines in
 * a file where one was configured. What cannot be kept there goes into the log as a whole.
 */
final class Rejects {
    private static final int NAMED = 10;

    private final String owner;
    private final String stream;
    private final List<Field> fields;
    private final Path file;
    private final StringBuilder lines = new StringBuilder();
    private int count;

    Rejects(String owner, String stream, List<Field> fields, Path file) {
        this.owner = owner;
        this.stream = stream;
        this.fields = fields;
        this.file = file;
    }

    void add(DynamicData data, boolean disposed, String reason) {
        if (count++ < NAMED) {
            Access.LOG.log(Level.ERROR, owner + ": " + key(data) + ": " + reason + "; "
                    + (file == null ? "not written" : "set aside in " + file));
        }
        if (file != null) {
            // Files that begin so are no streams to the discovery of the file adapter.
            lines.append("{\"rejected\":");
            quote(stream).append(",\"time\":\"").append(Instant.now()).append("\",\"reason\":");
            quote(reason).append(",\"disposed\":").append(disposed).append(",\"sample\":{");
            for (Field field : fields) {
                quote(field.path).append(':');
                quote(text(field, data)).append(',');
            }
            lines.setLength(lines.length() - 1);
            lines.append("}}\n");
        }
    }

    private String key(DynamicData data) {
        StringBuilder text = new StringBuilder();
        for (Field field : fields) {
            if (field.key || (text.isEmpty() && fields.stream().noneMatch(each -> each.key))) {
                text.append(text.isEmpty() ? "" : ", ").append(field.path).append('=')
                        .append(text(field, data));
            }
        }
        return text.toString();
    }

    /** A value that cannot be read may be just what is wrong with the sample. */
    private static String text(Field field, DynamicData data) {
        try {
            return field.text(data);
        } catch (RuntimeException e) {
            return e.getMessage();
        }
    }

    private StringBuilder quote(String text) {
        lines.append('"');
        for (char c : text.toCharArray()) {
            if (c < ' ' || c == '"' || c == '\\') {
                lines.append(String.format("\\u%04x", (int) c));
            } else {
                lines.append(c);
            }
        }
        return lines.append('"');
    }

    /** Puts what was added on the disk. */
    void keep() {
        if (count > NAMED) {
            Access.LOG.log(Level.ERROR, owner + ": and " + (count - NAMED) + " more");
        }
        count = 0;
        if (lines.length() > 0) {
            try {
                Files.createDirectories(file.toAbsolutePath().getParent());
                try (FileChannel out = FileChannel.open(file, StandardOpenOption.CREATE,
                        StandardOpenOption.WRITE, StandardOpenOption.APPEND)) {
                    ByteBuffer bytes = StandardCharsets.UTF_8.encode(lines.toString());
                    while (bytes.hasRemaining()) {
                        out.write(bytes);
                    }
                    out.force(true);
                }
            } catch (IOException e) {
                Access.LOG.log(Level.ERROR, owner + ": " + file + " cannot be written (" + e
                        + "); these samples are lost:\n" + lines);
            }
            lines.setLength(0);
        }
    }

    /** Forgets what was added: it will be added again. */
    void clear() {
        count = 0;
        lines.setLength(0);
    }
}
