package com.qel.ferrion.adapters.sql;

import com.qel.dds.dynamicdata.DynamicData;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.BadRow;
import com.qel.ferrion.kit.ConnectionBase.Stream;
import com.qel.ferrion.kit.RejectFile;
import java.io.Closeable;
import java.io.IOException;
import java.lang.System.Logger.Level;
import java.nio.file.Path;
import java.time.Instant;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/**
 * Samples that the database does not take: named in the log by their key, and kept in a file where
 * one was configured. What cannot be kept there goes into the log as a whole.
 */
final class Rejects implements Closeable {
    private static final int NAMED = 10;

    private final String owner;
    private final List<Field> fields;
    private final RejectFile file;
    private int count;

    /**
     * @param path of the file, or null
     */
    Rejects(Stream stream, List<Field> fields, Path path) throws AdapterException {
        this.owner = stream.settings().owner();
        this.fields = fields;
        this.file = path == null ? null : new RejectFile(path, stream.name(), owner);
    }

    /** Tries whether samples could be kept. */
    void probe() throws AdapterException {
        if (file != null) {
            file.probe();
        }
    }

    void add(DynamicData data, boolean disposed, BadRow reason) {
        String key = key(data);
        if (count++ < NAMED) {
            Access.LOG.log(Level.ERROR, owner + ": " + key + ": " + reason.getMessage() + "; "
                    + (file == null ? "not written" : "set aside in " + file));
        }
        if (file != null) {
            Map<String, Object> content = new LinkedHashMap<>();
            content.put("time", Instant.now());
            content.put("disposed", disposed);
            Map<String, String> sample = new LinkedHashMap<>();
            fields.forEach(field -> sample.put(field.path, text(field, data)));
            content.put("sample", sample);
            file.add(key, reason, content);
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

    /** Puts what was added on the disk. */
    void keep() {
        if (count > NAMED) {
            Access.LOG.log(Level.ERROR, owner + ": and " + (count - NAMED) + " more");
        }
        try {
            if (file != null) {
                file.keep(true);
            }
        } catch (IOException e) {
            Access.LOG.log(Level.ERROR, owner + ": " + file + " cannot be written (" + e
                    + "); these samples are lost:\n" + file.pending());
        }
        clear();
    }

    /** Forgets what was added: it will be added again. */
    void clear() {
        count = 0;
        if (file != null) {
            file.clear();
        }
    }

    @Override
    public void close() {
        if (file != null) {
            file.close();
        }
    }
}
