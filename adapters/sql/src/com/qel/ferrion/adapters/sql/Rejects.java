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
 * Samples that the database does not take: named by their key, and kept in a file where one was
 * configured.
 */
final class Rejects implements Closeable {
    private final String owner;
    private final List<Field> fields;
    private final RejectFile file;

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

    /** Puts a sample on the disk; the host hears of it all the same. */
    void keep(DynamicData data, boolean disposed, BadRow reason) {
        if (file == null) {
            return;
        }
        Map<String, Object> content = new LinkedHashMap<>();
        content.put("time", Instant.now());
        content.put("disposed", disposed);
        Map<String, String> sample = new LinkedHashMap<>();
        fields.forEach(field -> sample.put(field.path, text(field, data)));
        content.put("sample", sample);
        file.add(key(data), reason, content);
        try {
            file.keep(true);
        } catch (IOException e) {
            Access.LOG.log(Level.ERROR, owner + ": " + file + " cannot be written (" + e
                    + "); this sample is not in it:\n" + file.pending());
            file.clear();
        }
    }

    /** The values of a sample's key, or of its first member when the type has none. */
    String key(DynamicData data) {
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

    @Override
    public void close() {
        if (file != null) {
            file.close();
        }
    }
}
