package com.qel.ferrion.adapters.file;

import com.qel.dds.typecode.Kind;
import com.qel.dds.typecode.TypeCode;
import com.qel.ferrion.adapter.infrastructure.AdapterException;
import com.qel.ferrion.kit.ConnectionBase.Stream;
import com.qel.ferrion.kit.Settings;
import java.nio.file.InvalidPathException;
import java.nio.file.Path;
import java.util.Locale;

/** Which file a stream is, in which format and of which type. */
final class StreamFile {
    /** What files hold. */
    enum Format { CSV, JSONL }

    private final String stream;
    private final Path directory;
    private final Path path;
    private final Format format;
    private final TypeCode type;

    /**
     * Finds the file of a stream, by the settings {@code file} and {@code format}.
     *
     * @throws AdapterException when the file would lie elsewhere, or its format or type is unknown
     */
    StreamFile(Path directory, Stream wanted) throws AdapterException {
        this.directory = directory;
        this.stream = wanted.name();
        this.type = wanted.type();
        if (type == null || type.resolve().kind() != Kind.STRUCT) {
            throw new AdapterException("stream \"" + stream + "\": its type is no known struct");
        }
        String file = wanted.settings().get(FileSettings.FILE);
        this.path = sibling(file == null ? stream : file);
        Format given = wanted.settings().get(FileSettings.FORMAT);
        this.format = given == null ? formatOf(extension(path)) : given;
    }

    private Format formatOf(String word) throws AdapterException {
        switch (word) {
        case "csv":
            return Format.CSV;
        case "jsonl":
            return Format.JSONL;
        default:
            throw new AdapterException("stream \"" + stream + "\": the format of "
                    + path.getFileName() + " is not known by its extension; set property "
                    + "\"format\" to csv or jsonl");
        }
    }

    private static String extension(Path path) {
        String name = path.getFileName().toString();
        return name.substring(name.lastIndexOf('.') + 1).toLowerCase(Locale.ROOT);
    }

    /**
     * A file of the connection's directory by name. A stream's name may come from another system,
     * so it must not lead out of the directory.
     */
    Path sibling(String name) throws AdapterException {
        try {
            Path found = directory.resolve(name).normalize();
            if (found.startsWith(directory) && !found.equals(directory)) {
                return found;
            }
        } catch (InvalidPathException e) {
            // Rejected below.
        }
        throw new AdapterException("stream \"" + stream + "\": \"" + name
                + "\" is no file below directory " + directory);
    }

    /** Whether a text stands for a delimiter: one that is no part of numbers, names or quotes. */
    static boolean isDelimiter(String text) {
        char c = character(text);
        return c == '\t' || (c > ' ' && c < 0x7F && !Character.isLetterOrDigit(c)
                && "\".+-#_".indexOf(c) < 0);
    }

    /** The delimiter that the settings ask for. */
    static char delimiter(Settings settings) {
        return character(settings.get(FileSettings.DELIMITER));
    }

    private static char character(String text) {
        return text.equals("tab") || text.equals("\\t") ? '\t'
                : text.length() == 1 ? text.charAt(0) : '"';
    }

    /** Rejects properties that mean something for CSV alone. */
    static void rejectForJson(Settings settings) throws AdapterException {
        if (settings.has(FileSettings.DELIMITER) || settings.has(FileSettings.COLUMNS)) {
            throw new AdapterException(
                    "properties \"delimiter\" and \"columns.\" are for CSV only");
        }
    }

    String stream() {
        return stream;
    }

    Path path() {
        return path;
    }

    Format format() {
        return format;
    }

    TypeCode type() {
        return type;
    }
}
